#pragma once

// What every command that reads a catalogue shares: its options, a started manager with the
// command line's libraries enumerated, progress on a terminal, and how places are shown.
#include "CommandLine.hpp"
#include "PassedOver.hpp"

#include <nlohmann/json.hpp>

#include <initializer_list>
#include <iostream>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace libmgr {

// The flags that every command reading libraries takes, as ParseOptions knows them.
inline constexpr const char* CommonFlags[] = {"-q", "--quiet",   "--json",  "--no-cache",
                                              "-v", "--verbose", "--strict"};

struct Options {
    std::vector<std::string> libraries;
    // Options that take a value, by their name with the dashes ("--type"), each value given in
    // the order given.
    std::map<std::string, std::vector<std::string>> values;
    bool json = false;
    bool quiet = false;
    // Every entry a walk passed over on a line of its own, instead of a count.
    bool verbose = false;
    // Exit 1 when anything was passed over or damaged.
    bool strict = false;
    // Neither replays from nor writes to the library cache and the compiled script cache.
    bool noCache = false;
    // Options without a value that were given ("--force"); a flag given as "--flag=VALUE" also
    // has its value in `values`.
    std::set<std::string> flags;

    // The last value given, or null.
    const std::string* Value(const std::string& name) const;
    // Every value given, for an option that may be repeated.
    std::vector<std::string> All(const std::string& name) const;
    bool Has(const std::string& flag) const { return flags.count(flag) > 0; }
};

struct CommandHelp {
    const char* usage;
    const char* text;
};

// Everything that does not start with "-" is a library; `valueOptions` take the next argument (or
// "=VALUE"), `flagOptions` stand alone (or take "=VALUE").
std::optional<Options> ParseOptions(const Arguments& arguments,
                                    std::initializer_list<const char*> valueOptions, int* exitCode,
                                    std::initializer_list<const char*> flagOptions = {});

// The help of a command that reads libraries, with the options all of them share.
void PrintCatalogueHelp(const CommandHelp& help);

// A started manager with the libraries of the command line enumerated.
class Session {
public:
    // Returns an exit code; 0 when the catalogue stands.
    int Open(const Arguments& arguments, const Options& options);

    LM::LibrarySet& Set() { return *manager.GetLibrarySet(); }
    const LM::DefLibraryErrorHandler& Reports() { return *manager.GetLibraryErrorHandler(); }
    const LM::PublicIDs& Ids() const { return manager.GetPublicIDs(); }
    LM::FileServices& Services() { return *manager.GetFileServices(); }
    double GetSeconds() const { return seconds; }

    // A place as "<library name>/<path inside it>", the way authors think of it.
    std::string Display(const IO::Location& location);
    std::string FolderDisplay(int folder);
    // A short word for a part's type, for listings and --type.
    std::string TypeWord(const LM::LibPart& part) const;
    // Why a part's file cannot be read, or 0. The catalogue keeps such a file as a valid record.
    int DamageOf(const LM::LibPart& part);
    // "valid", "dummy" or "damaged".
    std::string StateWord(const LM::LibPart& part);
    // What the walks left out, with the command's options: said on stderr, and under --strict an
    // exit code of 1; else 0.
    int ReportPassedOver(const Arguments& arguments, const Options& options);
    // The fields every listing gives of a part: name, file, location, display, type, mainGuid,
    // revisionGuid, valid, state and folder, and for a damaged file the reader's words.
    nlohmann::json PartJson(const LM::LibPart& part);
    // The ancestors of a part, the root first, each with mainGuid, revisionGuid and name (empty
    // for an ancestor that no library holds).
    nlohmann::json AncestryJson(const LM::LibPart& part);
    // The part that a command line names: a file, an id, a document name or a file name.
    const LM::LibPart* Resolve(const std::string& text);
    // The document name of the part with this id; empty if there is none.
    std::string PartName(const KL::UnID& id);

private:
    LM::LibrarySetSingletonLP manager;
    KL::Array<IO::Location> libraries;
    double seconds = 0;
    std::uint64_t passedOverNamesBefore = 0;
    int damagedCount = 0;

    int CountDamaged();
};

// "MAIN" or "MAIN/REVISION", braces optional; a main guid alone leaves the revision null.
std::optional<KL::UnID> ParseId(const std::string& text);

// The sections of a part file, each with tag, index, version and size; empty for other files.
nlohmann::json SectionsJson(const LM::LibPart& part);

// A part's listing columns from its PartJson, tab-separated: name, file, type, main guid, revision
// guid, state and folder. Tabs, line ends and backslashes inside a field are escaped.
std::string PartLine(const nlohmann::json& part);

// Parses, opens the session and hands over; --help answers before anything runs. A command that
// needs more than its libraries checks the options in `work`.
template <typename Work>
int RunOnCatalogue(const Arguments& arguments, const CommandHelp& help,
                   std::initializer_list<const char*> valueOptions, Work work,
                   std::initializer_list<const char*> flagOptions = {}) {
    if (arguments.WantsHelp()) {
        PrintCatalogueHelp(help);
        return ExitSuccess;
    }
    int exitCode = ExitSuccess;
    std::optional<Options> options = ParseOptions(arguments, valueOptions, &exitCode, flagOptions);
    if (!options)
        return exitCode;
    Session session;
    if (const int opened = session.Open(arguments, *options); opened != ExitSuccess)
        return opened;
    const int worked = work(session, *options);
    const int reported = session.ReportPassedOver(arguments, *options);
    return worked != ExitSuccess ? worked : reported;
}

} // namespace libmgr
