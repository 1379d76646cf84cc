#pragma once

// The rules every extraction writes by, whichever container it reads: a folder whose path would
// reach 248 characters is not made, and a file whose path would reach 260 goes to a numbered side
// folder of the destination ("0000-1", "0000-2", ..., at most 499 files each), where equal names
// are told apart as "a-2.txt", "a-3.txt". Lengths count characters of names, each with its
// separator.
//
// Targets are always made anew: whatever stood at a name is removed first, since writing through
// it could reach outside the destination (a link) or change a file elsewhere (a second hard link).
#include "VBUtils/DateTime.hpp"

#include "InputOutput/File.hpp"
#include "InputOutput/Folder.hpp"
#include "InputOutput/Location.hpp"
#include "InputOutput/Name.hpp"
#include "KLRoot/Channel.hpp"

#include <cstdint>
#include <functional>

namespace LM {

// What an extracted file carries over from its container besides its bytes.
struct FileStamp {
    std::int32_t macType = 0;
    std::int32_t macCreator = 0;
    OVFS::DateTime creationTime;
    OVFS::DateTime modificationTime;
};

class ExtractionPaths {
public:
    // A folder path from this length on is not made; its files go to side folders.
    static constexpr int MaxFolderPathLength = 248;
    // A file path from this length on goes to a side folder.
    static constexpr int MaxFilePathLength = 260;
    // Files per side folder; the next one opens at this count.
    static constexpr int SideFolderCapacity = 500;

    // Counts the destination's path, once: a later destination keeps the first one's length.
    void MeasureBase(const IO::Location& base);
    void EnterFolder(const IO::Name& name) { folderPathLength += NameLength(name); }
    void ExitFolder(const IO::Name& name) { folderPathLength -= NameLength(name); }

    // Makes the folder at `location` unless the current path is too long for one, in which case
    // the files that follow go to side folders. The status of the folder made.
    int MakeFolder(const IO::Location& location);
    // Where the file at `regular` goes: there, or, when its path is too long, to an unused name in
    // a side folder of `base`. A side folder that could not be made gives its status, and the
    // target is named all the same.
    int FileTarget(const IO::Location& base, const IO::Location& regular, IO::Location* target);

    // What writing one extracted file came to.
    struct Written {
        int status = 0;       // of making, opening, writing or closing the file
        bool dropped = false; // made, but its content failed, so it was removed again
    };
    // Makes the file at `target` anew and lets `write` fill it. A whole file gets the type, creator
    // and times; one whose writing or closing failed is removed.
    Written WriteTarget(const IO::Location& target, const FileStamp& stamp,
                        const std::function<int(IO::File&)>& write);

private:
    static int NameLength(const IO::Name& name) { return static_cast<int>(name.GetLength()) + 1; }
    int SideFolderTarget(const IO::Location& base, const IO::Name& name, IO::Location* target);
    int OpenTarget(const IO::Location& target, IO::File* out);

    int basePathLength = 0;
    int folderPathLength = 0;
    int specFileCount = 0;
    std::int16_t specFolderIndex = 0;
    bool inSpecFolder = false;
    char specFolderName[16] = {};
    // The folder files were last written to: files come grouped by folder.
    IO::Folder targetFolder;
};

// Whether an extracted file is text to convert for another platform: type "TEXT" is, "CRIT" is
// not, any other is when its extension is "txt" or "lis", without case.
bool IsConvertibleText(std::int32_t macType, const IO::Name& name);
// Hands an extracted text file to the host's converter when it came from another platform.
int ConvertExtractedText(IO::Location target, std::int32_t macType, KL::PlatformSign platform);

} // namespace LM
