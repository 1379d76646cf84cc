#include "KLRoot/Exceptions.hpp"

#include "KLRoot/ErrorCodes.hpp"

#include <utility>

namespace KL {

KLException::KLException(int code, std::string text, const char* file, int line)
    : errorCode(code), message(std::move(text)), sourceFile(file != nullptr ? file : ""), sourceLine(line) {}

KLException::~KLException() = default;

OutOfMemoryException::OutOfMemoryException(std::string text, const char* file, int line)
    : KLException(ErrNotEnoughMemory, std::move(text), file, line) {}
OutOfMemoryException::~OutOfMemoryException() = default;

IllegalArgumentException::IllegalArgumentException(std::string text, const char* file, int line)
    : KLException(ErrParam, std::move(text), file, line) {}
IllegalArgumentException::~IllegalArgumentException() = default;

SynchronizationException::SynchronizationException(std::string text, const char* file, int line)
    : KLException(ErrIO, std::move(text), file, line) {}
SynchronizationException::~SynchronizationException() = default;

#define LM_DEFINE_MEMORY_EXCEPTION(Name, code)                                                               \
    Name::Name(std::string text, const char* file, int line)                                                 \
        : KLException(code, std::move(text), file, line) {}                                                  \
    Name::~Name() = default;

LM_DEFINE_MEMORY_EXCEPTION(BMEmptyHandleException, ErrEmptyHandle)
LM_DEFINE_MEMORY_EXCEPTION(BMNullPointerException, ErrNullPointer)
LM_DEFINE_MEMORY_EXCEPTION(BMMemoryLockedException, ErrMemoryLocked)
LM_DEFINE_MEMORY_EXCEPTION(BMNilHandleException, ErrNilHandle)
LM_DEFINE_MEMORY_EXCEPTION(BMIllegalArgumentException, ErrParam)

#undef LM_DEFINE_MEMORY_EXCEPTION

BMInternalErrorException::BMInternalErrorException(int code, std::string text, const char* file, int line)
    : KLException(code, std::move(text), file, line) {}
BMInternalErrorException::~BMInternalErrorException() = default;

} // namespace KL
