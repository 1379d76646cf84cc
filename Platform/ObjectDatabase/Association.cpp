#include "ObjectDatabase/Association.hpp"

#include "ObjectDatabase/FileDatabase.hpp"
#include "ObjectDatabase/IdSpace.hpp"

#include <algorithm>
#include <mutex>

namespace ODB {

namespace {

std::vector<const Association*>& Registered() {
    static std::vector<const Association*> associations;
    return associations;
}

} // namespace

Association::Association(const Id& id, std::initializer_list<AssociationProperty> properties) : id(id) {
    for (const AssociationProperty& property : properties) {
        if (property.GetKind() == AssociationProperty::Ownership)
            owning = property.GetValue() != 0;
        else if (property.GetKind() == AssociationProperty::Persistency)
            persistent = property.GetValue() != 0;
    }
    Registered().push_back(this);
}

Association::~Association() {
    std::erase(Registered(), this);
}

const std::vector<const Association*>& Association::GetRegistered() {
    return Registered();
}

bool Association::IsConnectedAsLeft(const RefBase& left) const {
    if (!left.IsLive())
        return false;
    ObjectEntry* entry = left.GetEntry();
    if (FileDatabase* database = entry->database) {
        std::lock_guard lock(database->GetIdSpace().GetLock());
        return database->HasRight(*this, entry);
    }
    return std::ranges::any_of(entry->pendingLinks, [this](const PendingLink& link) {
        return link.association == this && link.right.IsLive();
    });
}

void Association::EnumerateRight(const RefBase& left, RefList* rights) const {
    if (rights == nullptr)
        return;
    rights->clear();
    if (!left.IsLive())
        return;
    ObjectEntry* entry = left.GetEntry();
    if (FileDatabase* database = entry->database) {
        std::lock_guard lock(database->GetIdSpace().GetLock());
        database->EnumerateRight(*this, entry, rights);
        return;
    }
    for (const PendingLink& link : entry->pendingLinks) {
        if (link.association == this && link.right.IsLive())
            rights->push_back(link.right);
    }
}

bool Association::ConnectLink(const RefBase& left, const RefBase& right) const {
    if (!left.IsLive() || !right.IsLive() || left == right)
        return false;
    ObjectEntry* leftEntry = left.GetEntry();
    ObjectEntry* rightEntry = right.GetEntry();
    if (leftEntry->database == nullptr && rightEntry->database == nullptr) {
        leftEntry->pendingLinks.push_back({this, right});
        return true;
    }
    FileDatabase* database = leftEntry->database != nullptr ? leftEntry->database : rightEntry->database;
    if ((leftEntry->database != nullptr && leftEntry->database != database) ||
        (rightEntry->database != nullptr && rightEntry->database != database))
        return false;
    std::lock_guard lock(database->GetIdSpace().GetLock());
    if (rightEntry->database != nullptr && database->HasLeft(*this, rightEntry))
        return false;
    if (leftEntry->database == nullptr)
        database->Join(leftEntry);
    if (rightEntry->database == nullptr)
        database->Join(rightEntry);
    database->AddLink(*this, leftEntry, rightEntry);
    return true;
}

bool Association::ReleaseLink(const RefBase& left, const RefBase& right) const {
    if (!left.IsLive() || right.IsNull())
        return false;
    ObjectEntry* leftEntry = left.GetEntry();
    if (FileDatabase* database = leftEntry->database) {
        std::lock_guard lock(database->GetIdSpace().GetLock());
        return database->RemoveLink(*this, leftEntry, right.GetEntry());
    }
    return std::erase_if(leftEntry->pendingLinks, [&](const PendingLink& link) {
               return link.association == this && link.right == right;
           }) > 0;
}

bool Association11::Connect(const RefBase& left, const RefBase& right) const {
    return !IsConnectedAsLeft(left) && ConnectLink(left, right);
}

bool Association11::Release(const RefBase& left) const {
    return ReleaseLink(left, GetRight(left));
}

RefBase Association11::GetRight(const RefBase& left) const {
    RefList rights;
    EnumerateRight(left, &rights);
    return rights.empty() ? RefBase() : rights.front();
}

} // namespace ODB
