#pragma once

// What a database fault becomes for the callers of database containers. Both carry the general
// failure code to the foundation's handlers and keep the database's own code for whoever asks.
#include "KLRoot/Exceptions.hpp"
#include "KLRoot/KLExport.hpp"

#include <string>

namespace LM {

class LM_EXPORT DatabaseLibraryContainerException : public KL::KLException {
public:
    DatabaseLibraryContainerException(int errorCode, std::string message, const char* sourceFile,
                                      int sourceLine);
    ~DatabaseLibraryContainerException() override;

    // The database's code, where the base holds the general failure.
    int GetErrorCode() const noexcept { return errorCode; }
    virtual DatabaseLibraryContainerException* Clone() const;

private:
    int errorCode;
};

// A database that could not be opened or made.
class LM_EXPORT DatabaseLibraryContainerOpeningFailedException : public KL::KLException {
public:
    DatabaseLibraryContainerOpeningFailedException(int errorCode, std::string message, const char* sourceFile,
                                                   int sourceLine);
    ~DatabaseLibraryContainerOpeningFailedException() override;

    int GetErrorCode() const noexcept { return errorCode; }
    virtual DatabaseLibraryContainerOpeningFailedException* Clone() const;

private:
    int errorCode;
};

} // namespace LM
