#include "LibPartFile/SectionTypes.hpp"

#include "LibPartFile/LibPartFileErrors.hpp"

#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/Guid.hpp"

#include <algorithm>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>

namespace LPF {

namespace {

void Swap32(char* data) {
    std::reverse(data, data + 4);
}

// The ancestry: mark and count, 24 reserved bytes, then a main and a revision guid per ancestor.
int ConvertAncestrySection(char* data, std::uint64_t size, KL::PlatformSign from, KL::PlatformSign to) {
    if (from == to)
        return KL::NoError;
    constexpr std::uint64_t Record = 32;
    if (size < Record)
        return CorruptSectionError;
    const std::uint32_t count = KL::LoadInOrder<std::uint32_t>(data + 4, from);
    if (count > size / Record - 1)
        return CorruptSectionError;
    Swap32(data);
    Swap32(data + 4);
    for (std::uint64_t guid = 0; guid < 2ULL * count; ++guid) {
        char* raw = data + Record + guid * KL::Guid::RawSize;
        KL::Guid::FromRaw(raw, from).ToRaw(raw, to);
    }
    return KL::NoError;
}

struct Registry {
    std::shared_mutex lock;
    std::unordered_map<SectionTag, SectionType> types;

    Registry() {
        for (const SectionTag script : Tags::Scripts)
            types[script] = SectionType{ConvertUTF16Section, nullptr};
        types[Tags::Ancestry] = SectionType{ConvertAncestrySection, nullptr};
    }
};

Registry& GetRegistry() {
    static Registry registry;
    return registry;
}

} // namespace

void RegisterSectionType(SectionTag tag, const SectionType& type) {
    Registry& registry = GetRegistry();
    const std::unique_lock guard(registry.lock);
    registry.types[tag] = type;
}

const SectionType* FindSectionType(SectionTag tag) {
    Registry& registry = GetRegistry();
    const std::shared_lock guard(registry.lock);
    const auto found = registry.types.find(tag);
    // Entries are never removed, and a node's address in the map is stable.
    return found != registry.types.end() ? &found->second : nullptr;
}

int ConvertUTF16Section(char* data, std::uint64_t size, KL::PlatformSign from, KL::PlatformSign to) {
    if (size % 2 != 0)
        return CorruptSectionError;
    if (from == to)
        return KL::NoError;
    for (std::uint64_t i = 0; i < size; i += 2)
        std::swap(data[i], data[i + 1]);
    return KL::NoError;
}

} // namespace LPF
