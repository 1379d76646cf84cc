#pragma once

#include "KLRoot/Array.hpp"
#include "KLRoot/Guid.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/Object.hpp"

namespace LM {

// The chain of ancestor ids of one part, root first and parent last, with the part's template
// mark. Its byte form is the part file's "ANCS" section, in the host's byte order:
//   u32 template mark (0 or 1), u32 ancestor count, 24 reserved bytes (zero),
//   then per ancestor its main and its revision guid in their raw form, 32 bytes.
// Read and Write use the same bytes, without a frame, so a stored section can be streamed as is.
class LM_EXPORT AncestryInfo : public KL::Object {
public:
    static const KL::ClassInfo classInfo;
    static constexpr unsigned RecordSize = 32;

    AncestryInfo() = default;
    AncestryInfo(const AncestryInfo&) = default;
    // Raises KL::IllegalArgumentException for a section whose count does not fit its size.
    explicit AncestryInfo(const char* const* const* section);
    AncestryInfo& operator=(const AncestryInfo&) = default;
    ~AncestryInfo() override;

    const KL::ClassInfo* GetClassInfo() const override;

    void MarkAsTemplate() { isTemplate = true; }
    void MarkAsNonTemplate() { isTemplate = false; }
    bool IsTemplate() const { return isTemplate; }

    unsigned GetAncestorsCount() const { return static_cast<unsigned>(ancestors.GetSize()); }
    bool IsAncestor(const KL::UnID& id) const;
    // 1-based, unchecked: index 1 is the root, GetAncestorsCount() the parent.
    const KL::UnID& GetAncestorRef(unsigned index) const { return ancestors[index - 1]; }
    // Root first, parent last.
    const KL::Array<KL::UnID>& GetAncestors() const { return ancestors; }
    int SetAncestor(unsigned index, const KL::UnID& id);
    // The nearest ancestor, or the null id for an empty chain.
    KL::UnID GetParentID() const;
    int Append(const KL::UnID& id);
    void Clear();

    // A new handle in the section format, owned by the caller; raises KL::OutOfMemoryException.
    char** GetAncestrySection() const;
    // -50 for a null handle. A count larger than the handle holds, or a handle shorter than the
    // header, raises KL::IllegalArgumentException and leaves the chain empty.
    int SetAncestrySection(const char* const* const* section);

    // Cuts the chain before the first ancestor whose main guid appeared already, in the chain or as
    // `own`, so that a part naming itself or repeating an ancestor cannot make the type tree loop.
    int CheckAndFix();
    int CheckAndFix(const KL::UnID& own);

    int Read(KL::IChannel& channel) override;
    int Write(KL::OChannel& channel) const override;

private:
    int CutAtFirstRepeat(const KL::UnID* own);
    void InsertIntoSorted(KL::Array<KL::UnID>* sorted, const KL::UnID& id, bool* found) const;

    bool isTemplate = false;
    KL::Array<KL::UnID> ancestors;
};

// Equal chains are equal whatever their template marks.
LM_EXPORT bool operator==(const AncestryInfo& a, const AncestryInfo& b);
LM_EXPORT bool operator!=(const AncestryInfo& a, const AncestryInfo& b);

} // namespace LM
