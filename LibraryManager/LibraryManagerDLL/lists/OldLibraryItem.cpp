#include "lists/OldLibraryItem.hpp"

#include "lists/StreamSteps.hpp"

#include "KLRoot/IChannel.hpp"
#include "KLRoot/OChannel.hpp"

namespace LM {

int OldLibraryItem::Write(KL::OChannel& channel) const {
    return StreamSteps()
        .Then([&] { return channel.Write(static_cast<std::int32_t>(type)); })
        .Then([&] { return name.Write(channel); })
        .Then([&] { return location.Write(channel); })
        .Then([&] { return channel.Write(isUrl); })
        .Then([&] { return url.Write(channel); })
        .Then([&] { return channel.Write(vital); })
        .Then([&] { return channel.Write(missing); })
        .Result();
}

int OldLibraryItem::Read(KL::IChannel& channel) {
    std::int32_t readType = 0;
    return StreamSteps()
        .Then([&] { return channel.Read(readType); })
        .Then([&] {
            type = static_cast<ItemType>(readType);
            return name.Read(channel);
        })
        .Then([&] { return location.Read(channel); })
        .Then([&] { return channel.Read(isUrl); })
        .Then([&] { return url.Read(channel); })
        .Then([&] { return channel.Read(vital); })
        .Then([&] { return channel.Read(missing); })
        .Result();
}

} // namespace LM
