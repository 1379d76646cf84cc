#include "database/DatabaseLibraryContainerAssociations.hpp"

#include "database/DatabaseLibraryContainerEntries.hpp"

namespace LM {

namespace {

// Every link owns its right side and lives in the database of its left side.
const std::initializer_list<ODB::AssociationProperty> ownedAndPersistent = {
    {ODB::AssociationProperty::Ownership, 1}, {ODB::AssociationProperty::Persistency, 1}};

} // namespace

const ODB::Id DatabaseLibraryContainerRootId("4858CEDB-0355-417C-A06A-1C9CC27BD72A");

const ODB::Association1N DLCChildrenAssociation(KL::Guid("8EFF2173-3DC5-4C94-8DEA-CA68FE12B2DD"),
                                                ownedAndPersistent);
const ODB::Association11 DLCHeaderContentAssociation(KL::Guid("9AD9C2EF-6B17-4E01-884F-DD0E18593724"),
                                                     ownedAndPersistent);
const ODB::Association11 DLCRootFolderAssociation(KL::Guid("D4DACFB5-4DE7-4095-BBF0-BDC42B179CDB"),
                                                  ownedAndPersistent);
const ODB::Association11 DLCOwnerRootAssociation(KL::Guid("A627F73F-100F-4736-8625-B7B66A123D19"),
                                                 ownedAndPersistent);

DLCChildrenConstIterator::DLCChildrenConstIterator(const ODB::RefBase& entry) {
    DLCChildrenAssociation.EnumerateRight(entry, &children);
}

ODB::ConstRef<DatabaseLibraryContainerEntry> DLCChildrenConstIterator::operator*() const {
    return ODB::ConstRef<DatabaseLibraryContainerEntry>::Cast(children[index]);
}

ODB::Ref<DatabaseLibraryContainerEntry> DLCChildrenIterator::operator*() const {
    return ODB::Ref<DatabaseLibraryContainerEntry>::Cast(children[index]);
}

} // namespace LM
