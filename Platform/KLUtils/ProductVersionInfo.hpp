#pragma once

#include "InputOutput/Location.hpp"
#include "KLRoot/Array.hpp"
#include "KLRoot/Guid.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/UniString.hpp"

#include <cstdint>
#include <string_view>

namespace SU {

// The contents of a product's version file (docs/formats/version-file.md): what it is called,
// which library it updates, needs and supersedes.
//
// GetStatus is 0 when the whole file was read; otherwise it is the file layer's error, or
// VersionFileFormatError at the first fault, and the values read before the fault stay.
class LM_EXPORT ProductVersionInfo {
public:
    explicit ProductVersionInfo(const IO::Location& location);

    int GetStatus() const { return status; }
    // The 1-based line of the first fault, or 0 when no line is to blame.
    int GetErrorLine() const { return errorLine; }

    const KL::UniString& GetName() const { return name; }
    const KL::Guid& GetGuid() const { return guid; }
    const KL::UniString& GetKLLanguageCode() const { return languageCode; }
    std::int32_t GetVersionNum1() const { return versionNum1; }
    bool GetCollapseLongBranches() const { return collapseLongBranches; }
    const KL::UniString& GetUpdatesLibrary() const { return updatesLibrary; }
    const KL::Guid& GetUpdatesGuid() const { return updatesGuid; }
    const KL::Array<KL::UniString>& GetNeedsLibrary() const { return needsLibrary; }
    const KL::Array<KL::Guid>& GetNeedsGuid() const { return needsGuid; }
    const KL::Array<KL::UniString>& GetSupersedesLibrary() const { return supersedesLibrary; }
    const KL::Array<KL::Guid>& GetSupersedesGuid() const { return supersedesGuid; }

    // The release whose preferences and caches this build shares; names its preference folders.
    static KL::UniString GetPreferencesPostfix();

private:
    void Parse(std::string_view text);
    bool ApplyEntry(std::string_view key, std::string_view value);

    int status = 0;
    int errorLine = 0;
    KL::UniString name;
    KL::Guid guid;
    KL::UniString languageCode;
    std::int32_t versionNum1 = 0;
    bool collapseLongBranches = false;
    KL::UniString updatesLibrary;
    KL::Guid updatesGuid;
    KL::Array<KL::UniString> needsLibrary;
    KL::Array<KL::Guid> needsGuid;
    KL::Array<KL::UniString> supersedesLibrary;
    KL::Array<KL::Guid> supersedesGuid;
};

} // namespace SU
