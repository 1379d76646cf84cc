#include "QDL/SyCalledMacroItem.hpp"

#include "LibPartFile/SectionTypes.hpp"

#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/Frame.hpp"
#include "KLRoot/IChannel.hpp"
#include "KLRoot/OChannel.hpp"

namespace {

// Name count and the two guids: the least an item can take in a stream.
constexpr std::uint64_t MinItemSize = 4 + 2 * KL::Guid::RawSize;

} // namespace

int SyCalledMacroItem::Read(KL::IChannel& channel) {
    if (const int err = name.Read(channel); err != KL::NoError)
        return err;
    return unId.Read(channel);
}

int SyCalledMacroItem::Write(KL::OChannel& channel) const {
    if (const int err = name.Write(channel); err != KL::NoError)
        return err;
    return unId.Write(channel);
}

int ReadCalledMacroList(KL::IChannel& channel, KL::Array<SyCalledMacroItem>* items) {
    KL::InputFrame frame(channel, calledMacroListClassInfo);
    if (const int err = frame.GetStatus(); err != KL::NoError)
        return err;
    std::uint32_t count = 0;
    if (const int err = channel.Read(count); err != KL::NoError)
        return err;
    if (count > frame.GetRemaining() / MinItemSize)
        return KL::ErrStreamFormat;
    items->Clear();
    for (std::uint32_t i = 0; i < count; ++i) {
        if (const int err = items->PushNew().Read(channel); err != KL::NoError)
            return err;
    }
    return frame.Close();
}

int WriteCalledMacroList(KL::OChannel& channel, const KL::Array<SyCalledMacroItem>& items) {
    KL::OutputFrame frame(channel, calledMacroListClassInfo);
    channel.Write(static_cast<std::uint32_t>(items.GetSize()));
    for (std::size_t i = 0; i < items.GetSize(); ++i)
        items[i].Write(channel);
    return frame.Close();
}

int ConvertCalledMacroSection(char* data, std::uint64_t size, KL::PlatformSign from, KL::PlatformSign to) {
    return LPF::ConvertByRewriting<SyCalledMacroList>(data, size, from, to);
}
