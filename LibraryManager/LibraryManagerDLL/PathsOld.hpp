#pragma once

#include "KLRoot/Array.hpp"
#include "KLRoot/ClassInfo.hpp"
#include "KLRoot/Guid.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/Object.hpp"

#include <cstdint>

namespace LM {

// The array form that path trees had before they became trees. It survives as a stream that
// hierarchy streams still carry, in a new framed form and an old block form.
class LM_EXPORT PathsOld : public KL::Object {
public:
    // One stored node; the three leading words and the last one are links of the array form.
    class LM_EXPORT TreeEntry : public KL::Object {
    public:
        static constexpr std::uint64_t StreamSize = 3 * 4 + 2 * KL::Guid::RawSize + 4;

        TreeEntry() = default;
        TreeEntry(const TreeEntry&) = default;
        TreeEntry& operator=(const TreeEntry&) = default;
        ~TreeEntry() override;

        int Read(KL::IChannel& channel) override;
        int Write(KL::OChannel& channel) const override;

        bool operator==(const TreeEntry& other) const;

        std::uint32_t links[3] = {};
        KL::UnID id;
        std::uint32_t next = 0;
    };

    static const KL::ClassInfo entryArrayClassInfo;
    static constexpr std::uint16_t OldBlockVersion = 1;
    static constexpr std::uint32_t OldRecordSize = 56;

    // Holds only the root entry, at index 1.
    PathsOld();
    ~PathsOld() override;

    std::size_t GetEntryCount() const { return entries.GetSize(); }
    const TreeEntry& GetEntry(std::size_t index) const { return entries[index]; }
    std::uint32_t GetRootIndex() const { return rootIndex; }

    int Read(KL::IChannel& channel) override;
    int Write(KL::OChannel& channel) const override;
    int ReadOld(KL::IChannel& channel);
    int WriteOld(KL::OChannel& channel) const;

private:
    int ReadHead(KL::IChannel& channel);
    int WriteHead(KL::OChannel& channel) const;

    KL::Array<TreeEntry> entries;
    std::uint32_t reserved = 0;
    std::uint32_t rootIndex = 1;
};

} // namespace LM
