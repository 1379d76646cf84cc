#include "hierarchy/AncestryInfo.hpp"

#include "LibraryManagerErrors.hpp"
#include "Paths.hpp"

#include "KLRoot/Channel.hpp"
#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/Exceptions.hpp"
#include "KLRoot/IChannel.hpp"
#include "KLRoot/MemoryManager.hpp"
#include "KLRoot/OChannel.hpp"

#include <cstdint>
#include <utility>

namespace LM {

const KL::ClassInfo AncestryInfo::classInfo("LM::AncestryInfo",
                                            KL::Guid("1313560E-E236-4A01-A483-2097129166C6"), 1, 0);

namespace {

constexpr std::uint64_t MarkOffset = 0;
constexpr std::uint64_t CountOffset = 4;

// Sections are taken in the host's order; a part file in the other order is turned when it is read.
constexpr KL::PlatformSign SectionOrder = KL::HostPlatformSign;

std::uint32_t LoadWord(const char* section, std::uint64_t offset) {
    return KL::LoadInOrder<std::uint32_t>(section + offset, SectionOrder);
}

} // namespace

AncestryInfo::AncestryInfo(const char* const* const* section) {
    SetAncestrySection(section);
}

AncestryInfo::~AncestryInfo() = default;

const KL::ClassInfo* AncestryInfo::GetClassInfo() const {
    return &classInfo;
}

bool AncestryInfo::IsAncestor(const KL::UnID& id) const {
    return ancestors.Contains(id);
}

int AncestryInfo::SetAncestor(unsigned index, const KL::UnID& id) {
    ancestors[index - 1] = id;
    return 0;
}

KL::UnID AncestryInfo::GetParentID() const {
    return ancestors.IsEmpty() ? KL::NULLUnID : ancestors.GetLast();
}

int AncestryInfo::Append(const KL::UnID& id) {
    // `id` may lie in this very array, which growing would move.
    KL::UnID copy = id;
    ancestors.Push(std::move(copy));
    return 0;
}

void AncestryInfo::Clear() {
    ancestors.Clear();
    isTemplate = false;
}

char** AncestryInfo::GetAncestrySection() const {
    const std::uint64_t count = ancestors.GetSize();
    char** section = BMAllocateHandle(static_cast<std::int64_t>((count + 1) * RecordSize), BMClearFlag, 0);
    if (section == nullptr)
        ThrowMemoryManagerError(BMError());
    char* data = *section;
    KL::StoreInOrder(data + MarkOffset, std::uint32_t{isTemplate ? 1U : 0U}, SectionOrder);
    KL::StoreInOrder(data + CountOffset, static_cast<std::uint32_t>(count), SectionOrder);
    for (std::uint64_t i = 0; i < count; ++i) {
        char* record = data + (i + 1) * RecordSize;
        ancestors[i].mainGuid.ToRaw(record, SectionOrder);
        ancestors[i].revGuid.ToRaw(record + KL::Guid::RawSize, SectionOrder);
    }
    return section;
}

int AncestryInfo::SetAncestrySection(const char* const* const* section) {
    if (section == nullptr || *section == nullptr || **section == nullptr)
        return KL::ErrParam;
    ancestors.Clear();
    const char* data = **section;
    const auto size = static_cast<std::uint64_t>(BMGetHandleSize(const_cast<char**>(*section)));
    if (size < RecordSize)
        throw KL::IllegalArgumentException("Ancestry section shorter than its header.", __FILE__, __LINE__);
    const std::uint32_t count = LoadWord(data, CountOffset);
    if (count > (size - RecordSize) / RecordSize)
        throw KL::IllegalArgumentException("Ancestry count larger than its section.", __FILE__, __LINE__);
    isTemplate = LoadWord(data, MarkOffset) != 0;
    ancestors.SetCapacity(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        const char* record = data + (std::uint64_t{i} + 1) * RecordSize;
        ancestors.PushNew(KL::Guid::FromRaw(record, SectionOrder),
                          KL::Guid::FromRaw(record + KL::Guid::RawSize, SectionOrder));
    }
    return 0;
}

int AncestryInfo::CheckAndFix() {
    return CutAtFirstRepeat(nullptr);
}

int AncestryInfo::CheckAndFix(const KL::UnID& own) {
    return CutAtFirstRepeat(&own);
}

int AncestryInfo::CutAtFirstRepeat(const KL::UnID* own) {
    KL::Array<KL::UnID> seen(ancestors.GetSize() + 1);
    if (own != nullptr)
        seen.Push(*own);
    for (std::size_t i = 0; i < ancestors.GetSize(); ++i) {
        bool found = false;
        InsertIntoSorted(&seen, ancestors[i], &found);
        if (found) {
            ancestors.SetSize(i);
            break;
        }
    }
    return 0;
}

// Only the main guid counts: two revisions of one part are the same ancestor.
void AncestryInfo::InsertIntoSorted(KL::Array<KL::UnID>* sorted, const KL::UnID& id, bool* found) const {
    *found = false;
    std::size_t low = 1;
    std::size_t high = sorted->GetSize();
    while (low <= high) {
        const std::size_t middle = (low + high) / 2;
        const int order = (*sorted)[middle - 1].mainGuid.Compare(id.mainGuid);
        if (order == 0) {
            *found = true;
            return;
        }
        if (order < 0)
            low = middle + 1;
        else
            high = middle - 1;
    }
    sorted->Insert(low - 1, id);
}

int AncestryInfo::Read(KL::IChannel& channel) {
    KL::ScopedHandle block(BMAllocateHandle(RecordSize, 0, 0));
    if (block.Get() == nullptr)
        return BMError();
    if (const int error = channel.ReadBin(block.GetData(), RecordSize); error != KL::NoError)
        return error;
    const std::uint64_t recordsSize = std::uint64_t{LoadWord(block.GetData(), CountOffset)} * RecordSize;
    // The count is checked against what remains before anything is allocated for it.
    if (const int error = channel.RequireAvailable(recordsSize); error != KL::NoError)
        return error;
    if (BMReallocHandle(block.Get(), static_cast<std::int64_t>(RecordSize + recordsSize), 0, 0) == nullptr)
        return BMError();
    if (const int error = channel.ReadBin(block.GetData() + RecordSize, recordsSize); error != KL::NoError)
        return error;
    char** const data = block.Get();
    return SetAncestrySection(&data);
}

int AncestryInfo::Write(KL::OChannel& channel) const {
    const KL::ScopedHandle section(GetAncestrySection());
    const std::uint64_t before = channel.GetWrittenCount();
    const auto size = static_cast<std::uint64_t>(section.GetSize());
    channel.WriteBin(section.GetData(), size);
    return channel.GetWrittenCount() - before != size ? LibPartFileError : channel.GetStatus();
}

bool operator==(const AncestryInfo& a, const AncestryInfo& b) {
    if (a.GetAncestorsCount() != b.GetAncestorsCount())
        return false;
    for (unsigned k = 1; k <= a.GetAncestorsCount(); ++k) {
        if (a.GetAncestorRef(k) != b.GetAncestorRef(k))
            return false;
    }
    return true;
}

bool operator!=(const AncestryInfo& a, const AncestryInfo& b) {
    return !(a == b);
}

} // namespace LM
