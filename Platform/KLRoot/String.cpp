#include "KLRoot/String.hpp"

#include "KLRoot/IChannel.hpp"
#include "KLRoot/OChannel.hpp"

#include <cstdint>

namespace KL {

int String::Write(OChannel& channel) const {
    if (text.size() > UINT32_MAX)
        return channel.SetStatus(ErrParam);
    if (const int err = channel.Write(static_cast<std::uint32_t>(text.size())); err != NoError)
        return err;
    return channel.WriteBin(text.data(), text.size());
}

int String::Read(IChannel& channel) {
    std::uint32_t count = 0;
    if (const int err = channel.Read(count); err != NoError)
        return err;
    std::string result;
    if (const int err = ReadCountedElements(channel, count, result); err != NoError)
        return err;
    text = std::move(result);
    return NoError;
}

} // namespace KL
