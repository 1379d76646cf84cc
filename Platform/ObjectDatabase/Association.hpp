#pragma once

// Associations link objects as a left and a right side: one to one, or one to many in the order
// the links were made. An association is a global object with a fixed id, which the database
// stores with each link. An owning association deletes its right sides with their left one.
//
// Linking an object that belongs to no database to one that does brings it, and whatever it is
// linked to, into that database. A right side has at most one left side per association; links
// across two databases are refused.
#include "ObjectDatabase/Ref.hpp"

#include "KLRoot/KLExport.hpp"

#include <initializer_list>
#include <vector>

namespace ODB {

class LM_EXPORT AssociationProperty {
public:
    enum Kind { Ownership = 1, Persistency = 2 };

    AssociationProperty(Kind kind, int value) : kind(kind), value(value) {}
    Kind GetKind() const { return kind; }
    int GetValue() const { return value; }

private:
    Kind kind;
    int value;
};

class LM_EXPORT Association {
public:
    Association(const Id& id, std::initializer_list<AssociationProperty> properties);
    virtual ~Association();
    Association(const Association&) = delete;
    Association& operator=(const Association&) = delete;

    // Every association alive in the process; a database deletes along the owning ones.
    static const std::vector<const Association*>& GetRegistered();

    const Id& GetId() const { return id; }
    bool IsOwning() const { return owning; }
    bool IsPersistent() const { return persistent; }

    // Whether `left` has any right side.
    bool IsConnectedAsLeft(const RefBase& left) const;
    // Replaces the list's contents with the right sides of `left`, in link order.
    void EnumerateRight(const RefBase& left, RefList* rights) const;

protected:
    // False when refused: a null side, a right side that has a left one already, two databases.
    bool ConnectLink(const RefBase& left, const RefBase& right) const;
    bool ReleaseLink(const RefBase& left, const RefBase& right) const;

private:
    Id id;
    bool owning = false;
    bool persistent = false;
};

class LM_EXPORT Association11 : public Association {
public:
    using Association::Association;

    // Refused when `left` has a right side already.
    bool Connect(const RefBase& left, const RefBase& right) const;
    // Unlinks the right side of `left`, if any; what is released is not deleted.
    bool Release(const RefBase& left) const;
    // The right side of `left`, or a null reference.
    RefBase GetRight(const RefBase& left) const;
};

class LM_EXPORT Association1N : public Association {
public:
    using Association::Association;

    // Appends `right` to the right sides of `left`.
    bool Connect(const RefBase& left, const RefBase& right) const { return ConnectLink(left, right); }
    bool Release(const RefBase& left, const RefBase& right) const { return ReleaseLink(left, right); }
};

} // namespace ODB
