#pragma once

#include "KLRoot/ClassInfo.hpp"
#include "KLRoot/KLExport.hpp"

namespace KL {

class IChannel;
class OChannel;
class XMLIChannel;
class XMLOChannel;

// Base of the foundation's stored objects. The defaults refuse with ErrNotSupported, so a class
// offers only the forms it really has.
class LM_EXPORT Object {
public:
    static const ClassInfo classInfo;

    // A copy of the same dynamic type, owned by the caller, or null for classes that cannot be cloned.
    virtual Object* Clone() const;
    virtual ~Object();
    virtual const ClassInfo* GetClassInfo() const;
    virtual int Read(IChannel& channel);
    virtual int Write(OChannel& channel) const;
    // The object database's forms; by default the same as Read and Write.
    virtual int ReadIsolatedState(IChannel& channel);
    virtual int WriteIsolatedState(OChannel& channel) const;
    // A one-line text form for listings and diagnostics.
    virtual int Print(OChannel& channel) const;
    virtual int WriteXML(XMLOChannel& channel) const;
    virtual int ReadXML(XMLIChannel& channel);

protected:
    Object() = default;
    Object(const Object&) = default;
    Object& operator=(const Object&) = default;
};

} // namespace KL
