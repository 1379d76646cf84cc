// The type tree handed to a host's visitor, printed, and streamed.
#include "hierarchy/AncestryHierarchy.hpp"

#include "PathsOld.hpp"
#include "catalogue/LibrarySet.hpp"
#include "lists/LibItemIterator.hpp"
#include "services/LibraryManagerGlobals.hpp"

#include "KLRoot/Frame.hpp"
#include "KLRoot/OChannel.hpp"

#include <algorithm>

namespace LM {

int LibrarySet::ExportTypeHierarchy(TypeHierarchyExporter* exporter) const {
    return hierarchy != nullptr ? hierarchy->ExportTypeHierarchy(exporter) : 0;
}

bool AncestryHierarchy::CmpFunct(const NodeRecord& a, const NodeRecord& b) {
    return a.compare->CmpFunct(a.node, b.node) == -1;
}

Paths::TreeEntry* AncestryHierarchy::FindNode(TreeEntry* from, const KL::UnID& id) const {
    EntryQueue children;
    GetChildren(from, &children);
    while (!children.IsEmpty()) {
        TreeEntry* child = children.Pop();
        if (child->GetId() == id)
            return child;
        if (TreeEntry* found = FindNode(child, id))
            return found;
    }
    return nullptr;
}

int AncestryHierarchy::ExportTypeHierarchy(TypeHierarchyExporter* exporter) const {
    const KL::UnID start = exporter->GetStartingNodeUnID();
    TreeEntry* node =
        start.IsNull() ? GetRoot() : (GetRoot() != nullptr ? FindNode(GetRoot(), start) : nullptr);
    const int context = exporter->GetRootContext();
    const bool recursive = exporter->ShouldExportRecursively();
    const TypeHierarchyExporter::ICompare* compare = exporter->GetCompare();
    if (node == nullptr)
        return 0;
    return ExportTypeSubHierarchy(node, context, recursive, exporter, compare);
}

void AncestryHierarchy::CollectRecords(TreeEntry* child, const TypeHierarchyExporter::ICompare* compare,
                                       std::vector<NodeRecord>* records) const {
    const KL::UnID& id = child->GetId();
    if (id.IsNull()) {
        // The collection of parts without an own id: a record for each of them.
        for (LibItemIterator item(*librarySet, false); item != nullptr; ++item) {
            const LibPart* part = item.Get();
            if (part->IsSymbol() && part->GetGeneralFileType() == GetSymbolFileGroup() &&
                part->GetAncestryId() == child) {
                NodeRecord record{{}, child, compare};
                MakeExporterNode(id, part, &record.node);
                records->push_back(std::move(record));
            }
        }
        return;
    }
    const LibPart* part = librarySet->SearchSymbolByUnID(id, nullptr);
    if (part == nullptr)
        part = librarySet->SearchDummySymbol(id, nullptr, nullptr);
    NodeRecord record{{}, child, compare};
    MakeExporterNode(id, part, &record.node);
    records->push_back(std::move(record));
}

int AncestryHierarchy::ExportTypeSubHierarchy(TreeEntry* node, int context, bool recursive,
                                              TypeHierarchyExporter* exporter,
                                              const TypeHierarchyExporter::ICompare* compare) const {
    EntryQueue children;
    GetChildren(node, &children);
    std::vector<NodeRecord> records;
    while (!children.IsEmpty())
        CollectRecords(children.Pop(), compare, &records);
    if (compare != nullptr)
        std::sort(records.begin(), records.end(), CmpFunct);
    for (const NodeRecord& record : records) {
        int childContext = 0;
        const int answer = exporter->ExportNode(context, record.node, &childContext);
        if (answer == TypeHierarchyExporter::Stop)
            return ExportStopped;
        if (recursive && answer != TypeHierarchyExporter::SkipChildren) {
            if (const int err =
                    ExportTypeSubHierarchy(record.entry, childContext, recursive, exporter, compare))
                return err;
        }
    }
    return 0;
}

int AncestryHierarchy::MakeExporterNode(const KL::UnID& id, const LibPart* part,
                                        TypeHierarchyExporter::Node* node) const {
    KL::UniString name;
    if (part != nullptr) {
        name = part->GetDocumentName();
        node->isTemplate = part->IsSymbol() && part->IsTemplate();
        node->isPlaceable = part->IsSymbol() && part->IsPlaceable();
    } else {
        node->isTemplate = true;
        node->isPlaceable = false;
    }
    node->libPartId = LibPartId(id, name);
    return 0;
}

void AncestryHierarchy::PrintTypeHierarchy(KL::OChannel& channel) const {
    channel << "LibPart type hierarchy in the Library Manager:\n";
    Print(&channel, SubstOwnUnIdToName, librarySet);
}

void AncestryHierarchy::SubstOwnUnIdToName(void* userData, KL::OChannel& channel, const KL::UnID& id) {
    if (id.IsNull()) {
        channel << "<Old Libparts>: " << IdText(id);
        return;
    }
    if (const auto* set = static_cast<const LibrarySet*>(userData)) {
        for (LibItemIterator item(*set, false); item != nullptr; ++item) {
            if (item.Get()->IsSymbol() && item.Get()->GetOwnUnID() == id) {
                channel << item.Get()->GetDocumentName().ToUTF8() << ":" << IdText(id);
                return;
            }
        }
    }
    channel << "???: " << IdText(id);
}

int AncestryHierarchy::Write(KL::OChannel& channel) const {
    KL::OutputFrame frame(channel, classInfo);
    const PathsOld empty;
    int err = frame.GetStatus();
    if (err == 0)
        err = frame.GetVersion().major == 2 ? empty.Write(channel) : empty.WriteOld(channel);
    const int closed = frame.Close();
    return err != 0 ? err : closed;
}

int AncestryHierarchy::Read(KL::IChannel& channel) {
    KL::InputFrame frame(channel, classInfo);
    if (const int err = frame.GetStatus(); err != 0)
        return err;
    PathsOld dropped;
    const int err =
        frame.GetVersion() <= KL::ClassVersion{2, 0} ? dropped.ReadOld(channel) : dropped.Read(channel);
    frame.Close();
    return err;
}

} // namespace LM
