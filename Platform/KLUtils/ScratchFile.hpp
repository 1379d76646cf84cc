#pragma once

#include "InputOutput/File.hpp"
#include "InputOutput/Location.hpp"
#include "KLRoot/KLExport.hpp"

#include <cstdint>

namespace IOUtil {

// A file written beside its target under a hidden name and put in the target's place by
// MakePermanent, with one atomic rename. Until then the target stays as it was: a crash, or
// destroying the object, leaves the old file whole and removes the scratch file.
//
// GetStatus tells whether the scratch file could be made; GetLocation is the scratch file's own
// location until MakePermanent, the target's after.
class LM_EXPORT ScratchFile : public IO::File {
public:
    // Whether MakePermanent syncs the file and its folder before it returns, or leaves that to a
    // caller that writes many files and syncs them together once.
    enum Durability { SyncEach, SyncByCaller };

    // Type and creator codes, when not 0, are given to the target as it becomes permanent.
    explicit ScratchFile(const IO::Location& target, std::uint32_t type = 0, std::uint32_t creator = 0,
                         Durability durability = SyncEach);
    ~ScratchFile() override;

    const IO::Location& GetTargetLocation() const { return target; }
    // Writes out what was written and syncs it (unless SyncByCaller), closes, and renames over the
    // target. Only files of the local disk can be made permanent.
    int MakePermanent();
    bool IsPermanent() const { return permanent; }

private:
    int CreateScratch();

    IO::Location target;
    std::uint32_t type;
    std::uint32_t creator;
    Durability durability;
    bool permanent = false;
};

} // namespace IOUtil
