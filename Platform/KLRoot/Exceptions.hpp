#pragma once

#include "KLRoot/KLExport.hpp"

#include <exception>
#include <string>

namespace KL {

// Base of every exception the foundation and the component raise.
class LM_EXPORT KLException : public std::exception {
public:
    KLException(int errorCode, std::string message, const char* sourceFile = "", int sourceLine = 0);
    ~KLException() override;

    int GetErrorCode() const noexcept { return errorCode; }
    const std::string& GetMessage() const noexcept { return message; }
    const char* GetSourceFile() const noexcept { return sourceFile; }
    int GetSourceLine() const noexcept { return sourceLine; }
    const char* what() const noexcept override { return message.c_str(); }

private:
    int errorCode;
    std::string message;
    const char* sourceFile; // a string literal such as __FILE__
    int sourceLine;
};

class LM_EXPORT OutOfMemoryException : public KLException {
public:
    explicit OutOfMemoryException(std::string message = "Out of memory.", const char* sourceFile = "",
                                  int sourceLine = 0);
    ~OutOfMemoryException() override;
};

class LM_EXPORT IllegalArgumentException : public KLException {
public:
    explicit IllegalArgumentException(std::string message, const char* sourceFile = "", int sourceLine = 0);
    ~IllegalArgumentException() override;
};

class LM_EXPORT SynchronizationException : public KLException {
public:
    explicit SynchronizationException(std::string message, const char* sourceFile = "", int sourceLine = 0);
    ~SynchronizationException() override;
};

// One class per failure code of the memory manager (handles). A failed allocation
// (-108) raises OutOfMemoryException.
#define LM_DECLARE_MEMORY_EXCEPTION(Name)                                                                    \
    class LM_EXPORT Name : public KLException {                                                              \
    public:                                                                                                  \
        explicit Name(std::string message, const char* sourceFile = "", int sourceLine = 0);                 \
        ~Name() override;                                                                                    \
    };

LM_DECLARE_MEMORY_EXCEPTION(BMEmptyHandleException)     // -7002
LM_DECLARE_MEMORY_EXCEPTION(BMNullPointerException)     // -7001
LM_DECLARE_MEMORY_EXCEPTION(BMMemoryLockedException)    // -117
LM_DECLARE_MEMORY_EXCEPTION(BMNilHandleException)       // -109
LM_DECLARE_MEMORY_EXCEPTION(BMIllegalArgumentException) // -50

#undef LM_DECLARE_MEMORY_EXCEPTION

// Any other nonzero code of the memory manager; it keeps the code it was raised for.
class LM_EXPORT BMInternalErrorException : public KLException {
public:
    BMInternalErrorException(int errorCode, std::string message, const char* sourceFile = "",
                             int sourceLine = 0);
    ~BMInternalErrorException() override;
};

} // namespace KL
