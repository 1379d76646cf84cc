#include "ContainerCommands.hpp"
#include "CatalogueSession.hpp"
#include "Interrupt.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fnmatch.h>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <unistd.h>
#include <utility>
#include <vector>

namespace libmgr {

namespace {

// A line on a terminal that counts files as the work polls: container files once per 16 files,
// database containers once per 8.
class FileProgress : public KL::ProcessControl {
public:
    FileProgress(const char* verb, int total, bool enabled, int filesPerStep = 16)
        : verb(verb), total(total), filesPerStep(filesPerStep), enabled(enabled) {}
    ~FileProgress() override {
        if (enabled && shown)
            std::cerr << "\r\x1b[K" << std::flush;
    }
    bool BreakRequested() override { return Interrupted(); }

protected:
    void ProgressChanged() override {
        if (!enabled || GetStep() == 0)
            return;
        std::cerr << "\r\x1b[K" << verb << "  " << GetStep() * filesPerStep;
        if (total > 0)
            std::cerr << " of " << total;
        std::cerr << " files" << std::flush;
        shown = true;
    }

private:
    const char* verb;
    int total;
    int filesPerStep;
    bool enabled;
    bool shown = false;
};

bool ShowsProgress(const Options& options) {
    return !options.quiet && !options.json && ::isatty(STDERR_FILENO) == 1;
}

// "45.0 KiB", "465.2 MiB".
std::string Size(std::uint64_t bytes) {
    const bool large = bytes >= 1024 * 1024;
    std::ostringstream text;
    text << std::fixed << std::setprecision(1)
         << static_cast<double>(bytes) / (large ? 1024.0 * 1024.0 : 1024.0) << (large ? " MiB" : " KiB");
    return text.str();
}

std::string Seconds(double seconds) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(2) << seconds << " s";
    return text.str();
}

// A summary as JSON with --json, else as aligned lines; nothing with -q.
void PrintSummary(const Options& options, const nlohmann::json& json,
                  const std::vector<std::pair<std::string, std::string>>& lines) {
    if (options.json) {
        std::cout << json.dump(2) << '\n';
        return;
    }
    if (options.quiet)
        return;
    for (const auto& [label, value] : lines)
        std::cout << std::left << std::setw(12) << label << value << '\n';
}

double SecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// ---- pack

// The compression the options ask for: nullopt for none; false when the level is no level.
bool ReadCompression(const Options& options, std::optional<IO::ZipOChannelOptions>* zip) {
    if (!options.Has("--compress"))
        return true;
    IO::ZipOChannelOptions chosen;
    chosen.level = 1; // packing is for shipping often: speed first, as zip -1
    if (const std::string* level = options.Value("--compress")) {
        if (level->size() != 1 || (*level)[0] < '0' || (*level)[0] > '9')
            return false;
        chosen.level = static_cast<std::uint32_t>((*level)[0] - '0');
    }
    *zip = chosen;
    return true;
}

// The parts whose place inside their library ("folder/file.klm") or file name matches.
KL::HashTable<const LM::LibPart*, bool> SelectParts(Session& session, const std::string& pattern) {
    KL::HashTable<const LM::LibPart*, bool> selection;
    for (LM::LibItemIterator part(session.Set(), LM::LibItemIterator::ValidItemsOnly); part != nullptr;
         ++part) {
        const std::string display = session.Display(part->GetOrigLocation());
        const std::size_t slash = display.find('/');
        const std::string inside = slash == std::string::npos ? display : display.substr(slash + 1);
        const std::string file = part->GetFileName().ToUTF8();
        const bool matches = fnmatch(pattern.c_str(), inside.c_str(), 0) == 0 ||
                             fnmatch(pattern.c_str(), file.c_str(), 0) == 0;
        selection.Put(part.Get(), matches);
    }
    return selection;
}

struct PackCounts {
    int parts = 0;
    int folders = 0;
    std::uint64_t bytesIn = 0;
    std::uint64_t bytesOut = 0;
};

void PrintPackSummary(const Options& options, const std::string& target, const PackCounts& counts,
                      double seconds) {
    PrintSummary(
        options,
        {{"container", target},
         {"parts", counts.parts},
         {"files", counts.parts},
         {"folders", counts.folders},
         {"bytesIn", counts.bytesIn},
         {"bytesOut", counts.bytesOut},
         {"compressed", options.Has("--compress")},
         {"database", options.Has("--database")},
         {"seconds", seconds}},
        {{"container", target},
         {"parts", std::to_string(counts.parts) + " in " + std::to_string(counts.folders) + " folders"},
         {"bytes in", Size(counts.bytesIn)},
         {"bytes out",
          Size(counts.bytesOut) + " (" +
              std::to_string(counts.bytesOut * 100 / std::max<std::uint64_t>(counts.bytesIn, 1)) +
              " % of in)"},
         {"time", Seconds(seconds)}});
}

int NoPartToPack(const Arguments& arguments, bool selected) {
    return Complain(arguments, "no part to pack" + std::string(selected ? " matches --only" : ""),
                    ExitFailure);
}

int PackFailed(const Arguments& arguments, const IO::Location& target, const std::string& why) {
    if (Interrupted())
        return Complain(arguments, "interrupted; " + target.ToString() + " was left as it was", ExitFailure);
    return Complain(arguments, "could not write " + target.ToString() + ": " + why, ExitFailure);
}

int PackContainerFile(const Arguments& arguments, const Options& options, Session& session,
                      const KL::HashTable<const LM::LibPart*, bool>* selection, const IO::Location& target,
                      const LM::ContainerWriteOptions& writeOptions, PackCounts* counts) {
    LM::ContainerWriter writer(&session.Set(), writeOptions);
    writer.BuildTree(selection);
    if (writer.GetPartCount() == 0)
        return NoPartToPack(arguments, selection != nullptr);
    FileProgress progress("packing", writer.GetPartCount(), ShowsProgress(options));
    if (const int written = writer.WriteToLocation(progress, target); written != 0)
        return PackFailed(arguments, target, ErrorText(written));
    *counts = {writer.GetPartCount(), writer.GetFoldersWritten(), writer.GetBytesRead(),
               writer.GetBytesWritten()};
    return ExitSuccess;
}

int CountPackedParts(Session& session, const KL::HashTable<const LM::LibPart*, bool>* selection) {
    int count = 0;
    for (LM::LibItemIterator part(session.Set(), LM::LibItemIterator::AllItems); part != nullptr; ++part)
        count += LM::IsPackedPart(session.Set(), selection, part.Get()) ? 1 : 0;
    return count;
}

int PackDatabase(const Arguments& arguments, const Options& options, Session& session,
                 const KL::HashTable<const LM::LibPart*, bool>* selection, const IO::Location& target,
                 bool createTopFolder, PackCounts* counts) {
    const int parts = CountPackedParts(session, selection);
    if (parts == 0)
        return NoPartToPack(arguments, selection != nullptr);
    LM::DatabaseContainerBuilder builder(&session.Set(), selection);
    FileProgress progress("packing", parts, ShowsProgress(options), 8);
    try {
        if (!LM::WriteDatabaseContainerFile(progress, builder, target, createTopFolder))
            return PackFailed(arguments, target, "the database could not be written");
    } catch (const KL::KLException& fault) {
        return PackFailed(arguments, target, fault.GetMessage());
    }
    std::error_code error;
    *counts = {builder.GetPartCount(), builder.GetFolderCount(), builder.GetBytesRead(),
               static_cast<std::uint64_t>(std::filesystem::file_size(target.ToString(), error))};
    return ExitSuccess;
}

int Pack(const Arguments& arguments, const Options& options, const IO::Location& target,
         const LM::ContainerWriteOptions& writeOptions) {
    Session session;
    if (const int opened = session.Open(arguments, options); opened != ExitSuccess)
        return opened;
    std::optional<KL::HashTable<const LM::LibPart*, bool>> selection;
    if (const std::string* pattern = options.Value("--only"))
        selection = SelectParts(session, *pattern);
    const auto* chosen = selection ? &*selection : nullptr;

    const auto start = std::chrono::steady_clock::now();
    InterruptGuard guard;
    PackCounts counts;
    const int packed = options.Has("--database") ? PackDatabase(arguments, options, session, chosen, target,
                                                                writeOptions.CreateTopFolder(), &counts)
                                                 : PackContainerFile(arguments, options, session, chosen,
                                                                     target, writeOptions, &counts);
    if (packed != ExitSuccess)
        return packed;
    PrintPackSummary(options, target.ToString(), counts, SecondsSince(start));
    return ExitSuccess;
}

// ---- unpack

bool IsEmptyFolder(const std::string& path) {
    std::error_code error;
    return std::filesystem::is_empty(path, error) && !error;
}

struct UnpackCounts {
    int extracted = 0;
    int dropped = 0;
    bool accessDenied = false;
    bool failed = false; // a folder or file that could not be made
};

void PrintUnpackSummary(const Options& options, const std::string& destination, const UnpackCounts& counts,
                        double seconds) {
    PrintSummary(
        options,
        {{"destination", destination},
         {"files", counts.extracted},
         {"unreadable", counts.dropped},
         {"seconds", seconds}},
        {{"folder", destination}, {"files", std::to_string(counts.extracted)}, {"time", Seconds(seconds)}});
}

int UnpackContainerFile(const Arguments& arguments, const Options& options, const IO::Location& from,
                        const IO::Location& to, UnpackCounts* counts) {
    IO::File file(from);
    if (const int err = file.Open(IO::File::ReadMode); err != KL::NoError)
        return Complain(arguments, from.ToString() + ": " + ErrorText(err), ExitFailure);
    LM::LibraryContainerExtractor extractor;
    int result = 0;
    {
        FileProgress progress("unpacking", 0, ShowsProgress(options));
        result = extractor.Extract(progress, file, to, false, options.Has("--skip-top-folder"),
                                   options.Has("--flatten"));
    }
    *counts = {extractor.GetExtractedFileCount(), extractor.GetDroppedFileCount(),
               result == LM::ContainerWalkSoftFailure, false};
    if (result == LM::LibPartFileError && !Interrupted())
        return Complain(arguments,
                        from.ToString() + ": damaged container; " + to.ToString() +
                            " holds what could be read",
                        ExitFailure);
    return ExitSuccess;
}

int UnpackDatabase(const Arguments& arguments, const Options& options, const IO::Location& from,
                   const IO::Location& to, UnpackCounts* counts) {
    if (options.Has("--flatten") || options.Has("--skip-top-folder"))
        std::cerr << "libmgr unpack: --flatten and --skip-top-folder do not apply to a database container\n";
    std::error_code error;
    std::filesystem::create_directories(to.ToString(), error);
    try {
        LM::DatabaseLibraryContainerExtractor extractor(from, KL::LittleEndianSign);
        FileProgress progress("unpacking", 0, false);
        if (extractor.Extract(progress, to) != 0)
            return Complain(arguments,
                            from.ToString() + ": no container in this database, or " + to.ToString() +
                                " is no folder",
                            ExitFailure);
        *counts = {extractor.GetExtractedFileCount(), extractor.GetDroppedFileCount(),
                   extractor.WasAccessDenied(), extractor.HasFailed() && !extractor.WasAccessDenied()};
    } catch (const KL::KLException& fault) {
        return Complain(arguments,
                        from.ToString() + ": damaged container (" + fault.GetMessage() + "); " +
                            to.ToString() + " holds what could be read",
                        ExitFailure);
    }
    return ExitSuccess;
}

int Unpack(const Arguments& arguments, const Options& options, const std::string& source,
           const std::string& destination) {
    const std::optional<IO::Location> from = PathToLocation(source);
    const std::optional<IO::Location> to = PathToLocation(destination);
    if (!from || !to)
        return Complain(arguments, "a path that makes no place: " + (!from ? source : destination),
                        ExitUsage);
    std::error_code error;
    if (!std::filesystem::is_regular_file(source, error))
        return Complain(arguments, source + ": no such file", ExitFailure);
    const bool isDatabase = !LM::CheckIfContainer(*from);
    if (isDatabase && !LM::IsOpenableDatabaseContainer(*from))
        return Complain(arguments, source + ": not a container file", ExitFailure);
    if (std::filesystem::exists(destination, error) && !IsEmptyFolder(destination) && !options.Has("--force"))
        return Complain(arguments, destination + " is not empty; use --force to unpack into it anyway",
                        ExitFailure);

    const auto start = std::chrono::steady_clock::now();
    InterruptGuard guard;
    UnpackCounts counts;
    const int unpacked = isDatabase ? UnpackDatabase(arguments, options, *from, *to, &counts)
                                    : UnpackContainerFile(arguments, options, *from, *to, &counts);
    if (Interrupted())
        return Complain(arguments, "interrupted; " + destination + " holds what was unpacked so far",
                        ExitFailure);
    if (unpacked != ExitSuccess)
        return unpacked;
    PrintUnpackSummary(options, destination, counts, SecondsSince(start));
    if (counts.accessDenied)
        return Complain(arguments, "some files could not be made for want of permission", ExitFailure);
    if (counts.failed)
        return Complain(arguments, "some folders or files could not be made in " + destination, ExitFailure);
    if (counts.dropped > 0)
        return Complain(arguments,
                        std::to_string(counts.dropped) + " files of the container could not be read",
                        ExitFailure);
    return ExitSuccess;
}

} // namespace

int RunPackCommand(const Arguments& arguments) {
    const CommandHelp help{
        "pack LIB... -o OUT.lcf [--compress[=LEVEL] | --database] [--no-top-folder] [--only PATTERN] "
        "[--json] [-q]",
        "Packs the parts of libraries into one container file, to ship them. The container is\n"
        "written beside OUT.lcf and takes its place only when complete: an interrupted or failed\n"
        "pack leaves an older OUT.lcf as it was.\n"
        "\n"
        "  -o OUT.lcf         the container file to write\n"
        "  --compress[=N]     compress every file, level 0 to 9 (default 1: fast)\n"
        "  --database         write a database container instead: one SQLite file whose files\n"
        "                     a host reads object by object; never compressed. Without the top\n"
        "                     folder it holds the first library only\n"
        "  --no-top-folder    readers show the libraries' contents without their top folder\n"
        "  --only PATTERN     only parts whose place inside their library or file name matches\n"
        "                     the shell pattern, e.g. 'Doors/*' or '*.klm'\n"
        "  --json             print the summary as JSON\n"
        "  -q, --quiet        print nothing on success\n"};
    if (arguments.WantsHelp()) {
        PrintCatalogueHelp(help);
        return ExitSuccess;
    }
    int exitCode = ExitSuccess;
    const std::optional<Options> options =
        ParseOptions(arguments, {"-o", "--only"}, &exitCode, {"--compress", "--no-top-folder", "--database"});
    if (!options)
        return exitCode;
    const std::string* output = options->Value("-o");
    if (output == nullptr)
        return Complain(arguments, "where to? give the container file with -o OUT.lcf", ExitUsage);
    const std::optional<IO::Location> target = PathToLocation(*output);
    std::error_code error;
    if (!target || std::filesystem::is_directory(*output, error))
        return Complain(arguments, *output + ": not a place for a container file", ExitUsage);
    std::optional<IO::ZipOChannelOptions> zip;
    if (!ReadCompression(*options, &zip))
        return Complain(arguments, "--compress takes a level from 0 to 9", ExitUsage);
    if (zip && options->Has("--database"))
        return Complain(arguments, "a database container is not compressed: give --compress or --database",
                        ExitUsage);
    const LM::ContainerWriteOptions writeOptions(zip ? &*zip : nullptr, !options->Has("--no-top-folder"));
    return Pack(arguments, *options, *target, writeOptions);
}

int RunUnpackCommand(const Arguments& arguments) {
    if (arguments.WantsHelp()) {
        std::cout
            << "Usage: libmgr unpack CONTAINER -o DIR [--flatten] [--skip-top-folder] [--force] [--json] "
               "[-q]\n"
               "\n"
               "Unpacks a container file or a database container into a folder, with every file's\n"
               "modification time. Nothing is written outside DIR, whatever names the container\n"
               "holds; paths too long for the system go to side folders 0000-1, 0000-2, ... of DIR.\n"
               "A database container keeps no empty folder.\n"
               "\n"
               "  -o DIR             the folder to unpack into; made if missing, and it must be\n"
               "                     empty unless --force is given\n"
               "  --flatten          leave out folders that only wrap a single folder (container\n"
               "                     files only)\n"
               "  --skip-top-folder  leave out the container's top folder (container files only)\n"
               "  --force            unpack into a folder that is not empty, replacing same-named files\n"
               "  --json             print the summary as JSON\n"
               "  -q, --quiet        print nothing on success\n";
        return ExitSuccess;
    }
    int exitCode = ExitSuccess;
    const std::optional<Options> options =
        ParseOptions(arguments, {"-o"}, &exitCode, {"--flatten", "--skip-top-folder", "--force"});
    if (!options)
        return exitCode;
    if (options->libraries.size() != 1)
        return Complain(arguments, "unpack takes one container file", ExitUsage);
    const std::string* output = options->Value("-o");
    if (output == nullptr)
        return Complain(arguments, "where to? give the folder with -o DIR", ExitUsage);
    return Unpack(arguments, *options, options->libraries.front(), *output);
}

} // namespace libmgr
