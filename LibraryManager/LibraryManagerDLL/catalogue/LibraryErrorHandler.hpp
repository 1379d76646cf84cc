#pragma once

#include "InputOutput/Location.hpp"
#include "KLRoot/Array.hpp"
#include "KLRoot/Guid.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/PagedArray.hpp"
#include "KLRoot/UniString.hpp"

#include <cstdint>

namespace LM {

// One finding about parts that claim the same identity: each remaining member's place, active
// library and document name.
struct DuplicateReport {
    KL::UniString name;
    // The id the members share: the winner's for id duplicates, the main guid alone for a
    // revision conflict; null otherwise.
    KL::UnID unId;
    std::int32_t count = 0;
    KL::Array<IO::Location> locations;
    KL::Array<std::int32_t> actLibIndices;
    KL::Array<KL::UniString> names;
    // A revision conflict's members come revision by revision; this holds each member's revision.
    KL::Array<KL::Guid> revisions;
};

// Receives what an enumeration finds about duplicates; the catalogue rebuilds the whole picture
// after every change, starting with Reset.
class LM_EXPORT ILibraryErrorHandler {
public:
    virtual void Reset() = 0;
    // Every revision of one main guid in one report.
    virtual void ReportRevisionConflict(const DuplicateReport& report) = 0;
    virtual void ReportNameDuplicate(const DuplicateReport& report) = 0;
    virtual void ReportIdDuplicate(const DuplicateReport& report) = 0;
    virtual void ReportSameNameDifferentContent(const DuplicateReport& report) = 0;
    // False leaves the member at this location out of its report.
    virtual bool AcceptDuplicateLocation(const IO::Location& location) = 0;
    virtual ~ILibraryErrorHandler();
};

// Keeps every report, by kind, in order of arrival.
class LM_EXPORT DefLibraryErrorHandler : public ILibraryErrorHandler {
public:
    using Reports = KL::PagedArray<DuplicateReport>;

    void Reset() override;
    void ReportRevisionConflict(const DuplicateReport& report) override;
    void ReportNameDuplicate(const DuplicateReport& report) override;
    void ReportIdDuplicate(const DuplicateReport& report) override;
    void ReportSameNameDifferentContent(const DuplicateReport& report) override;
    bool AcceptDuplicateLocation(const IO::Location& location) override;
    ~DefLibraryErrorHandler() override;

    const Reports& GetIdDuplicates() const { return idDuplicates; }
    const Reports& GetNameDuplicates() const { return nameDuplicates; }
    const Reports& GetRevisionConflicts() const { return revisionConflicts; }
    const Reports& GetSameNameDifferentContents() const { return sameNameDifferentContents; }

private:
    Reports idDuplicates;
    Reports nameDuplicates;
    Reports revisionConflicts;
    Reports sameNameDifferentContents;
};

} // namespace LM
