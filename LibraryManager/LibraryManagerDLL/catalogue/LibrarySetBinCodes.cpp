// Compiled code of the catalogue's parts. Script threads read and store code while the owner's
// thread works, so every operation here holds the bin code lock for its whole length.
#include "bincode/QdlBinCodesContainer.hpp"
#include "catalogue/LibPartSet.hpp"
#include "catalogue/LibrarySet.hpp"
#include "hierarchy/AncestryHierarchy.hpp"
#include "hierarchy/AncestryInfo.hpp"

#include "LibraryManagerErrors.hpp"

namespace LM {

int LibrarySet::GetSymbolQdlBinCode(const LibPart* part, QDL_ScriptType type,
                                    KL::ConstSharedPtr<BinCode>* code) {
    if (libParts == nullptr || binCodes == nullptr || part == nullptr ||
        !QdlBinCodeIndexArray::IsScriptType(type))
        return LibPartFileError;
    KL::FastLockGuard guard(binCodeLock);
    // The common read: the index on the symbol, with no table lookup.
    int index = part->GetQdlBinCodeIndex(type);
    if (index != QdlBinCodeIndexArray::NoIndex && binCodes->IsValidBinCodeIndex(index)) {
        if (!binCodes->IsAncestryUpToDate(index))
            binCodes->CheckAncestryUpToDate(part);
        return binCodes->GetQdlBinCode(index, code, nullptr);
    }
    // The first read of a part in this run finds its indices in the store's tables.
    if (const QdlBinCodeIndexArray* indices =
            binCodes->SearchBinCodeIndex(part->GetOwnUnID(), part->GetLocation())) {
        index = indices->Get(type);
        const_cast<LibPart*>(part)->SetQdlBinCodeIndex(indices);
        binCodes->CheckAncestryUpToDate(part);
    }
    return binCodes->GetQdlBinCode(index, code, nullptr);
}

int LibrarySet::SetSymbolQdlBinCode(const LibPart* part, QDL_ScriptType type,
                                    const KL::ConstSharedPtr<BinCode>& code) {
    if (libParts == nullptr || binCodes == nullptr || part == nullptr ||
        !QdlBinCodeIndexArray::IsScriptType(type))
        return LibPartFileError;
    KL::FastLockGuard guard(binCodeLock);
    // The chain the code is compiled against, without the template mark: that is no part of it.
    GSHandle chain = nullptr;
    if (const Paths::TreeEntry* node = part->GetAncestryId()) {
        AncestryInfo info;
        hierarchy->GetAncestryInfo(node, &info);
        chain = info.GetAncestrySection();
    }
    const KL::ConstSharedPtr<AncestryHandleWrapper> ancestry(new AncestryHandleWrapper(chain));
    const int index = part->GetQdlBinCodeIndex(type);
    if (index != QdlBinCodeIndexArray::NoIndex && binCodes->IsValidBinCodeIndex(index)) {
        binCodes->SetQdlBinCode(index, code, ancestry);
        return 0;
    }
    const int stored =
        binCodes->StoreQdlBinCode(part->GetOwnUnID(), part->GetLocation(), type, code, ancestry);
    const_cast<LibPart*>(part)->SetQdlBinCodeIndex(type, stored);
    return 0;
}

void LibrarySet::DeleteAncestryUpToDate(const LibPart* part) {
    if (binCodes == nullptr)
        return;
    KL::FastLockGuard guard(binCodeLock);
    binCodes->DeleteAncestryUpToDate(part);
}

// Indices on symbols point into the old items; they are dropped with them so that no part reads
// another part's code.
template <typename Change>
int LibrarySet::ChangeAllQdlBinCodes(Change change) {
    if (binCodes == nullptr)
        return LibPartFileError;
    KL::FastLockGuard guard(binCodeLock);
    const int result = change(*binCodes);
    for (int i = 0; i < GetLibPartNumber(); ++i)
        libParts->GetLibPart(static_cast<std::size_t>(i)).ClearQdlBinCodeIndex();
    return result;
}

int LibrarySet::ClearAllQdlBinCodes() {
    return ChangeAllQdlBinCodes([](QdlBinCodesContainer& store) { return store.ClearAllQdlBinCodes(); });
}

int LibrarySet::ReloadQdlBinCodes() {
    return ChangeAllQdlBinCodes([](QdlBinCodesContainer& store) { return store.ReloadQdlBinCodes(); });
}

} // namespace LM
