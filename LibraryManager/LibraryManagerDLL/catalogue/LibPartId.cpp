#include "catalogue/LibPartId.hpp"

#include "catalogue/LibPart.hpp"

#include "KLRoot/Frame.hpp"
#include "KLRoot/IChannel.hpp"
#include "KLRoot/OChannel.hpp"
#include "KLRoot/XMLIChannel.hpp"
#include "KLRoot/XMLOChannel.hpp"

namespace LM {

const KL::ClassInfo LibPartId::classInfo("LM::LibPartId", KL::Guid("E666B724-587D-447a-B9A8-6248E3368E70"), 1,
                                         0);

LibPartId::LibPartId(const KL::UnID& unId, const KL::UniString& name) : unId(unId), name(name) {
    GenerateHashValue();
}

LibPartId::LibPartId(const LibPart* part) {
    if (part == nullptr)
        return;
    unId = part->GetOwnUnID();
    name = part->GetDocumentName();
    GenerateHashValue();
}

LibPartId::~LibPartId() = default;

const KL::ClassInfo* LibPartId::GetClassInfo() const {
    return &classInfo;
}

// Any non-null guid makes the guids the whole identity; only two null ids fall back to names.
bool LibPartId::operator==(const LibPartId& other) const {
    if (unId != other.unId)
        return false;
    if (!unId.IsNull())
        return true;
    return name == other.name;
}

void LibPartId::GenerateHashValue() {
    if (unId.IsNull()) {
        hashValue = name.GenerateHashValue();
        return;
    }
    hashValue =
        (static_cast<std::uint32_t>(unId.mainGuid.GetHashValue()) << 16) + unId.revGuid.GetHashValue();
}

int LibPartId::Write(KL::OChannel& channel) const {
    KL::OutputFrame frame(channel, classInfo);
    if (channel.GetStatus() != 0)
        return channel.GetStatus();
    if (int error = unId.mainGuid.Write(channel); error != 0)
        return error;
    if (int error = unId.revGuid.Write(channel); error != 0)
        return error;
    if (int error = name.Write(channel); error != 0)
        return error;
    return frame.Close();
}

int LibPartId::Read(KL::IChannel& channel) {
    KL::InputFrame frame(channel, classInfo);
    if (frame.GetStatus() != 0)
        return frame.GetStatus();
    if (channel.GetStatus() != 0)
        return channel.GetStatus();
    int error = unId.mainGuid.Read(channel);
    if (error == 0)
        error = unId.revGuid.Read(channel);
    if (error != 0)
        return error;
    error = name.Read(channel);
    // A half-read name still gets a hash that matches what the id now holds.
    GenerateHashValue();
    if (error != 0)
        return error;
    return frame.Close();
}

int LibPartId::WriteXML(KL::XMLOChannel& channel) const {
    channel.StartTag("LibPartId", classInfo.GetVersion());
    channel.WriteElement("Name", name);
    channel.WriteElement("MainGuid", unId.mainGuid);
    channel.WriteElement("UnId", unId.revGuid);
    channel.EndTag("LibPartId");
    return channel.GetStatus();
}

int LibPartId::ReadXML(KL::XMLIChannel& channel) {
    channel.StartTag("LibPartId");
    channel.ReadElement("Name", name);
    if (channel.ReadElement("MainGuid", unId.mainGuid) == 0)
        channel.ReadElement("UnId", unId.revGuid);
    channel.EndTag("LibPartId");
    GenerateHashValue();
    return 0;
}

} // namespace LM
