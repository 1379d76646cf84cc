#pragma once

#include "catalogue/LibraryModes.hpp"
#include "lists/LibraryItem.hpp"

#include "InputOutput/Location.hpp"
#include "KLRoot/Array.hpp"
#include "KLRoot/ClassInfo.hpp"
#include "KLRoot/Guid.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/Object.hpp"
#include "KLRoot/UniString.hpp"

#include <cstddef>
#include <cstdint>

namespace KL {
class ProcessControl;
}

namespace LM {

class ILibrarySetModifier;
class LibrarySet;

// The host's description of the libraries a project uses, in the order given unless sorted. Plain
// data: nothing is opened or walked until SetActiveLibraries hands it to a library set.
class LM_EXPORT LibraryList : public KL::Object {
public:
    static const KL::ClassInfo classInfo;

    // How Add treats an item whose name is already in the list.
    enum FilterByName : std::int32_t {
        // Names do not matter; items are compared by what they point to.
        NoFilter = 0,
        // The item already there wins, unless it is missing.
        KeepExistingName = 1,
        // The new item replaces the one of the same name.
        ReplaceExistingName = 2
    };
    enum DeleteEmbeddedLibraries : std::int32_t { DeleteEmbedded = 0, KeepEmbedded = 1 };

    LibraryList() = default;
    LibraryList(const LibraryList&) = default;
    LibraryList(LibraryList&&) = default;
    LibraryList& operator=(const LibraryList&) = default;
    LibraryList& operator=(LibraryList&&) = default;
    // One item for each active library of the set, in the set's order.
    explicit LibraryList(const LibrarySet& librarySet);
    ~LibraryList() override;

    const KL::ClassInfo* GetClassInfo() const override;

    // Stored lists: the current stream (version 2.0) or the older one (1.0, with "LL00" and "V100"
    // and the first generation's items). Embedded libraries are never stored, built-in ones only
    // `withBuiltIn`. A read of a version-2 stream empties the list first, one of version 1 adds.
    int Write(KL::OChannel& channel, bool withBuiltIn) const;
    // With the built-in libraries.
    int Write(KL::OChannel& channel) const override { return Write(channel, true); }
    int WriteAtVersion(KL::OChannel& channel, bool withBuiltIn, KL::ClassVersion version) const;
    int Read(KL::IChannel& channel) override;

    LibraryItem& operator[](std::size_t index) { return items[index]; }
    const LibraryItem& operator[](std::size_t index) const { return items[index]; }
    // Items of one mode; AllLibraryModes counts them all.
    int GetLibraryNum(LibraryMode mode) const;
    // The first item at `location`, or -1.
    int GetIndex(const IO::Location& location) const;
    // The first local library whose folder may be written to; -7003 when there is none.
    int GetFirstWritableLibrary(IO::Location* location) const;
    // False for a bad index.
    bool LibrarySupersedesOther(int superseding, int superseded) const;

    // Each returns the position of the item that stands for the new one: a matching item already
    // in the list, or the new item.
    int Add(const LibraryItem& item, FilterByName filter);
    int AddLibrary(const IO::Location& location, LibraryMode mode, VitalMode vital, const KL::Guid& guid,
                   const KL::UniString& langCode, bool collapseLongBranches);
    int AddLibrary(const KL::UniString& url);
    int AddServerLibrary(const IO::Location& serverId, const IO::RelativeLocation& relLocation,
                         const KL::UniString& sourceLocation, const IO::Location& location,
                         std::int64_t version);
    int AddOtherObject(const IO::Location& location);
    int AddOtherObject(const KL::UniString& url);
    int Merge(const LibraryList& other);

    // The scanning forms step on past each deletion, so the second of two adjacent matches stays.
    void Delete(const IO::Location& location);
    void Delete(const KL::UniString& url);
    // -7003 for a bad index.
    int Delete(unsigned int index);
    // Deletes the first equal item only; -7003 when there is none.
    int Delete(const LibraryItem& item);
    void DeleteAll(DeleteEmbeddedLibraries mode);

    // Built-in libraries first, then embedded, then local, each group and the rest by name.
    void SortByTypeAndName();

    // Every item here has its like in `other`; counts leave out embedded libraries, and built-in
    // ones unless `withBuiltIn`. The second argument has no effect.
    bool IsEqual(const LibraryList& other, bool, bool withBuiltIn, bool withEmbedded,
                 bool withVersions) const;
    // Embedded libraries do not count, yet each must be found in `other`; duplicates make the
    // test one-sided.
    bool operator==(const LibraryList& other) const;
    bool operator!=(const LibraryList& other) const { return !(*this == other); }

    // Replaces the set's active libraries with this list: built-in ones first, then embedded, then
    // local. Server libraries are left to the host's confirmLibraryList, which gets `hostData`
    // unchanged. True when `confirm` was asked and a server library was seen.
    bool SetActiveLibraries(KL::ProcessControl& process, const ILibrarySetModifier& modifier, bool confirm,
                            void* hostData = nullptr) const;

private:
    // Adds or finds the item, then names it if it has no name yet.
    int Push(LibraryItem item, FilterByName filter);
    int Place(LibraryItem&& item, FilterByName filter);
    int Append(LibraryItem&& item);
    // Embedded libraries are never stored nor compared; built-in ones only `withBuiltIn`.
    static bool IsStored(const LibraryItem& item, bool withBuiltIn);
    int CountStored(bool withBuiltIn) const;
    bool HasEqualItem(const LibraryItem& item, bool withVersions) const;
    // The host's text for a server id, when it has one.
    static KL::UniString ServerUrlOf(const IO::Location& serverId);

    int Write_1(KL::OChannel& channel, bool withBuiltIn) const;
    int Write_2(KL::OChannel& channel, bool withBuiltIn) const;
    int Read_1(KL::IChannel& channel);
    int Read_2(KL::IChannel& channel);

    KL::Array<LibraryItem> items;
};

} // namespace LM
