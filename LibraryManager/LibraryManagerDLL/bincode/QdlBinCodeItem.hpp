#pragma once

#include "InputOutput/Location.hpp"
#include "KLRoot/Guid.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/MemoryManager.hpp"
#include "KLRoot/SharedObject.hpp"
#include "KLRoot/Time.hpp"
#include "QDL/BinCode.hpp"
#include "QDL/ScriptTypes.hpp"

#include <cstdint>

namespace LM {

// Owns one handle with an ancestry section: the chain a part had when its code was compiled.
// The handle may be null, for a part outside the type tree.
class LM_EXPORT AncestryHandleWrapper : public KL::SharedObject {
public:
    explicit AncestryHandleWrapper(GSHandle handle) : handle(handle) {}
    ~AncestryHandleWrapper() override;
    AncestryHandleWrapper(const AncestryHandleWrapper&) = delete;
    AncestryHandleWrapper& operator=(const AncestryHandleWrapper&) = delete;

    GSHandle GetHandle() const { return handle; }

private:
    GSHandle handle;
};

// The compiled code of one script type of one part, with the ancestry it was compiled against. A
// size above zero with a null pointer means the data lies in the cache file.
struct LM_EXPORT QdlBinCodeItem {
    KL::UnID id;
    IO::Location location;
    QDL_ScriptType scriptType = static_cast<QDL_ScriptType>(0);
    std::int32_t codeSize = 0;
    std::int32_t ancestrySize = 0;
    std::int32_t codeOffset = 0;
    std::int32_t ancestryOffset = 0;
    // Not kept in the file: each run checks a part's ancestry at its first read.
    bool ancestryUpToDate = false;
    std::int32_t usedCount = 0;
    std::int32_t lastUsed = 0;
    KL::ConstSharedPtr<BinCode> code;
    KL::ConstSharedPtr<AncestryHandleWrapper> ancestry;

    // Forgets the data but keeps the identity, so the next store reuses this index.
    void Reset();
};

} // namespace LM
