#pragma once

#include "KLRoot/KLExport.hpp"
#include "KLRoot/MemoryManager.hpp"
#include "KLRoot/SharedObject.hpp"

// Compiled code of one script, as the engine stores it: a shared object owning one handle.
class LM_EXPORT BinCode : public KL::SharedObject {
public:
    // Takes over the handle, which may be null.
    explicit BinCode(GSHandle code) : code(code) {}
    ~BinCode() override;

    GSHandle GetHandle() const { return code.Get(); }
    std::int64_t GetSize() const { return code.GetSize(); }

private:
    KL::ScopedHandle code;
};
