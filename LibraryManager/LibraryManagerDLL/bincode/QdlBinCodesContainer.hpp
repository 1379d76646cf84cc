#pragma once

#include "bincode/QdlBinCodeIndexArray.hpp"
#include "bincode/QdlBinCodeItem.hpp"

#include "InputOutput/Location.hpp"
#include "KLRoot/HashTable.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/PagedArray.hpp"

namespace LM {

class AncestryHierarchy;
class LibPart;

// The store of compiled scripts, one item per part and script type, with the ancestry each was
// compiled against: code whose ancestry differs from the part's present one is stale. It lives in
// memory under a limit. The container has no lock: the catalogue's bin code lock guards every
// call that a script thread can make. Its folder also holds the library cache; the cache file of
// compiled code itself comes with the store's persistence.
class LM_EXPORT QdlBinCodesContainer {
public:
    // A limit of 0 lets the store grow; the host keeps its compiled code whole.
    static constexpr int NoLimit = 0;

    QdlBinCodesContainer(int memoryLimit, int fileLimit);
    QdlBinCodesContainer(const IO::Location& folder, int memoryLimit, int fileLimit);
    ~QdlBinCodesContainer();
    QdlBinCodesContainer(const QdlBinCodesContainer&) = delete;
    QdlBinCodesContainer& operator=(const QdlBinCodesContainer&) = delete;

    void SetAncestryHierarchy(const AncestryHierarchy* newHierarchy) { hierarchy = newHierarchy; }
    const AncestryHierarchy* GetAncestryHierarchy() const { return hierarchy; }
    // Empty for a cache without a folder.
    IO::Location GetBinCodeFolder() const { return folder; }
    int GetMemoryLimit() const { return memoryLimit; }
    int GetFileLimit() const { return fileLimit; }
    int GetUsedMemory() const { return usedMemory; }
    // Items, the reserved item at 0 included.
    std::size_t GetItemCount() const { return items.GetSize(); }

    bool IsValidBinCodeIndex(int index) const { return static_cast<unsigned>(index) < items.GetSize(); }
    QDL_ScriptType GetScriptType(int index) const;
    int GetUsedCount(int index) const;
    int GetLastUsed(int index) const;

    // Either output may be null, not both. Index 0 succeeds and gives nothing.
    int GetQdlBinCode(int index, KL::ConstSharedPtr<BinCode>* code,
                      KL::ConstSharedPtr<AncestryHandleWrapper>* ancestry);
    int SetQdlBinCode(int index, const KL::ConstSharedPtr<BinCode>& code,
                      const KL::ConstSharedPtr<AncestryHandleWrapper>& ancestry);
    // A new item; returns its index.
    int StoreQdlBinCode(const KL::UnID& id, const IO::Location& location, QDL_ScriptType type,
                        const KL::ConstSharedPtr<BinCode>& code,
                        const KL::ConstSharedPtr<AncestryHandleWrapper>& ancestry);
    // The indices of a part: by id, or by location for an empty id; null if none.
    const QdlBinCodeIndexArray* SearchBinCodeIndex(const KL::UnID& id, const IO::Location& location) const;
    void AddBinCodeToIndex(int index);

    // The eviction candidate: least recently used, then least often, then lowest index; 0 for none.
    unsigned GetLeastRecentLeastUsed(bool inMemoryOnly) const;
    int CheckAndFixMemoryUsage();

    // Marks the part's items up to date, or resets those compiled against another ancestry.
    void CheckAncestryUpToDate(const LibPart* part);
    // Makes the next read of the part's code check its ancestry again.
    void DeleteAncestryUpToDate(const LibPart* part);
    bool IsAncestryUpToDate(int index) const;

    // The id under which code of a part without an own id is filed: the MD5 of its file as
    // revision guid; empty if the file cannot be read.
    static KL::UnID CalculateMD5Hash(const IO::Location& location);

    int ClearAllQdlBinCodes();
    int ReloadQdlBinCodes();

private:
    // Each valid index of the part's symbol.
    template <typename Visit>
    void ForEachIndexOf(const LibPart* part, Visit visit) const;
    void ReleaseData(QdlBinCodeItem& item);
    void Touch(QdlBinCodeItem& item) const;

    KL::PagedArray<QdlBinCodeItem, 8> items;
    KL::HashTable<IO::Location, QdlBinCodeIndexArray> byLocation;
    KL::HashTable<KL::UnID, QdlBinCodeIndexArray> byId;
    int usedMemory = 0;
    IO::Location folder;
    int memoryLimit;
    int fileLimit;
    const AncestryHierarchy* hierarchy = nullptr;
};

} // namespace LM
