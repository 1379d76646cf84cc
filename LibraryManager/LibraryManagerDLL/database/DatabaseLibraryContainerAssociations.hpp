#pragma once

// How the objects of a database container hang together: the fixed id of every container's
// root, the four associations between owner, root, folders, headers and contents, and iterators
// over a folder's children. All four associations own their right sides, so deleting a container's
// root deletes the whole container.
#include "ObjectDatabase/Association.hpp"
#include "ObjectDatabase/Ref.hpp"

#include "KLRoot/KLExport.hpp"

#include <cstddef>

namespace LM {

class DatabaseLibraryContainerEntry;

// The root of every container has this id, so a reader finds it without a search.
LM_EXPORT extern const ODB::Id DatabaseLibraryContainerRootId;

// A folder and its children, folders and headers alike, in the order they were linked.
LM_EXPORT extern const ODB::Association1N DLCChildrenAssociation;
// A part's header and its bulky content.
LM_EXPORT extern const ODB::Association11 DLCHeaderContentAssociation;
// The container root and its top folder.
LM_EXPORT extern const ODB::Association11 DLCRootFolderAssociation;
// The owner of the container (the file root of a file database, or a host's object) and the root.
LM_EXPORT extern const ODB::Association11 DLCOwnerRootAssociation;

// Iterates over a snapshot of an entry's children: relinking them during the walk is safe.
class LM_EXPORT DLCChildrenConstIterator {
public:
    explicit DLCChildrenConstIterator(const ODB::RefBase& entry);

    bool IsEnd() const { return index >= children.size(); }
    DLCChildrenConstIterator& operator++() {
        ++index;
        return *this;
    }
    ODB::ConstRef<DatabaseLibraryContainerEntry> operator*() const;

protected:
    ODB::RefList children;
    std::size_t index = 0;
};

class LM_EXPORT DLCChildrenIterator : public DLCChildrenConstIterator {
public:
    using DLCChildrenConstIterator::DLCChildrenConstIterator;
    ODB::Ref<DatabaseLibraryContainerEntry> operator*() const;
};

} // namespace LM
