#pragma once

#include "KLRoot/KLExport.hpp"

#include <cstdint>

namespace IO {

// Status codes of files, folders and file systems. They share one family, so a caller can tell a
// file layer failure from a stream failure (negative KL codes) at a glance.
inline constexpr int ToErrorCode(std::uint32_t code) {
    return static_cast<int>(code);
}

inline constexpr int EndOfFileError = ToErrorCode(0x81000100u);     // a read reached the end of the data
inline constexpr int NotFoundError = ToErrorCode(0x81010101u);      // no file or folder at the location
inline constexpr int AlreadyExistsError = ToErrorCode(0x81010102u); // something already has that name
inline constexpr int AccessDeniedError = ToErrorCode(0x81010103u);  // permissions refuse a file operation
inline constexpr int WrongKindError = ToErrorCode(0x81010104u);  // a file where a folder is wanted, or back
inline constexpr int OutOfRangeError = ToErrorCode(0x81010105u); // a position outside the data
inline constexpr int NotOpenError = ToErrorCode(0x81010106u);    // the file is not open in a fitting mode
inline constexpr int NotEmptyError = ToErrorCode(0x81010107u);   // a folder to delete still holds entries
inline constexpr int InvalidLocationError =
    ToErrorCode(0x81010108u);                                      // an empty or malformed location or name
inline constexpr int MediumError = ToErrorCode(0x81010109u);       // the device failed a transfer
inline constexpr int ReadOnlyError = ToErrorCode(0x8101010Au);     // the file system cannot be changed
inline constexpr int NameTooLongError = ToErrorCode(0x8101010Bu);  // the system refuses a path this long
inline constexpr int NotAvailableError = ToErrorCode(0x8101010Cu); // the file system is no longer mounted
inline constexpr int MountError = ToErrorCode(0x8101010Du);        // a mount is refused at that location
inline constexpr int LockedError = ToErrorCode(0x8101010Eu);       // another opening holds a conflicting lock
inline constexpr int ChangedError = ToErrorCode(0x8101010Fu);      // the file changed within one visit
inline constexpr int FolderAccessDeniedError = ToErrorCode(0x81010400u); // a folder of a walk cannot be read

// The status for an errno value of a failed system call.
LM_EXPORT int ErrnoToError(int error);

} // namespace IO
