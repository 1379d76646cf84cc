#include "KLRoot/String.hpp"

#include "KLRoot/IChannel.hpp"
#include "KLRoot/OChannel.hpp"

#include <algorithm>
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
    if (const int err = channel.RequireAvailable(count); err != NoError)
        return err;
    constexpr std::size_t Chunk = 64 * 1024;
    std::string result;
    for (std::size_t done = 0; done < count;) {
        const std::size_t n = std::min<std::size_t>(Chunk, count - done);
        result.resize(done + n);
        if (const int err = channel.ReadBin(result.data() + done, n); err != NoError)
            return err;
        done += n;
    }
    text = std::move(result);
    return NoError;
}

} // namespace KL
