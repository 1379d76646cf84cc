#include "KLMSections/AncestrySection.hpp"

#include "KLRoot/Channel.hpp"
#include "KLRoot/ErrorCodes.hpp"

namespace {

constexpr std::uint64_t RecordSize = 32;

} // namespace

int ParseAncestrySection(const char* data, std::uint64_t size, AncestrySection* section) {
    if (size < RecordSize || size % RecordSize != 0)
        return KL::ErrStreamFormat;
    const auto mark = KL::LoadInOrder<std::uint32_t>(data, KL::HostPlatformSign);
    const auto count = KL::LoadInOrder<std::uint32_t>(data + 4, KL::HostPlatformSign);
    if (mark > 1 || count != size / RecordSize - 1)
        return KL::ErrStreamFormat;
    AncestrySection read;
    read.isTemplate = mark == 1;
    read.ancestors.resize(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        const char* record = data + RecordSize * (i + 1);
        read.ancestors[i].mainGuid = KL::Guid::FromRaw(record, KL::HostPlatformSign);
        read.ancestors[i].revGuid = KL::Guid::FromRaw(record + KL::Guid::RawSize, KL::HostPlatformSign);
    }
    *section = std::move(read);
    return KL::NoError;
}

std::vector<char> BuildAncestrySection(const AncestrySection& section) {
    std::vector<char> bytes(RecordSize * (section.ancestors.size() + 1), '\0');
    KL::StoreInOrder(bytes.data(), std::uint32_t{section.isTemplate ? 1U : 0U}, KL::HostPlatformSign);
    KL::StoreInOrder(bytes.data() + 4, static_cast<std::uint32_t>(section.ancestors.size()),
                     KL::HostPlatformSign);
    for (std::size_t i = 0; i < section.ancestors.size(); ++i) {
        char* record = bytes.data() + RecordSize * (i + 1);
        section.ancestors[i].mainGuid.ToRaw(record, KL::HostPlatformSign);
        section.ancestors[i].revGuid.ToRaw(record + KL::Guid::RawSize, KL::HostPlatformSign);
    }
    return bytes;
}
