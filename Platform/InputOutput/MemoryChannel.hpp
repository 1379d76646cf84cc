#pragma once

#include "KLRoot/Channel.hpp"
#include "KLRoot/IChannel.hpp"
#include "KLRoot/MemoryChannel.hpp"

namespace IO {

using MemoryIChannel = KL::MemoryIChannel;
using MemoryOChannel = KL::MemoryOChannel;

// Makes a channel read in the byte order of `sign`; ErrParam for a sign that names no order.
inline int SetPlatformIProtocol(KL::IChannel& channel, KL::PlatformSign sign) {
    return channel.SetProtocol(sign);
}

} // namespace IO
