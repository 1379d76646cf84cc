// Two reports on the catalogue: chosen parts as XML, and a text dump for diagnosis.
#include "catalogue/LibrarySet.hpp"

#include "catalogue/LibPartSet.hpp"
#include "hierarchy/AncestryHierarchy.hpp"
#include "hierarchy/AncestryInfo.hpp"
#include "lists/LibItemIterator.hpp"
#include "lists/LibraryList.hpp"
#include "services/LibraryManagerGlobals.hpp"

#include "KLRoot/OChannel.hpp"
#include "KLRoot/XMLOChannel.hpp"

#include <algorithm>

namespace LM {

namespace {

bool IsWanted(const LibrarySet& set, const LibPart* part, const KL::UnID& type,
              const LibrarySet::WriteToXMLParameters& parameters) {
    if (part == nullptr || !part->IsValid())
        return false;
    if (parameters.symbolsOnly && part->GetGeneralFileType() != GetSymbolFileGroup())
        return false;
    if (parameters.placeableOnly && (!part->IsSymbol() || !part->IsPlaceable()))
        return false;
    if (parameters.includeSubTypes) {
        if (!set.IsSymbolTypeOf(part, type))
            return false;
    } else {
        AncestryInfo chain;
        set.GetSymbolAncestryInfo(part, &chain);
        if (chain.GetAncestorsCount() == 0 || chain.GetParentID().mainGuid != type.mainGuid)
            return false;
    }
    return std::none_of(
        parameters.excludedFolders.begin(), parameters.excludedFolders.end(),
        [part](const IO::Location& folder) { return folder.IsAncestorOf(part->GetLocation()); });
}

} // namespace

void LibrarySet::WriteToXML(KL::XMLOChannel& channel, unsigned detail,
                            const WriteToXMLParameters& parameters) const {
    channel.StartTag("LibParts");
    const LibItemOrderByName byName;
    for (const KL::UnID& type : parameters.typeIds) {
        for (LibItemIterator item(*this, byName, LibItemIterator::AllItems); item != nullptr; ++item) {
            if (IsWanted(*this, item.Get(), type, parameters))
                item.Get()->WriteToXML(channel, detail);
        }
    }
    channel.EndTag("LibParts");
}

void LibrarySet::PrintTypeHierarchy(KL::OChannel& channel) const {
    if (libParts == nullptr)
        return;
    if (hierarchy != nullptr)
        hierarchy->PrintTypeHierarchy(channel);
    channel << "LibraryManager enumeration status : " << isEnumerated << "\n";
    channel << "ActiveLibCount: " << activeLibraries->GetLibraryNum(AllLibraryModes) << "\n";
    for (int i = 0; i < activeLibraries->GetLibraryNum(AllLibraryModes); ++i)
        channel << (*activeLibraries)[static_cast<std::size_t>(i)].GetName().ToUTF8() << "\n";
    channel << "symbolCount: " << GetLibPartNumber() << "\n";
    for (int i = 0; i < GetLibPartNumber(); ++i) {
        const LibPart* part = GetLibPartByIndex(i);
        if (part == nullptr)
            continue;
        channel << i << " : " << part->GetDocumentName().ToUTF8() << " (" << part->GetLocation().ToString()
                << "), isValid: " << (part->GetState() == LibPartStateValid)
                << ", modTime: " << static_cast<int>(part->GetFileModTime()) << "\n";
    }
}

} // namespace LM
