#pragma once

#include "LibPartFile/LibPartFileErrors.hpp"
#include "LibPartFile/SectionInfo.hpp"

#include "KLRoot/Channel.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/Object.hpp"

#include <cstdint>
#include <memory>

namespace LPF {

// What the part file layer knows of the sections of one tag. A part written in the other byte order
// has its sections turned to the host's order as they are read, so callers never see foreign
// order; sections of a tag nobody registered are carried as plain bytes.
struct SectionType {
    // Rewrites a section from one byte order to the other, in place; the size never changes.
    int (*convert)(char* data, std::uint64_t size, KL::PlatformSign from, KL::PlatformSign to) = nullptr;
    // The section as an object, or null with `*error` set.
    std::unique_ptr<KL::Object> (*makeContent)(const char* data, std::uint64_t size, int* error) = nullptr;
};

// Registration belongs to start-up (see InitLibPartFile); lookups may come from any thread.
LM_EXPORT void RegisterSectionType(SectionTag tag, const SectionType& type);
// The registered type, or null. The scripts and the ancestry are known from the start.
LM_EXPORT const SectionType* FindSectionType(SectionTag tag);

// Swaps every 16-bit unit; for text sections. An odd size is a corrupt section.
LM_EXPORT int ConvertUTF16Section(char* data, std::uint64_t size, KL::PlatformSign from, KL::PlatformSign to);

} // namespace LPF

#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/MemoryChannel.hpp"

#include <cstring>
#include <vector>

namespace LPF {

// Reads a section that is one whole stream of `Content`, through its Read; bytes left over make
// the section corrupt.
template <typename Content>
int ReadWholeSection(const char* data, std::uint64_t size, KL::PlatformSign order, Content* content) {
    KL::MemoryIChannel in(data, size, order);
    if (const int err = content->Read(in); err != KL::NoError)
        return err;
    return in.GetAvailable() == 0 ? KL::NoError : CorruptSectionError;
}

// Converts a section that is one stream of `Content` by reading it in one order and writing it in
// the other. A section that does not read whole, or whose size would change, is corrupt.
template <typename Content>
int ConvertByRewriting(char* data, std::uint64_t size, KL::PlatformSign from, KL::PlatformSign to) {
    if (from == to)
        return KL::NoError;
    Content content{};
    if (ReadWholeSection(data, size, from, &content) != KL::NoError)
        return CorruptSectionError;
    KL::MemoryOChannel out(to);
    if (const int err = content.Write(out); err != KL::NoError)
        return err;
    const std::vector<char>& bytes = out.GetData();
    if (bytes.size() != size)
        return CorruptSectionError;
    std::memcpy(data, bytes.data(), size);
    return KL::NoError;
}

} // namespace LPF
