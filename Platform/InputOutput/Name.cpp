#include "InputOutput/Name.hpp"

#include "KLRoot/Channel.hpp"
#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/IChannel.hpp"
#include "KLRoot/OChannel.hpp"

#include <algorithm>

namespace IO {

Name::Name(const KL::UniString& candidate) {
    if (IsValidText(candidate.View()))
        text = candidate;
}

bool Name::IsValidText(std::u16string_view candidate) {
    if (candidate.empty() || candidate.size() > MaxLength || candidate == u"." || candidate == u"..")
        return false;
    return std::none_of(candidate.begin(), candidate.end(), [](char16_t c) { return c == u'/' || c == 0; });
}

bool Name::HasExtension() const {
    return text.FindLast(u'.') != KL::UniString::NotFound;
}

KL::UniString Name::GetExtension() const {
    const std::size_t dot = text.FindLast(u'.');
    return dot == KL::UniString::NotFound ? KL::UniString() : text.GetSubstring(dot + 1);
}

KL::UniString Name::GetBase() const {
    const std::size_t dot = text.FindLast(u'.');
    return dot == KL::UniString::NotFound ? text : text.GetPrefix(dot);
}

std::strong_ordering Name::operator<=>(const Name& other) const {
    return text.View() <=> other.text.View();
}

int Name::Write(KL::OChannel& channel) const {
    return WriteUnits(channel, text.View());
}

int Name::WriteUnits(KL::OChannel& channel, std::u16string_view units) {
    channel.Write(static_cast<std::uint32_t>(units.size()));
    for (const char16_t unit : units)
        channel.Write(unit);
    return channel.GetStatus();
}

int Name::Read(KL::IChannel& channel) {
    std::u16string units;
    if (const int err = ReadAppending(channel, units); err != KL::NoError)
        return err;
    text = KL::UniString(std::move(units));
    return KL::NoError;
}

int Name::ReadAppending(KL::IChannel& channel, std::u16string& text) {
    std::uint32_t count = 0;
    if (const int err = channel.Read(count); err != KL::NoError)
        return err;
    if (count == 0 || count > MaxLength)
        return channel.SetStatus(KL::ErrStreamFormat);
    if (const int err = channel.RequireAvailable(std::uint64_t{count} * 2); err != KL::NoError)
        return err;
    const std::size_t start = text.size();
    text.resize(start + count);
    // The units in one piece, turned to the host's order afterwards.
    if (const int err = channel.ReadBin(text.data() + start, std::uint64_t{count} * 2); err != KL::NoError)
        return err;
    if (channel.GetProtocol() != KL::HostPlatformSign) {
        for (std::size_t i = start; i < text.size(); ++i)
            text[i] = KL::ByteSwap(text[i]);
    }
    if (!IsValidText(std::u16string_view(text).substr(start)))
        return channel.SetStatus(KL::ErrStreamFormat);
    return KL::NoError;
}

} // namespace IO
