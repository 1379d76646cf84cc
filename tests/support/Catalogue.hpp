#pragma once

// A started manager in a scratch folder, with helpers to write parts and to read the catalogue
// back as text, so tests compare what a host would see.
#include "support/ScratchFolder.hpp"

#include <LibraryManager.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

namespace testsupport {

inline KL::UnID TestId(std::uint32_t n) {
    return KL::UnID(KL::Guid(n, 0, 0, {}), KL::Guid(n, 1, 0, {}));
}

// Installs host callbacks for a test and takes them away again.
class ScopedCallBacks {
public:
    explicit ScopedCallBacks(const LM::LibraryManagerCallBacks& callBacks) {
        LM::InitLibraryManager(callBacks, LM::GetLibraryManagerStrings(), LM::GetSymbolFileGroup(),
                               LM::GetScriptFileType());
    }
    ~ScopedCallBacks() {
        LM::InitLibraryManager(LM::LibraryManagerCallBacks(), LM::GetLibraryManagerStrings(),
                               LM::GetSymbolFileGroup(), LM::GetScriptFileType());
    }
    ScopedCallBacks(const ScopedCallBacks&) = delete;
    ScopedCallBacks& operator=(const ScopedCallBacks&) = delete;
};

// Sets a section of a part file to the stream that `write` makes.
inline void SetStreamSection(LPF::SymbolFile& file, LPF::SectionTag tag,
                             const std::function<int(KL::OChannel&)>& write) {
    KL::MemoryOChannel stream(KL::HostPlatformSign);
    ASSERT_EQ(write(stream), 0);
    const std::vector<char>& bytes = stream.GetData();
    ASSERT_EQ(
        file.SetSectionDataRef(
            tag, 0, KL::BMNewHandleFrom(bytes.data(), static_cast<std::int64_t>(bytes.size())), true, -1),
        0);
}

class CatalogueTest : public ::testing::Test {
protected:
    explicit CatalogueTest(LM::BinaryCachingMode caching = LM::BinaryCachingInMemory) {
        EXPECT_EQ(manager.InitLibraryManager(caching, nullptr, nullptr, nullptr), 0);
    }

    LM::LibrarySet& Set() { return *manager.GetLibrarySet(); }

    // A part file with an own id, a document name and an ancestry chain.
    IO::Location SavePart(const std::string& relative, const KL::UnID& id, const char* documentName,
                          std::initializer_list<KL::UnID> ancestors = {}, bool isTemplate = false,
                          const std::function<void(LPF::SymbolFile&)>& adjust = {}) {
        LPF::SymbolFile file;
        file.SetOwnUnID(id);
        file.SetPlaceable(!isTemplate);
        file.SetDocumentName(KL::UniString(documentName));
        LM::AncestryInfo chain;
        for (const KL::UnID& ancestor : ancestors)
            chain.Append(ancestor);
        if (isTemplate)
            chain.MarkAsTemplate();
        EXPECT_EQ(file.SetSectionDataRef(LPF::Tags::Ancestry, 0, chain.GetAncestrySection(), true, -1), 0);
        if (adjust)
            adjust(file);
        scratch.Write(relative, "");
        // A test outlives no crash of the machine: its files need no sync each.
        EXPECT_EQ(file.Save(scratch.Location(relative), IOUtil::ScratchFile::SyncByCaller), 0);
        return scratch.Location(relative);
    }

#ifdef LM_SAMPLE_LIBRARY_DIR
    // The bundled sample library, built from its sources.
    int AddSampleLibrary() {
        return Set().AddActiveLibrary(process, IO::Location(LM_SAMPLE_LIBRARY_DIR), LM::LocalLibrary,
                                      LM::NotVital, KL::NULLGuid, KL::UniString(), false);
    }
#endif

    int AddLibrary(const std::string& relative, LM::VitalMode vital = LM::NotVital) {
        return Set().AddActiveLibrary(process, scratch.Location(relative), LM::LocalLibrary, vital,
                                      KL::NULLGuid, KL::UniString(), false);
    }

    std::string FolderPath(int folder) const {
        IO::Location location;
        if (manager.GetLibrarySet()->GetFolderSet()->IsValidIndex(folder))
            manager.GetLibrarySet()->GetFolderSet()->GetLocation(folder, &location);
        return Relative(location);
    }

    std::string Relative(const IO::Location& location) const {
        const std::string root = scratch.Location().ToString();
        const std::string path = location.ToString();
        return path.rfind(root, 0) == 0 ? path.substr(std::min(path.size(), root.size() + 1)) : path;
    }

    // One line per live record: place, folder, name and whether it is valid, sorted.
    std::vector<std::string> Catalogue() {
        std::vector<std::string> lines;
        for (int i = 0; i < Set().GetLibPartNumber(); ++i) {
            const LM::LibPart* part = Set().GetLibPartByIndex(i);
            if (part->GetState() == LM::LibPartStateDeleted)
                continue;
            lines.push_back(Relative(part->GetLocation()) + " in [" + FolderPath(part->GetFolderIndex()) +
                            "] " + part->GetDocumentName().ToUTF8() + (part->IsValid() ? "" : " (dummy)"));
        }
        std::sort(lines.begin(), lines.end());
        return lines;
    }

    const LM::DefLibraryErrorHandler& Reports() {
        return *manager.GetLibraryErrorHandler();
    }

    ScratchFolder scratch;
    LM::LibrarySetSingletonLP manager;
    KL::NonInterruptibleProcessControl process;
};

} // namespace testsupport
