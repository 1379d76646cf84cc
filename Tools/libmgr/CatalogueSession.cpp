#include "CatalogueSession.hpp"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <unistd.h>

namespace libmgr {

namespace {

// Shows the library being walked on a terminal, and nothing anywhere else.
class TerminalProgress : public KL::ProcessControl {
public:
    explicit TerminalProgress(bool enabled) : enabled(enabled) {}
    ~TerminalProgress() override { Clear(); }
    bool BreakRequested() override {
        // The walker asks once per 50 parts stored: a cheap moment to show that work goes on.
        ++polls;
        Show();
        return false;
    }
    void Clear() {
        if (enabled && shown)
            std::cerr << "\r\x1b[K" << std::flush;
        shown = false;
    }

protected:
    void PhaseChanged() override {
        polls = 0;
        Show();
    }

private:
    void Show() {
        if (!enabled)
            return;
        std::cerr << "\r\x1b[Kenumerating " << GetPhaseText().ToUTF8() << "  " << polls * 50 << " parts"
                  << std::flush;
        shown = true;
    }

    bool enabled;
    bool shown = false;
    long polls = 0;
};

// Set by the host callbacks when a library's walk failed somewhere; the walk itself goes on.
bool walkFailed = false;

void NoteWalkFailure(const IO::Folder&) {
    walkFailed = true;
}

int CollectSection(const LPF::SectionInfo& info, void* userData) {
    char tag[5];
    LPF::TagToText(info.tag, tag);
    static_cast<nlohmann::json*>(userData)->push_back(
        {{"tag", tag}, {"index", info.subIdent}, {"version", info.version}, {"size", info.size}});
    return 0;
}

std::string StateWordOf(const LM::LibPart& part, int damage) {
    return !part.IsValid() ? "dummy" : damage != KL::NoError ? "damaged" : "valid";
}

} // namespace

const std::string* Options::Value(const std::string& name) const {
    const auto found = values.find(name);
    return found != values.end() ? &found->second.back() : nullptr;
}

std::vector<std::string> Options::All(const std::string& name) const {
    const auto found = values.find(name);
    return found != values.end() ? found->second : std::vector<std::string>();
}

void PrintCatalogueHelp(const CommandHelp& help) {
    std::cout << "Usage: libmgr " << help.usage << "\n\n"
              << help.text
              << "  --no-cache   walk every library: neither replay nor write the library cache\n"
                 "  --strict     exit with 1 when a file was passed over or cannot be read\n"
                 "  -v           name every file or folder passed over, not only how many\n\n"
                 "A LIB is a library folder, or a container of one (.lcf: a container file or a\n"
                 "database container, told apart by content). Unchanged libraries are replayed\n"
                 "from the cache in the user cache folder.\n";
}

std::optional<Options> ParseOptions(const Arguments& arguments,
                                    std::initializer_list<const char*> valueOptions, int* exitCode,
                                    std::initializer_list<const char*> flagOptions) {
    auto isAmong = [](std::initializer_list<const char*> names, const std::string& value) {
        return std::any_of(names.begin(), names.end(), [&value](const char* name) { return value == name; });
    };
    Options options;
    const std::vector<std::string>& values = arguments.values;
    for (std::size_t i = 0; i < values.size(); ++i) {
        const std::string& value = values[i];
        const std::size_t equals = value.starts_with("--") ? value.find('=') : std::string::npos;
        const std::string name = value.substr(0, equals);
        if (value == "--json") {
            options.json = true;
        } else if (value == "-q" || value == "--quiet") {
            options.quiet = true;
        } else if (value == "--no-cache") {
            options.noCache = true;
        } else if (value == "-v" || value == "--verbose") {
            options.verbose = true;
        } else if (value == "--strict") {
            options.strict = true;
        } else if (isAmong(flagOptions, name)) {
            options.flags.insert(name);
            if (equals != std::string::npos)
                options.values[name].push_back(value.substr(equals + 1));
        } else if (isAmong(valueOptions, name)) {
            if (equals != std::string::npos) {
                options.values[name].push_back(value.substr(equals + 1));
            } else if (i + 1 == values.size()) {
                *exitCode = Complain(arguments,
                                     value + " needs a value; see 'libmgr " + arguments.command + " --help'",
                                     ExitUsage);
                return std::nullopt;
            } else {
                options.values[value].push_back(values[++i]);
            }
        } else if (value.starts_with("-")) {
            *exitCode = Complain(arguments, "unknown option '" + value + "'", ExitUsage);
            return std::nullopt;
        } else {
            options.libraries.push_back(value);
        }
    }
    if (options.libraries.empty()) {
        *exitCode =
            Complain(arguments, "which library? see 'libmgr " + arguments.command + " --help'", ExitUsage);
        return std::nullopt;
    }
    return options;
}

int Session::Open(const Arguments& arguments, const Options& options) {
    for (const std::string& path : options.libraries) {
        std::error_code error;
        const std::optional<IO::Location> location = PathToLocation(path);
        if (!location || !std::filesystem::exists(path, error))
            return Complain(arguments, path + ": no such folder or file", ExitFailure);
        if (!std::filesystem::is_directory(path, error) && !LM::CheckIfContainer(*location) &&
            !LM::IsOpenableDatabaseContainer(*location))
            return Complain(arguments, path + ": neither a folder nor a container file", ExitFailure);
        libraries.Push(*location);
    }
    if (const std::string problem = KLPref::CheckPreferenceFile(); !problem.empty())
        Complain(arguments, "warning: " + problem, ExitSuccess);
    const LM::BinaryCachingMode caching =
        options.noCache ? LM::BinaryCachingInMemory : LM::BinaryCachingOnDisk;
    if (manager.InitLibraryManager(caching, nullptr, nullptr, nullptr) != 0)
        return Complain(arguments, "the library manager did not start", ExitFailure);
    LM::LibraryManagerCallBacks callBacks = LM::GetLibraryManagerCallBacks();
    callBacks.libraryPathTooLong = callBacks.libraryWalkFailedWithCode = callBacks.libraryWalkFailed =
        NoteWalkFailure;
    LM::InitLibraryManager(callBacks, LM::GetLibraryManagerStrings(), LM::GetSymbolFileGroup(),
                           LM::GetScriptFileType());
    walkFailed = false;
    passedOverNamesBefore = IO::GetPassedOverNameCount();
    TerminalProgress progress(!options.quiet && !options.json && ::isatty(STDERR_FILENO) == 1);
    const auto start = std::chrono::steady_clock::now();
    manager.AddLibraries(progress, libraries);
    seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    progress.Clear();
    if (!Set().IsEnumerated())
        return Complain(arguments, "the libraries could not be enumerated", ExitFailure);
    // Check names them itself; everyone else hears of them once.
    damagedCount = CountDamaged();
    if (damagedCount > 0 && !options.quiet && arguments.command != "check")
        Complain(arguments,
                 std::to_string(damagedCount) + (damagedCount == 1 ? " part file" : " part files") +
                     " could not be read; 'libmgr check' names them",
                 ExitSuccess);
    return ExitSuccess;
}

std::string Session::Display(const IO::Location& location) {
    int library = Set().GetLibItemLibraryIndex(location);
    // A library's own folder is the library.
    for (int i = 0; library < 0 && i < Set().GetActiveLibraryNum(); ++i) {
        IO::Location libraryLocation;
        if (Set().GetActiveLibraryLocation(i, &libraryLocation) == 0 && libraryLocation == location)
            library = i;
    }
    IO::Location libraryLocation;
    if (library < 0 || Set().GetActiveLibraryLocation(library, &libraryLocation) != 0)
        return location.ToString();
    IO::Name libraryName;
    libraryLocation.GetLastLocalName(&libraryName);
    IO::RelativeLocation inside;
    location.GetDifference(libraryLocation, &inside);
    return inside.IsEmpty() ? libraryName.ToUTF8() : libraryName.ToUTF8() + "/" + inside.ToString();
}

std::string Session::FolderDisplay(int folder) {
    if (!Set().GetFolderSet()->IsValidIndex(folder))
        return "";
    if (folder < LM::FolderSet::FirstLibraryFolder) {
        KL::UniString name;
        Set().GetFolderName(folder, &name);
        return name.ToUTF8();
    }
    IO::Location location;
    Set().GetFolderSet()->GetLocation(folder, &location);
    return Display(location);
}

std::string Session::TypeWord(const LM::LibPart& part) const {
    const LM::PublicIDs& ids = Ids();
    const std::pair<FTM::GeneralID, const char*> words[] = {
        {ids.symbolGroup, "part"}, {ids.scriptType, "script"}, {ids.imageGroup, "image"},
        {ids.textType, "text"},    {ids.xmlType, "xml"},       {ids.packageType, "package"}};
    for (const auto& [type, word] : words)
        if (part.GetGeneralFileType() == type)
            return word;
    return "other";
}

int Session::ReportPassedOver(const Arguments& arguments, const Options& options) {
    std::vector<PassedOver> passedOver;
    // The walker says so when it failed, or when it passed over a name; only then is a look needed.
    if (walkFailed || IO::GetPassedOverNameCount() != passedOverNamesBefore) {
        for (const IO::Location& library : libraries) {
            std::error_code error;
            if (std::filesystem::is_directory(library.ToString(), error)) {
                const std::vector<PassedOver> found = FindPassedOver(library.ToString());
                passedOver.insert(passedOver.end(), found.begin(), found.end());
            }
        }
    }
    if (!options.quiet || options.verbose) {
        if (options.verbose) {
            for (const PassedOver& entry : passedOver)
                Complain(arguments, "passed over (" + entry.kind + "): " + entry.place, ExitSuccess);
        } else if (!passedOver.empty()) {
            std::map<std::string, int> counts;
            for (const PassedOver& entry : passedOver)
                ++counts[entry.kind];
            std::string text;
            for (const auto& [kind, count] : counts)
                text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + kind;
            Complain(arguments, "passed over " + text + "; -v names them", ExitSuccess);
        }
    }
    if (!options.strict || (passedOver.empty() && damagedCount == 0))
        return ExitSuccess;
    return Complain(arguments, "--strict: files were passed over or cannot be read", ExitFailure);
}

int Session::DamageOf(const LM::LibPart& part) {
    // A file whose header reads has an id; only files without one need a look, so a replayed
    // catalogue opens next to nothing.
    if (!part.IsValid() || !part.GetOwnUnID().IsNull())
        return KL::NoError;
    const std::string type = TypeWord(part);
    if (type == "part" && part.GetSymbolFile() != nullptr)
        return part.GetSymbolFile()->GetStatus();
    if (type == "script" && part.GetScriptFile() != nullptr)
        return part.GetScriptFile()->GetStatus();
    return KL::NoError;
}

std::string Session::StateWord(const LM::LibPart& part) {
    return StateWordOf(part, DamageOf(part));
}

int Session::CountDamaged() {
    int damaged = 0;
    for (int i = 0; i < Set().GetLibPartNumber(); ++i)
        damaged += DamageOf(*Set().GetLibPartByIndex(i)) != KL::NoError;
    return damaged;
}

nlohmann::json Session::PartJson(const LM::LibPart& part) {
    const KL::UnID id = part.GetOwnUnID();
    const int damage = DamageOf(part);
    nlohmann::json json = {{"name", part.GetDocumentName().ToUTF8()},
                           {"file", part.GetFileName().ToUTF8()},
                           {"location", part.GetLocation().ToString()},
                           {"display", Display(part.GetLocation())},
                           {"type", TypeWord(part)},
                           {"mainGuid", id.mainGuid.ToString()},
                           {"revisionGuid", id.revGuid.ToString()},
                           {"valid", part.IsValid() && damage == KL::NoError},
                           {"state", StateWordOf(part, damage)},
                           {"folder", FolderDisplay(part.GetFolderIndex())}};
    if (damage != KL::NoError)
        json["damaged"] = ErrorText(damage);
    return json;
}

std::optional<KL::UnID> ParseId(const std::string& text) {
    const std::size_t slash = text.find('/');
    const std::optional<KL::Guid> main = KL::Guid::Parse(text.substr(0, slash));
    if (!main)
        return std::nullopt;
    if (slash == std::string::npos)
        return KL::UnID(*main, KL::NULLGuid);
    const std::optional<KL::Guid> revision = KL::Guid::Parse(text.substr(slash + 1));
    return revision ? std::optional<KL::UnID>(KL::UnID(*main, *revision)) : std::nullopt;
}

const LM::LibPart* Session::Resolve(const std::string& text) {
    std::error_code error;
    if (std::filesystem::is_regular_file(text, error))
        if (const std::optional<IO::Location> location = PathToLocation(text))
            return Set().SearchLibPart(*location, LM::LibrarySet::OrigLocationToo);
    if (const std::optional<KL::UnID> id = ParseId(text))
        return Set().SearchLibPartComplex(*id, KL::UniString(), 2, nullptr, nullptr, nullptr);
    return Set().SearchLibPartAnyhow(KL::UnID(), KL::UniString(text), nullptr);
}

nlohmann::json Session::AncestryJson(const LM::LibPart& part) {
    LM::AncestryInfo chain;
    Set().GetSymbolAncestryInfo(&part, &chain);
    nlohmann::json ancestry = nlohmann::json::array();
    for (const KL::UnID& ancestor : chain.GetAncestors())
        ancestry.push_back({{"mainGuid", ancestor.mainGuid.ToString()},
                            {"revisionGuid", ancestor.revGuid.ToString()},
                            {"name", PartName(ancestor)}});
    return ancestry;
}

nlohmann::json SectionsJson(const LM::LibPart& part) {
    nlohmann::json sections = nlohmann::json::array();
    if (const LPF::SymbolFile* file = part.IsSymbol() ? part.GetSymbolFile() : nullptr)
        file->EnumerateSections(CollectSection, &sections);
    return sections;
}

namespace {

std::string Escaped(const std::string& field) {
    std::string text;
    for (const char c : field) {
        switch (c) {
        case '\t':
            text += "\\t";
            break;
        case '\n':
            text += "\\n";
            break;
        case '\r':
            text += "\\r";
            break;
        case '\\':
            text += "\\\\";
            break;
        default:
            text += c;
        }
    }
    return text;
}

} // namespace

std::string PartLine(const nlohmann::json& part) {
    std::string line = Escaped(part["name"].get<std::string>());
    for (const char* field : {"file", "type", "mainGuid", "revisionGuid", "state", "folder"})
        line += '\t' + Escaped(part[field].get<std::string>());
    return line;
}

std::string Session::PartName(const KL::UnID& id) {
    const LM::LibPart* part = Set().GetLibPart(LM::LibPartId(id, KL::UniString()));
    return part != nullptr ? part->GetDocumentName().ToUTF8() : "";
}

} // namespace libmgr
