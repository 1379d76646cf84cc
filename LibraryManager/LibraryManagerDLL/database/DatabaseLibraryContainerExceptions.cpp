#include "database/DatabaseLibraryContainerExceptions.hpp"

#include "KLRoot/ErrorCodes.hpp"

#include <utility>

namespace LM {

DatabaseLibraryContainerException::DatabaseLibraryContainerException(int errorCode, std::string message,
                                                                     const char* sourceFile, int sourceLine)
    : KL::KLException(KL::ErrStreamFormat, std::move(message), sourceFile, sourceLine), errorCode(errorCode) {
}

DatabaseLibraryContainerException::~DatabaseLibraryContainerException() = default;

DatabaseLibraryContainerException* DatabaseLibraryContainerException::Clone() const {
    return new DatabaseLibraryContainerException(*this);
}

DatabaseLibraryContainerOpeningFailedException::DatabaseLibraryContainerOpeningFailedException(
    int errorCode, std::string message, const char* sourceFile, int sourceLine)
    : KL::KLException(KL::ErrStreamFormat, std::move(message), sourceFile, sourceLine), errorCode(errorCode) {
}

DatabaseLibraryContainerOpeningFailedException::~DatabaseLibraryContainerOpeningFailedException() = default;

DatabaseLibraryContainerOpeningFailedException*
DatabaseLibraryContainerOpeningFailedException::Clone() const {
    return new DatabaseLibraryContainerOpeningFailedException(*this);
}

} // namespace LM
