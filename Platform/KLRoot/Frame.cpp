#include "KLRoot/Frame.hpp"

#include "KLRoot/IChannel.hpp"
#include "KLRoot/OChannel.hpp"

namespace KL {

OutputFrame::OutputFrame(OChannel& target, const ClassInfo& info)
    : channel(target), version(info.GetVersion()) {
    info.GetGuid().Write(channel);
    channel.Write(version.major);
    channel.Write(version.minor);
    lengthOffset = channel.GetWrittenCount();
    channel.Write(std::uint32_t{0});
    status = channel.GetStatus();
    open = status == NoError;
    if (open)
        channel.Pin(lengthOffset);
}

OutputFrame::~OutputFrame() {
    Close();
}

int OutputFrame::Close() {
    if (!open)
        return GetStatus();
    open = false;
    channel.Unpin(lengthOffset);
    const std::uint64_t length = channel.GetWrittenCount() - lengthOffset - sizeof(std::uint32_t);
    if (length > UINT32_MAX) {
        status = channel.SetStatus(ErrParam);
        return status;
    }
    char bytes[sizeof(std::uint32_t)];
    StoreInOrder(bytes, static_cast<std::uint32_t>(length), channel.GetProtocol());
    channel.Patch(lengthOffset, bytes, sizeof bytes);
    return GetStatus();
}

int OutputFrame::GetStatus() const {
    return status != NoError ? status : channel.GetStatus();
}

InputFrame::InputFrame(IChannel& source, const ClassInfo& info) : channel(source) {
    Guid guid;
    std::uint32_t length = 0;
    guid.Read(channel);
    channel.Read(version.major);
    channel.Read(version.minor);
    channel.Read(length);
    status = channel.GetStatus();
    if (status == NoError && guid != info.GetGuid())
        status = channel.SetStatus(ErrStreamFormat);
    if (status == NoError)
        status = channel.RequireAvailable(length);
    end = channel.GetReadCount() + length;
    open = status == NoError;
    if (open)
        channel.PushLimit(end);
}

InputFrame::~InputFrame() {
    Close();
}

int InputFrame::Close() {
    if (!open)
        return GetStatus();
    open = false;
    channel.PopLimit();
    if (channel.GetStatus() != NoError)
        return GetStatus();
    // Reads cannot pass the limit, so the position lies within the body.
    channel.Skip(end - channel.GetReadCount());
    return GetStatus();
}

int InputFrame::GetStatus() const {
    return status != NoError ? status : channel.GetStatus();
}

std::uint64_t InputFrame::GetRemaining() const {
    const std::uint64_t position = channel.GetReadCount();
    return position < end ? end - position : 0;
}

} // namespace KL
