#include "bincode/QdlBinCodesContainer.hpp"

#include "catalogue/LibPart.hpp"
#include "hierarchy/AncestryHierarchy.hpp"
#include "hierarchy/AncestryInfo.hpp"

#include "InputOutput/File.hpp"
#include "KLRoot/Exceptions.hpp"
#include "KLRoot/FingerPrint.hpp"
#include "KLRoot/MemoryChannel.hpp"
#include "LibraryManagerErrors.hpp"

#include <limits>
#include <vector>

namespace LM {

namespace {

std::int32_t HandleSize(GSHandle handle) {
    return static_cast<std::int32_t>(BMGetHandleSize(handle));
}

// Reads in pieces so that a large part file does not need a buffer of its own size.
bool DigestFile(const IO::Location& location, KL::FingerPrint* digest) {
    IO::File file(location);
    if (file.Open(IO::File::ReadMode) != 0)
        return false;
    KL::FingerPrintGenerator generator;
    std::vector<char> buffer(64 * 1024);
    std::uint64_t count = 0;
    do {
        if (file.ReadUpTo(buffer.data(), buffer.size(), &count) != 0)
            return false;
        generator.Add(buffer.data(), count);
    } while (count == buffer.size());
    *digest = generator.Finish();
    return true;
}

} // namespace

QdlBinCodesContainer::QdlBinCodesContainer(int memoryLimit, int fileLimit)
    : memoryLimit(memoryLimit), fileLimit(fileLimit) {
    items.PushNew();
}

QdlBinCodesContainer::QdlBinCodesContainer(const IO::Location& folder, int memoryLimit, int fileLimit)
    : memoryLimit(memoryLimit), fileLimit(fileLimit), folder(folder) {
    items.PushNew();
    if (!folder.IsEmpty() && LoadBinCodesContainer(nullptr, nullptr) == 0 && CheckAndFixMemoryUsage() == 0)
        fileBacked = 1;
}

QdlBinCodesContainer::~QdlBinCodesContainer() {
    if (!folder.IsEmpty())
        SaveBinCodesContainer(false);
    ClearAllQdlBinCodes();
}

QDL_ScriptType QdlBinCodesContainer::GetScriptType(int index) const {
    return IsValidBinCodeIndex(index) ? items[static_cast<std::size_t>(index)].scriptType : QDL_ScriptType(0);
}

int QdlBinCodesContainer::GetUsedCount(int index) const {
    return IsValidBinCodeIndex(index) ? items[static_cast<std::size_t>(index)].usedCount : 0;
}

int QdlBinCodesContainer::GetLastUsed(int index) const {
    return IsValidBinCodeIndex(index) ? items[static_cast<std::size_t>(index)].lastUsed : 0;
}

// The count comes from the cache file, which may hold any value; it stops at the largest.
void QdlBinCodesContainer::Touch(QdlBinCodeItem& item) const {
    if (item.usedCount < std::numeric_limits<std::int32_t>::max())
        ++item.usedCount;
    item.lastUsed = static_cast<std::int32_t>(TIGetTime());
}

int QdlBinCodesContainer::GetQdlBinCode(int index, KL::ConstSharedPtr<BinCode>* code,
                                        KL::ConstSharedPtr<AncestryHandleWrapper>* ancestry) {
    if (code == nullptr && ancestry == nullptr)
        return LibPartFileError;
    if (code != nullptr)
        code->Reset();
    if (ancestry != nullptr)
        ancestry->Reset();
    if (!IsValidBinCodeIndex(index))
        return LibPartFileError;
    QdlBinCodeItem& item = items[static_cast<std::size_t>(index)];
    // Reads made for checks count as uses too.
    Touch(item);
    if (const int err = ReadItemData(item, code != nullptr); err != KL::NoError)
        return err;
    if (code != nullptr)
        *code = item.code;
    if (ancestry != nullptr)
        *ancestry = item.ancestry;
    // The outputs keep their objects alive if the item gives them up here.
    return CheckAndFixMemoryUsage();
}

// Only what is in memory counts against used memory; evicted data was subtracted when it went.
void QdlBinCodesContainer::ReleaseData(QdlBinCodeItem& item) {
    if (item.code != nullptr)
        usedMemory -= item.codeSize;
    if (item.ancestry != nullptr)
        usedMemory -= item.ancestrySize;
    item.code.Reset();
    item.ancestry.Reset();
    item.codeSize = item.ancestrySize = 0;
}

int QdlBinCodesContainer::SetQdlBinCode(int index, const KL::ConstSharedPtr<BinCode>& code,
                                        const KL::ConstSharedPtr<AncestryHandleWrapper>& ancestry) {
    if ((code == nullptr || code->GetHandle() == nullptr) && ancestry == nullptr)
        return LibPartFileError;
    if (!IsValidBinCodeIndex(index))
        return LibPartFileError;
    QdlBinCodeItem& item = items[static_cast<std::size_t>(index)];
    ReleaseData(item);
    // The new data lies nowhere in the file.
    item.codeOffset = item.ancestryOffset = 0;
    item.usedCount = 1;
    item.lastUsed = static_cast<std::int32_t>(TIGetTime());
    if (code != nullptr) {
        item.code = code;
        item.codeSize = HandleSize(code->GetHandle());
        usedMemory += item.codeSize;
    }
    if (ancestry != nullptr) {
        item.ancestry = ancestry;
        item.ancestrySize = HandleSize(ancestry->GetHandle());
        usedMemory += item.ancestrySize;
    }
    item.ancestryUpToDate = true;
    return CheckAndFixMemoryUsage();
}

int QdlBinCodesContainer::StoreQdlBinCode(const KL::UnID& id, const IO::Location& location,
                                          QDL_ScriptType type, const KL::ConstSharedPtr<BinCode>& code,
                                          const KL::ConstSharedPtr<AncestryHandleWrapper>& ancestry) {
    QdlBinCodeItem& item = items.PushNew();
    item.id = id.IsNull() ? CalculateMD5Hash(location) : id;
    item.location = location;
    item.scriptType = type;
    const int index = static_cast<int>(items.GetSize() - 1);
    AddBinCodeToIndex(index);
    SetQdlBinCode(index, code, ancestry);
    return index;
}

void QdlBinCodesContainer::AddBinCodeToIndex(int index) {
    if (!IsValidBinCodeIndex(index))
        return;
    const QdlBinCodeItem& item = items[static_cast<std::size_t>(index)];
    if (!QdlBinCodeIndexArray::IsScriptType(item.scriptType))
        return;
    QdlBinCodeIndexArray& indices = item.id.IsNull() ? byLocation[item.location] : byId[item.id];
    indices.Set(item.scriptType, index);
}

// Code of a part without an id is filed under the digest of its file but searched by location, so
// it is found only through the indices on its symbol, for the rest of the run. That is deliberate.
const QdlBinCodeIndexArray* QdlBinCodesContainer::SearchBinCodeIndex(const KL::UnID& id,
                                                                     const IO::Location& location) const {
    return id.IsNull() ? byLocation.GetPtr(location) : byId.GetPtr(id);
}

unsigned QdlBinCodesContainer::GetLeastRecentLeastUsed(bool inMemoryOnly) const {
    unsigned candidate = 0;
    for (unsigned i = 1; i < items.GetSize(); ++i) {
        const QdlBinCodeItem& item = items[i];
        if (inMemoryOnly && item.code == nullptr && item.ancestry == nullptr)
            continue;
        if (item.codeSize == 0 && item.ancestrySize == 0)
            continue;
        if (candidate == 0)
            candidate = i;
        const QdlBinCodeItem& best = items[candidate];
        if (item.lastUsed < best.lastUsed ||
            (item.lastUsed == best.lastUsed && item.usedCount < best.usedCount))
            candidate = i;
    }
    return candidate;
}

// Eviction keeps sizes and offsets, so that a file-backed store can read the data back.
int QdlBinCodesContainer::CheckAndFixMemoryUsage() {
    if (memoryLimit == 0 || saving)
        return 0;
    while (usedMemory > memoryLimit) {
        const unsigned candidate = GetLeastRecentLeastUsed(true);
        if (candidate == 0)
            break;
        QdlBinCodeItem& item = items[candidate];
        if (item.code != nullptr) {
            usedMemory -= item.codeSize;
            item.code.Reset();
        }
        if (item.ancestry != nullptr) {
            usedMemory -= item.ancestrySize;
            item.ancestry.Reset();
        }
    }
    return 0;
}

template <typename Visit>
void QdlBinCodesContainer::ForEachIndexOf(const LibPart* part, Visit visit) const {
    for (int type = 1; type <= 8; ++type) {
        const int index = part->GetQdlBinCodeIndex(static_cast<QDL_ScriptType>(type));
        if (index != QdlBinCodeIndexArray::NoIndex && IsValidBinCodeIndex(index))
            visit(index);
    }
}

void QdlBinCodesContainer::CheckAncestryUpToDate(const LibPart* part) {
    if (part == nullptr)
        return;
    if (part->GetOwnUnID().IsNull()) {
        // Without an id the file's digest is the identity: another file at the place is other code.
        const KL::UnID digest = CalculateMD5Hash(part->GetLocation());
        ForEachIndexOf(part, [&](int index) {
            if (items[static_cast<std::size_t>(index)].id != digest)
                items[static_cast<std::size_t>(index)].Reset();
        });
        return;
    }
    const Paths::TreeEntry* node = part->GetAncestryId();
    if (node == nullptr || hierarchy == nullptr)
        return;
    AncestryInfo current;
    hierarchy->GetAncestryInfo(node, &current);
    ForEachIndexOf(part, [&](int index) {
        KL::ConstSharedPtr<AncestryHandleWrapper> stored;
        GetQdlBinCode(index, nullptr, &stored);
        QdlBinCodeItem& item = items[static_cast<std::size_t>(index)];
        if (stored == nullptr || stored->GetHandle() == nullptr) {
            item.Reset();
            return;
        }
        AncestryInfo compiledAgainst;
        GSHandle handle = stored->GetHandle();
        bool same = false;
        try {
            same = compiledAgainst.SetAncestrySection(&handle) == 0 && compiledAgainst == current;
        } catch (const KL::IllegalArgumentException&) {
            same = false;
        }
        if (same)
            item.ancestryUpToDate = true;
        else
            item.Reset();
    });
}

void QdlBinCodesContainer::DeleteAncestryUpToDate(const LibPart* part) {
    if (part != nullptr)
        ForEachIndexOf(part,
                       [&](int index) { items[static_cast<std::size_t>(index)].ancestryUpToDate = false; });
}

bool QdlBinCodesContainer::IsAncestryUpToDate(int index) const {
    return IsValidBinCodeIndex(index) && items[static_cast<std::size_t>(index)].ancestryUpToDate;
}

KL::UnID QdlBinCodesContainer::CalculateMD5Hash(const IO::Location& location) {
    KL::FingerPrint digest;
    if (!DigestFile(location, &digest))
        return KL::UnID();
    KL::MemoryIChannel channel(digest.GetBytes().data(), KL::FingerPrint::Size, KL::LittleEndianSign);
    KL::Guid revision;
    revision.Read(channel);
    return KL::UnID(KL::NULLGuid, revision);
}

int QdlBinCodesContainer::ClearAllQdlBinCodes() {
    items.Clear();
    items.PushNew();
    byLocation.Clear();
    byId.Clear();
    usedMemory = 0;
    return 0;
}

} // namespace LM
