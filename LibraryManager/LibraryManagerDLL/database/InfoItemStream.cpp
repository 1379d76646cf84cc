#include "database/InfoItemStream.hpp"

#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/IChannel.hpp"
#include "KLRoot/OChannel.hpp"

namespace LM {

int WriteInfoItems(KL::OChannel& channel, const InfoArray& items) {
    const KL::Array<InfoData*>& all = items.Get();
    channel.Write(static_cast<std::uint32_t>(all.GetSize()));
    for (const InfoData* item : all)
        item->Write(channel);
    return channel.GetStatus();
}

int ReadInfoItems(KL::IChannel& channel, InfoArray& items) {
    items.Clear();
    std::uint32_t count = 0;
    int result = channel.Read(count);
    for (std::uint32_t i = 0; i < count && channel.GetStatus() == KL::NoError; ++i) {
        InfoData item;
        result = item.Read(channel);
        if (result == KL::NoError)
            items.Push(item);
    }
    return result;
}

std::uint64_t SumOfItemSizes(const InfoArray& items) {
    std::uint64_t sum = 0;
    for (const InfoData* item : items.Get())
        sum += item->GetSize();
    return sum;
}

unsigned AppendItemCopies(const InfoArray& items, KL::Array<InfoData*>& target) {
    for (const InfoData* item : items.Get())
        target.Push(new InfoData(*item));
    return static_cast<unsigned>(items.Get().GetSize());
}

} // namespace LM
