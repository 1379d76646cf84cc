#pragma once

// The rules every extraction writes by, whichever container it reads: a folder whose path would
// reach 248 characters is not made, and a file whose path would reach 260 goes to a numbered side
// folder of the destination ("0000-1", "0000-2", ..., at most 499 files each), where equal names
// are told apart as "a-2.txt", "a-3.txt". Lengths count characters of names, each with its
// separator.
//
// Targets are always made anew: whatever stood at a name is removed first, since writing through
// it could reach outside the destination (a link) or change a file elsewhere (a second hard link).
#include "InputOutput/Folder.hpp"
#include "InputOutput/Location.hpp"
#include "InputOutput/Name.hpp"
#include "KLRoot/Channel.hpp"

#include <cstdint>

namespace LM {

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
    // Where the file `name` goes: `regular`, or, when its path is too long, an unused name in a
    // side folder of `base`. A side folder that could not be made gives its status, and the
    // target is named all the same.
    int FileTarget(const IO::Location& base, const IO::Location& regular, const IO::Name& name,
                   IO::Location* target);
    // Makes an empty file at `target`, in place of whatever stood there.
    int MakeTarget(const IO::Location& target);
    // Removes a target whose content could not be written whole.
    void DropTarget(const IO::Location& target);

private:
    static int NameLength(const IO::Name& name) { return static_cast<int>(name.GetLength()) + 1; }
    int SideFolderTarget(const IO::Location& base, const IO::Name& name, IO::Location* target);

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
