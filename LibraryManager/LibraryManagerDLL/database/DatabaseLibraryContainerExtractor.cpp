#include "database/DatabaseLibraryContainerExtractor.hpp"

#include "LibraryManagerErrors.hpp"
#include "database/ContainerDatabase.hpp"
#include "database/DatabaseLibraryContainerAssociations.hpp"
#include "database/DatabaseLibraryContainerContent.hpp"
#include "database/DatabaseLibraryContainerRoot.hpp"
#include "services/LibraryManagerGlobals.hpp"

#include "InputOutput/File.hpp"
#include "InputOutput/FileSystem.hpp"
#include "InputOutput/IOErrors.hpp"
#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/ProcessControl.hpp"
#include "KLRoot/Thread.hpp"

#include <filesystem>

namespace LM {

namespace {

constexpr int ExtractionProcessId = 84;
// No path of a file system is this deep; a tree that is has a damaged link.
constexpr int MaxFolderDepth = 512;

// The progress of an extraction on the main thread, when no process runs yet: it shows a title
// and ends however the extraction does.
class MainThreadProgress {
public:
    explicit MainThreadProgress(KL::ProcessControl& process)
        : process(process), owned(KL::Thread::IsMain() && !process.IsProcessRunning()) {
        if (!owned)
            return;
        process.StartProcess(ExtractionProcessId);
        process.SetTitle(GetLibraryManagerStrings().containerExtractionTitle);
    }
    ~MainThreadProgress() {
        if (owned)
            process.EndProcess();
    }
    MainThreadProgress(const MainThreadProgress&) = delete;
    MainThreadProgress& operator=(const MainThreadProgress&) = delete;

private:
    KL::ProcessControl& process;
    bool owned;
};

} // namespace

DatabaseLibraryContainerExtractor::DatabaseLibraryContainerExtractor(const IO::Location& location,
                                                                     KL::PlatformSign sign)
    : idSpace(std::make_unique<ODB::IdSpace>("dlcExtractorIdSpace")),
      errorHandler(std::make_unique<DatabaseLibraryContainerErrorHandler>()), platform(sign) {
    fileDatabase = OpenContainerDatabase(location, *idSpace, *errorHandler, ODB::FileDatabase::ReadOnly);
    owner = ODB::ConstRef<ODB::Object>::Cast(fileDatabase->GetRootObject());
}

DatabaseLibraryContainerExtractor::DatabaseLibraryContainerExtractor(ODB::ConstRef<ODB::Object> object,
                                                                     KL::PlatformSign sign)
    : platform(sign), owner(std::move(object)) {}

// References go before the database they point into.
DatabaseLibraryContainerExtractor::~DatabaseLibraryContainerExtractor() {
    owner.Clear();
    fileDatabase.reset();
}

int DatabaseLibraryContainerExtractor::Extract(KL::ProcessControl& process, const IO::Location& target) {
    // The caller's destination may be a link to a folder; only what lies below it is guarded.
    std::error_code error;
    if (!std::filesystem::is_directory(target.ToString(), error))
        return LibPartFileError;
    destination = target;
    return ProcessDatabaseLibraryContainer(process);
}

int DatabaseLibraryContainerExtractor::ProcessDatabaseLibraryContainer(KL::ProcessControl& process) {
    if (!owner.IsLive())
        return LibPartFileError;
    const MainThreadProgress progress(process);
    int result = LibPartFileError;
    const auto root =
        ODB::ConstRef<DatabaseLibraryContainerRoot>::Cast(DLCOwnerRootAssociation.GetRight(owner));
    if (root.IsLive()) {
        // The platform the container was written on wins over the caller's guess.
        platform = static_cast<KL::PlatformSign>(root->GetPlatform());
        const auto top =
            ODB::ConstRef<DatabaseLibraryContainerEntry>::Cast(DLCRootFolderAssociation.GetRight(root));
        if (!ODB::ConstRef<DatabaseLibraryContainerFolder>::Cast(top).IsNull()) {
            paths.MeasureBase(destination);
            walkedFolders = {top.GetId()};
            result = ProcessDLCEntry(top, destination, 0);
        }
    }
    return result;
}

// Failures show in HasFailed and WasAccessDenied; the walk itself always ends with 0.
int DatabaseLibraryContainerExtractor::ProcessDLCEntry(
    const ODB::ConstRef<DatabaseLibraryContainerEntry>& entry, const IO::Location& location, int depth) {
    for (DLCChildrenConstIterator child(entry); !child.IsEnd(); ++child) {
        const ODB::ConstRef<DatabaseLibraryContainerEntry> current = *child;
        const auto folder = ODB::ConstRef<DatabaseLibraryContainerFolder>::Cast(current);
        if (folder.IsNull()) {
            const auto header = ODB::ConstRef<DatabaseLibraryContainerLibPartHeader>::Cast(current);
            if (!header.IsNull() && header->GetNameIO().IsValid())
                ExtractFile(location + header->GetNameIO(), header);
            continue;
        }
        const IO::Name name = folder->GetNameIO();
        // An empty folder is not made, nor one met before or deeper than any path.
        if (!name.IsValid() || !DLCChildrenAssociation.IsConnectedAsLeft(folder) || depth >= MaxFolderDepth ||
            !walkedFolders.insert(folder.GetId()).second)
            continue;
        const IO::Location folderLocation = location + name;
        paths.EnterFolder(name);
        ExtractFolder(folderLocation);
        ProcessDLCEntry(current, folderLocation, depth + 1);
        paths.ExitFolder(name);
    }
    return 0;
}

int DatabaseLibraryContainerExtractor::ExtractFolder(const IO::Location& location) {
    if (paths.MakeFolder(location) != KL::NoError)
        failed = true;
    return 1;
}

int DatabaseLibraryContainerExtractor::ExtractFile(
    const IO::Location& location, const ODB::ConstRef<DatabaseLibraryContainerLibPartHeader>& header) {
    IO::Location target;
    if (paths.FileTarget(destination, location, &target) != KL::NoError)
        failed = true;
    auto content = header->GetContent();
    FileStamp stamp;
    if (content.IsLive())
        stamp = {content->GetMacType(), content->GetMacCreator(), content->GetCreationTime(),
                 content->GetModificationTime()};
    const ExtractionPaths::Written written = paths.WriteTarget(target, stamp, [&content](IO::File& out) {
        return content.IsLive() ? content->WriteToChannel(out.GetOutputChannel()) : LibPartFileError;
    });
    // Each content is read once.
    content.ClearAndUnload();
    if (written.dropped)
        ++droppedFileCount;
    else if (written.status != KL::NoError) {
        failed = true;
        accessDenied = accessDenied || written.status == IO::AccessDeniedError;
    }
    if (written.status != KL::NoError)
        return written.status;
    ++extractedFileCount;
    if (const int converted = ConvertExtractedText(target, stamp.macType, platform);
        converted != KL::NoError) {
        failed = true;
        return converted;
    }
    return KL::NoError;
}

} // namespace LM
