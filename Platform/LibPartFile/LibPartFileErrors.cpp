#include "LibPartFile/LibPartFileErrors.hpp"

#include "InputOutput/IOErrors.hpp"
#include "KLRoot/ErrorCodes.hpp"

namespace LPF {

const char* DescribeError(int error) {
    switch (error) {
    case KL::NoError:
        return "no error";
    case SectionNotFoundError:
        return "the part has no such section";
    case NotAPartFileError:
        return "not a library part file (wrong signature)";
    case UnsupportedVersionError:
        return "part file of a format version this build does not read";
    case CorruptHeaderError:
        return "damaged part file: the header does not fit the file";
    case CorruptDirectoryError:
        return "damaged part file: the section directory is out of bounds, overlapping or repeated";
    case CorruptSectionError:
        return "damaged part file: a section breaks its own layout";
    case FileChangedError:
        return "the part file changed on disk while it was being read";
    case NoFileError:
        return "the part has no file to read from";
    case IO::NotFoundError:
        return "no such file or folder";
    case IO::AccessDeniedError:
        return "permission denied";
    case IO::FolderAccessDeniedError:
        return "the folder cannot be read";
    case IO::WrongKindError:
        return "a folder where a file is wanted, or the reverse";
    case IO::EndOfFileError:
        return "unexpected end of file";
    case IO::MediumError:
        return "the device failed a transfer";
    case IO::NameTooLongError:
        return "path too long";
    case IO::ReadOnlyError:
        return "the file system is read-only";
    case KL::ErrEndOfData:
        return "unexpected end of data";
    case KL::ErrParam:
        return "invalid argument";
    case KL::ErrNotEnoughMemory:
        return "not enough memory";
    case KL::ErrStreamFormat:
        return "data do not have the form they claim";
    case KL::ErrNotSupported:
        return "not supported";
    case KL::ErrXMLMissing:
        return "a required XML element is missing";
    case KL::ErrXMLFormat:
        return "an XML value does not have the expected form";
    default:
        return "unexpected failure";
    }
}

} // namespace LPF
