// Library lists of the oldest generation: the info block that projects kept in a memory handle.
#include "catalogue/LibrarySet.hpp"

#include "LibraryManagerErrors.hpp"
#include "lists/LibraryList.hpp"

#include "InputOutput/MemoryChannel.hpp"
#include "KLRoot/Channel.hpp"
#include "KLRoot/MemoryChannel.hpp"
#include "KLRoot/MemoryManager.hpp"
#include "KLRoot/String.hpp"

namespace LM {

namespace {

constexpr std::int32_t InfoMagic = 0x4C323036;

// Blocks of the oldest programs begin with "MS", "Ms", "WS" or "Ws".
bool HasOldPrefix(const char* data) {
    return (data[0] == 'M' || data[0] == 'W') && (data[1] == 'S' || data[1] == 's');
}

// The name a URL library shows: its last path segment, after dropping the last character,
// whatever it is.
KL::UniString NameOfUrl(KL::UniString url) {
    if (!url.IsEmpty())
        url.Delete(url.GetLength() - 1);
    const std::size_t slash = url.FindLast(u'/');
    return slash != KL::UniString::NotFound ? url.GetSubstring(slash + 1) : url;
}

// A library's name is its folder's, unless that is a resource folder "RFS": then the one above.
KL::UniString NameOfFolder(const IO::Location& location) {
    IO::Name last;
    location.GetLastLocalName(&last);
    if (last.GetText().IsEqual(KL::UniString("RFS"), KL::CaseInsensitive)) {
        IO::Location parent = location;
        parent.DeleteLastLocalName();
        parent.GetLastLocalName(&last);
    }
    return last.GetText();
}

void ReadLibraries(KL::IChannel& channel, LibraryList* list) {
    std::int32_t count = 0;
    channel.Read(count);
    // A count past the end of the block ends with the block.
    for (std::int32_t i = 0; i < count && channel.GetStatus() == KL::NoError; ++i) {
        bool vital = false;
        bool builtIn = false;
        bool isUrl = false;
        channel.Read(vital);
        channel.Read(builtIn);
        channel.Read(isUrl);
        if (isUrl) {
            KL::String text;
            text.Read(channel);
            const KL::UniString url(text.ToCStr());
            const int index = list->AddLibrary(url);
            if (index >= 0)
                (*list)[static_cast<std::size_t>(index)].SetName(NameOfUrl(url));
            continue;
        }
        IO::Location location;
        if (location.Read(channel) != KL::NoError)
            continue;
        const int index = list->AddLibrary(location, builtIn ? BuiltInLibrary : LocalLibrary,
                                           vital ? Vital : NotVital, KL::NULLGuid, KL::UniString(), false);
        if (index >= 0)
            (*list)[static_cast<std::size_t>(index)].SetName(NameOfFolder(location));
    }
}

void ReadOtherObjects(KL::IChannel& channel, LibraryList* list) {
    std::int32_t count = 0;
    channel.Read(count);
    for (std::int32_t i = 0; i < count && channel.GetStatus() == KL::NoError; ++i) {
        IO::Location location;
        KL::String url;
        location.Read(channel);
        url.Read(channel);
        if (!location.IsEmpty())
            list->AddOtherObject(location);
        else if (!url.IsEmpty())
            list->AddOtherObject(KL::UniString(url.ToCStr()));
    }
}

} // namespace

int LibrarySet::ConvertInfoToCurrent(char** info, char*** converted, KL::PlatformSign sign) const {
    if (converted == nullptr)
        return LibPartFileError;
    *converted = nullptr;
    if (info == nullptr || BMGetHandleSize(info) < 4)
        return LibPartFileError;
    const auto magic = KL::LoadInOrder<std::int32_t>(*info, sign);
    if (magic != InfoMagic)
        return LibPartFileError;
    return BMHandleToHandle(info, converted);
}

int LibrarySet::GetLibraryListFromInfo(char** info, KL::PlatformSign sign, LibraryList* list) const {
    if (list == nullptr)
        return LibPartFileError;
    list->DeleteAll(LibraryList::KeepEmbedded);
    KL::ScopedHandle copy;
    ConvertInfoToCurrent(info, copy.GetAddress(), sign);
    if (copy.Get() == nullptr)
        return LibPartFileError;
    KL::MemoryIChannel channel(copy.GetData(), static_cast<std::uint64_t>(copy.GetSize()),
                               KL::LittleEndianSign);
    if (!HasOldPrefix(copy.GetData()) && sign != KL::LittleEndianSign)
        IO::SetPlatformIProtocol(channel, sign);
    std::int32_t magic = 0;
    if (channel.Read(magic) != KL::NoError || magic != InfoMagic)
        return 0;
    bool hasFirst = false;
    channel.Read(hasFirst);
    IO::Location dropped;
    if (hasFirst)
        dropped.Read(channel);
    dropped.Read(channel);
    ReadLibraries(channel, list);
    ReadOtherObjects(channel, list);
    std::int32_t last = 0;
    channel.Read(last);
    return 0;
}

} // namespace LM
