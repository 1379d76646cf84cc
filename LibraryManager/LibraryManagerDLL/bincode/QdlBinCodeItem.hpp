#pragma once

// One item of the compiled script store: the code of one script type of one part, with the
// ancestry it was compiled against, its use statistics and where its data lies in the cache
// file. The table of the cache file is a sequence of these in their stream form; the pointers
// and the up-to-date mark are never written.
#include "InputOutput/Location.hpp"
#include "KLRoot/Guid.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/MemoryManager.hpp"
#include "KLRoot/Object.hpp"
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

// A size above zero with a null pointer means the data lies in the cache file, at its offset. An
// offset of 0 never points at data (the file's header stands there): such data was made in this
// run and is gone once evicted.
class LM_EXPORT QdlBinCodeItem : public KL::Object {
public:
    QdlBinCodeItem() = default;
    QdlBinCodeItem(const QdlBinCodeItem&) = default;
    QdlBinCodeItem& operator=(const QdlBinCodeItem&) = default;
    ~QdlBinCodeItem() override;

    // The table entry: guids, location, type, use count, last use, sizes and offsets.
    int Write(KL::OChannel& channel) const override;
    // Refuses negative sizes and offsets with KL::ErrStreamFormat; the pointers stay null.
    int Read(KL::IChannel& channel) override;

    // Forgets the data but keeps the identity, so the next store reuses this index.
    void Reset();

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
};

} // namespace LM
