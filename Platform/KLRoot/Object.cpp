#include "KLRoot/Object.hpp"

#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/OChannel.hpp"

namespace KL {

const ClassInfo Object::classInfo("KL::Object", Guid("5B0A3C41-7E2D-4F0B-9C61-2D8E4A1F7730"), 1, 0);

Object* Object::Clone() const {
    return nullptr;
}
Object::~Object() = default;
const ClassInfo* Object::GetClassInfo() const {
    return &classInfo;
}
int Object::Read(IChannel&) {
    return ErrNotSupported;
}
int Object::Write(OChannel&) const {
    return ErrNotSupported;
}
int Object::ReadIsolatedState(IChannel& channel) {
    return Read(channel);
}
int Object::WriteIsolatedState(OChannel& channel) const {
    return Write(channel);
}

int Object::Print(OChannel& channel) const {
    channel << GetClassInfo()->GetName();
    return channel.GetStatus();
}

int Object::WriteXML(XMLOChannel&) const {
    return ErrNotSupported;
}
int Object::ReadXML(XMLIChannel&) {
    return ErrNotSupported;
}

} // namespace KL
