#pragma once

#include "KLRoot/Array.hpp"
#include "KLRoot/ClassInfo.hpp"
#include "KLRoot/Guid.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/Object.hpp"
#include "KLRoot/Queue.hpp"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace KL {
class OChannel;
}

namespace LM {

// Raises the foundation's exception for a failure code of the memory manager; 0 raises nothing.
LM_EXPORT void ThrowMemoryManagerError(int code);

// A set of paths of ids kept as one tree with shared prefixes. Each node counts the paths that
// pass through or end at it, so a path ends at a node exactly when its count exceeds the sum of
// its children's counts, and a node whose count falls to 0 is removed. The root has the empty id
// and is no part of any path: a path of length n is n nodes below it.
class LM_EXPORT Paths : public KL::Object {
public:
    class TreeEntry;
    // Writes the name of `id` for Print.
    using NameFunction = void (*)(void* userData, KL::OChannel& channel, const KL::UnID& id);

    Paths();
    ~Paths() override;
    Paths(const Paths&) = delete;
    Paths& operator=(const Paths&) = delete;

    // Operations on a node raise KL::IllegalArgumentException for a null node.
    void AddPathReference(TreeEntry* node);
    std::uint32_t GetPathReferenceCount(const TreeEntry* node) const;
    bool IsNodeOnPath(const TreeEntry* node, const KL::UnID& id) const;
    // The id `stepsUp` nodes above `node`; the empty id past the root.
    void GetPathNodeFromBack(const TreeEntry* node, unsigned stepsUp, KL::UnID* id) const;
    void GetLastPathNode(const TreeEntry* node, KL::UnID* id) const;
    unsigned GetPathLength(const TreeEntry* node) const;
    // Fills `ids`, sized by GetPathLength, from the top of the path down to `node`.
    void GetPath(const TreeEntry* node, KL::UnID* ids) const;
    void GetPathNode(const TreeEntry* node, unsigned index, KL::UnID* id) const;

    // Each returns the path's end node, or null.
    TreeEntry* AddPath(const KL::UnID* ids, unsigned count);
    TreeEntry* AddPath(const KL::UnID* ids, unsigned count, const KL::UnID& last);
    // Adds the path through `node` one node longer; the path ending at `node` stays.
    TreeEntry* AppendPathNode(TreeEntry* node, const KL::UnID* id);
    TreeEntry* ReplacePath(TreeEntry* node, const KL::UnID* ids, unsigned count);
    void DeletePath(TreeEntry* node);

    // Appends to `collection`, children in ascending order.
    void GetChildren(const TreeEntry* node, KL::Queue<TreeEntry*>* collection) const;
    // Every node below `node` at which a path ends, depth first, a node before its children.
    void GetPathEnds(const TreeEntry* node, KL::Queue<TreeEntry*>* collection) const;
    // Null while the tree is empty.
    TreeEntry* GetRoot() const { return root; }
    // An id as the tree prints it: "{main}-{revision}".
    static std::string IdText(const KL::UnID& id);

    // Leaves a fresh root with count 0.
    void Clear();
    // Room for `more` nodes, for a caller that knows how many paths are coming.
    void Reserve(std::size_t more);
    using KL::Object::Print;
    void Print(KL::OChannel* channel, NameFunction nameFunction, void* userData) const;

private:
    class NodeStore;

    TreeEntry* MakeRoot(const KL::UnID& id);
    TreeEntry* AddChild(TreeEntry* parent, const KL::UnID& id);
    void DeleteUnreferencedLeafItem(TreeEntry* node);
    void PrintChildren(KL::OChannel& channel, const TreeEntry* node, unsigned depth,
                       std::vector<char>* lastAtDepth, NameFunction nameFunction, void* userData) const;
    // A node's children in ascending id order.
    static std::vector<TreeEntry*> SortedChildren(const TreeEntry* node);

    std::unique_ptr<NodeStore> store;
    TreeEntry* root = nullptr;
};

// One node of a path tree.
class LM_EXPORT Paths::TreeEntry {
public:
    TreeEntry(const TreeEntry&) = delete;
    TreeEntry& operator=(const TreeEntry&) = delete;

    TreeEntry* GetParent() const { return parent; }
    const KL::UnID& GetId() const { return id; }
    std::uint32_t GetCount() const { return count; }
    bool HasChildren() const { return firstChild != nullptr; }

private:
    friend class Paths;
    TreeEntry() = default;

    // Nodes belong to the tree's store, which also finds a child by id; the sibling list, in no
    // order, is for walks, which sort.
    TreeEntry* parent = nullptr;
    TreeEntry* firstChild = nullptr;
    TreeEntry* nextSibling = nullptr;
    TreeEntry* previousSibling = nullptr;
    // The child last added to: parts arrive folder by folder, and the parts of a folder mostly
    // share their ancestors, so most additions find their child here without a search.
    TreeEntry* lastAdded = nullptr;
    KL::UnID id;
    std::uint32_t count = 0;
};

} // namespace LM
