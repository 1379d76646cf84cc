#include "Paths.hpp"

#include "PathNodeStore.hpp"

#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/Exceptions.hpp"
#include "KLRoot/OChannel.hpp"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace LM {

namespace {

[[noreturn]] void ThrowIllegal(const char* operation, int line) {
    throw KL::IllegalArgumentException(std::string("Illegal index in Paths::") + operation + ".", "Paths",
                                       line);
}

void Require(bool condition, const char* operation, int line) {
    if (!condition)
        ThrowIllegal(operation, line);
}

} // namespace

std::string Paths::IdText(const KL::UnID& id) {
    return "{" + id.mainGuid.ToString() + "}-{" + id.revGuid.ToString() + "}";
}

void ThrowMemoryManagerError(int code) {
    switch (code) {
    case KL::NoError:
        return;
    case KL::ErrEmptyHandle:
        throw KL::BMEmptyHandleException("BM: empty handle!", "Paths", __LINE__);
    case KL::ErrNullPointer:
        throw KL::BMNullPointerException("BM: Null pointer!", "Paths", __LINE__);
    case KL::ErrMemoryLocked:
        throw KL::BMMemoryLockedException("BM: memory locked!", "Paths", __LINE__);
    case KL::ErrNilHandle:
        throw KL::BMNilHandleException("BM: nullptr handle!", "Paths", __LINE__);
    case KL::ErrNotEnoughMemory:
        throw KL::OutOfMemoryException("BM: cannot allocate the needed memory!", "Paths", __LINE__);
    case KL::ErrParam:
        throw KL::BMIllegalArgumentException("BM: illegal argument!", "Paths", __LINE__);
    default:
        throw KL::BMInternalErrorException(code, "BMX internal error!", "Paths", __LINE__);
    }
}

Paths::Paths() : store(std::make_unique<NodeStore>()) {}

Paths::~Paths() = default;

Paths::TreeEntry* Paths::MakeRoot(const KL::UnID& id) {
    if (root == nullptr)
        root = store->MakeRoot(id);
    return root->id == id ? root : nullptr;
}

void Paths::AddPathReference(TreeEntry* node) {
    Require(node != nullptr, "AddPathReference", __LINE__);
    for (; node != nullptr; node = node->parent)
        ++node->count;
}

std::uint32_t Paths::GetPathReferenceCount(const TreeEntry* node) const {
    // The message names AddPathReference; hosts match it word for word.
    Require(node != nullptr, "AddPathReference", __LINE__);
    return node->count;
}

bool Paths::IsNodeOnPath(const TreeEntry* node, const KL::UnID& id) const {
    for (; node != nullptr; node = node->parent)
        if (node->id == id)
            return true;
    return false;
}

void Paths::GetPathNodeFromBack(const TreeEntry* node, unsigned stepsUp, KL::UnID* id) const {
    Require(node != nullptr && id != nullptr, "GetPathNodeFromBack", __LINE__);
    for (; node != nullptr && stepsUp > 0; --stepsUp)
        node = node->parent;
    *id = node != nullptr ? node->id : KL::UnID();
}

void Paths::GetLastPathNode(const TreeEntry* node, KL::UnID* id) const {
    Require(node != nullptr && id != nullptr, "GetLastPathNode", __LINE__);
    *id = node->id;
}

unsigned Paths::GetPathLength(const TreeEntry* node) const {
    Require(node != nullptr, "GetPathLength", __LINE__);
    unsigned length = 0;
    for (; node->parent != nullptr; node = node->parent)
        ++length;
    return length;
}

void Paths::GetPath(const TreeEntry* node, KL::UnID* ids) const {
    Require(node != nullptr && ids != nullptr && node->parent != nullptr, "GetPath", __LINE__);
    for (unsigned i = GetPathLength(node); i > 0; --i, node = node->parent)
        ids[i - 1] = node->id;
}

void Paths::GetPathNode(const TreeEntry* node, unsigned index, KL::UnID* id) const {
    // The message names SetPathNode; hosts match it word for word.
    Require(node != nullptr && id != nullptr, "SetPathNode", __LINE__);
    const unsigned length = GetPathLength(node);
    Require(index < length, "SetPathNode", __LINE__);
    GetPathNodeFromBack(node, length - 1 - index, id);
}

Paths::TreeEntry* Paths::AddChild(TreeEntry* parent, const KL::UnID& id) {
    if (TreeEntry* last = parent->lastAdded; last != nullptr && last->id == id) {
        ++last->count;
        return last;
    }
    TreeEntry* child = store->FindChild(parent, id);
    if (child != nullptr)
        ++child->count;
    else
        child = store->MakeChild(parent, id);
    return parent->lastAdded = child;
}

Paths::TreeEntry* Paths::AddPath(const KL::UnID* ids, unsigned count) {
    if (ids == nullptr || count == 0)
        return nullptr;
    TreeEntry* node = MakeRoot(KL::UnID());
    if (node == nullptr)
        return nullptr;
    ++node->count;
    for (unsigned i = 0; i < count; ++i) {
        try {
            node = AddChild(node, ids[i]);
        } catch (...) {
            DeletePath(node);
            throw;
        }
    }
    return node;
}

Paths::TreeEntry* Paths::AddPath(const KL::UnID* ids, unsigned count, const KL::UnID& last) {
    TreeEntry* prefix = nullptr;
    if (count == 0) {
        prefix = MakeRoot(KL::UnID());
        if (prefix != nullptr)
            ++prefix->count;
    } else {
        prefix = AddPath(ids, count);
    }
    if (prefix == nullptr)
        return nullptr;
    try {
        return AddChild(prefix, last);
    } catch (...) {
        DeletePath(prefix);
        throw;
    }
}

Paths::TreeEntry* Paths::AppendPathNode(TreeEntry* node, const KL::UnID* id) {
    Require(node != nullptr && id != nullptr, "AppendPathNode", __LINE__);
    TreeEntry* child = nullptr;
    try {
        child = AddChild(node, *id);
    } catch (...) {
        DeletePath(node);
        throw;
    }
    AddPathReference(node);
    return child;
}

Paths::TreeEntry* Paths::ReplacePath(TreeEntry* node, const KL::UnID* ids, unsigned count) {
    Require(node != nullptr && ids != nullptr, "ReplacePath", __LINE__);
    DeletePath(node);
    return AddPath(ids, count);
}

void Paths::DeletePath(TreeEntry* node) {
    Require(node != nullptr, "DeletePath", __LINE__);
    while (node != nullptr) {
        TreeEntry* parent = node->parent;
        if (node->count > 0 && --node->count == 0)
            DeleteUnreferencedLeafItem(node);
        node = parent;
    }
    if (root != nullptr && root->count == 0)
        Clear();
}

void Paths::DeleteUnreferencedLeafItem(TreeEntry* node) {
    Require(node->count == 0 && !node->HasChildren(), "DeleteUnreferencedLeafItem", __LINE__);
    if (node->parent != nullptr)
        store->Free(node);
}

std::vector<Paths::TreeEntry*> Paths::SortedChildren(const TreeEntry* node) {
    std::vector<TreeEntry*> children;
    for (TreeEntry* child = node->firstChild; child != nullptr; child = child->nextSibling)
        children.push_back(child);
    std::sort(children.begin(), children.end(),
              [](const TreeEntry* a, const TreeEntry* b) { return a->id.Compare(b->id) < 0; });
    return children;
}

void Paths::GetChildren(const TreeEntry* node, KL::Queue<TreeEntry*>* collection) const {
    if (node == nullptr)
        return;
    for (TreeEntry* child : SortedChildren(node))
        collection->Push(child);
}

void Paths::GetPathEnds(const TreeEntry* node, KL::Queue<TreeEntry*>* collection) const {
    if (node == nullptr)
        return;
    // Depth first with an explicit stack; children go on it in reverse to come off ascending.
    const auto pushDescending = [](const TreeEntry* parent, std::vector<TreeEntry*>* stack) {
        const std::vector<TreeEntry*> children = SortedChildren(parent);
        stack->insert(stack->end(), children.rbegin(), children.rend());
    };
    std::vector<TreeEntry*> pending;
    pushDescending(node, &pending);
    while (!pending.empty()) {
        TreeEntry* next = pending.back();
        pending.pop_back();
        std::uint64_t below = 0;
        for (const TreeEntry* child = next->firstChild; child != nullptr; child = child->nextSibling)
            below += child->count;
        if (next->count > below)
            collection->Push(next);
        pushDescending(next, &pending);
    }
}

void Paths::Clear() {
    root = nullptr;
    store->Clear();
    MakeRoot(KL::UnID());
}

void Paths::Reserve(std::size_t more) {
    store->Reserve(more);
}

void Paths::Print(KL::OChannel* channel, NameFunction nameFunction, void* userData) const {
    Require(channel != nullptr, "Print", __LINE__);
    if (root == nullptr) {
        *channel << "The tree is empty!!!\n";
        return;
    }
    *channel << "<BuiltIn Root> " << IdText(root->id) << " (" << root->count << ")\n";
    std::vector<char> lastAtDepth;
    PrintChildren(*channel, root, 1, &lastAtDepth, nameFunction, userData);
}

// Each level below the first draws a rail ("|   ") unless the node above at that level was the
// last of its siblings.
void Paths::PrintChildren(KL::OChannel& channel, const TreeEntry* node, unsigned depth,
                          std::vector<char>* lastAtDepth, NameFunction nameFunction, void* userData) const {
    if (lastAtDepth->size() <= depth)
        lastAtDepth->resize(depth + 1);
    std::string prefix;
    for (unsigned level = 1; level < depth; ++level)
        prefix += (*lastAtDepth)[level] ? "    " : "|   ";
    const std::vector<TreeEntry*> children = SortedChildren(node);
    std::size_t remaining = children.size();
    for (const TreeEntry* child : children) {
        channel << prefix << "|\n" << prefix << "+---";
        if (nameFunction != nullptr)
            nameFunction(userData, channel, child->id);
        else
            channel << IdText(child->id);
        channel << " (" << child->count << ")\n";
        (*lastAtDepth)[depth] = --remaining == 0;
        PrintChildren(channel, child, depth + 1, lastAtDepth, nameFunction, userData);
    }
}

} // namespace LM
