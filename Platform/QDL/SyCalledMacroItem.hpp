#pragma once

#include "KLRoot/Array.hpp"
#include "KLRoot/ClassInfo.hpp"
#include "KLRoot/Guid.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/UniString.hpp"

namespace KL {
class IChannel;
class OChannel;
} // namespace KL

namespace LM {
class LibPart;
}

// One macro a part's scripts call: its name, the id the caller last knew, and a slot where the
// library manager keeps the part it resolved to. The slot is never stored.
class LM_EXPORT SyCalledMacroItem {
public:
    KL::UniString name;
    KL::UnID unId;
    const LM::LibPart* libPart = nullptr;

    int Read(KL::IChannel& channel);
    int Write(KL::OChannel& channel) const;
};

// The "MCRS" section: a frame of this class around a 32-bit count and the items.
inline constexpr KL::ClassInfo
    calledMacroListClassInfo("SyCalledMacroList", KL::Guid("7A0C3E55-1F4B-4D2A-9E61-3B8D5C0F2A47"), 1, 0);
// Reads a whole list; the count is checked against the bytes left before anything is allocated.
LM_EXPORT int ReadCalledMacroList(KL::IChannel& channel, KL::Array<SyCalledMacroItem>* items);
LM_EXPORT int WriteCalledMacroList(KL::OChannel& channel, const KL::Array<SyCalledMacroItem>& items);

// The whole "MCRS" section as one stream object.
struct SyCalledMacroList {
    KL::Array<SyCalledMacroItem> items;
    int Read(KL::IChannel& channel) { return ReadCalledMacroList(channel, &items); }
    int Write(KL::OChannel& channel) const { return WriteCalledMacroList(channel, items); }
};
// The section's bytes from one byte order to the other, in place.
LM_EXPORT int ConvertCalledMacroSection(char* data, std::uint64_t size, KL::PlatformSign from,
                                        KL::PlatformSign to);
