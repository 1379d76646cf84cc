#include "ReportCommand.hpp"
#include "CatalogueCommands.hpp"
#include "CatalogueSession.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <string>
#include <vector>

extern const char* const ReportPageTemplate;

namespace libmgr {

namespace {

constexpr CommandHelp Help{
    "report LIB... --xml [--type TYPE]... [--placeable] [--direct] [--exclude DIR]...\n"
    "       libmgr report LIB... --html -o FILE",
    "Reports the parts of libraries.\n\n"
    "  --xml           the chosen parts in name order on standard output, each with its\n"
    "                  place, flags, ids, ancestry, parameters and migration table\n"
    "  --type TYPE     only parts of this type: the type's part given by name, main guid or\n"
    "                  file. May be repeated; a part of two types comes twice. Without it,\n"
    "                  each type at the root of the type tree in turn, then the parts outside\n"
    "                  the tree\n"
    "  --placeable     only parts that can be placed\n"
    "  --direct        only the direct subtypes of each type, not their own subtypes\n"
    "  --exclude DIR   leave out the parts below DIR; may be repeated\n\n"
    "  --html          one page to open in a browser, with nothing to fetch: the libraries\n"
    "                  and their counts, the type tree to fold and unfold, a search over\n"
    "                  names and file names, every part with its id, file, folder,\n"
    "                  ancestry and sections, and the duplicates with the copy kept\n"
    "  -o FILE         where the page goes; - for standard output\n"
    "  -q              no progress on the terminal\n\n"};

// What --xml writes: the report's own selection, and whether the types came from the command
// line or are the roots of the type tree.
struct XmlSelection {
    LM::LibrarySet::WriteToXMLParameters parameters;
    bool typesGiven = false;
};

// A type named on the command line: the part it names, or a main guid that no part need hold.
std::optional<KL::UnID> TypeId(Session& session, const std::string& text) {
    if (const LM::LibPart* part = session.Resolve(text); part != nullptr && !part->GetOwnUnID().IsNull())
        return part->GetOwnUnID();
    return ParseId(text);
}

KL::Array<KL::UnID> TypeTreeRoots(Session& session) {
    KL::Array<KL::UnID> roots;
    const LM::AncestryHierarchy* hierarchy = session.Set().GetAncestryHierarchy();
    if (hierarchy == nullptr || hierarchy->GetRoot() == nullptr)
        return roots;
    KL::Queue<LM::Paths::TreeEntry*> entries;
    hierarchy->GetChildren(hierarchy->GetRoot(), &entries);
    for (std::size_t i = 0; i < entries.GetSize(); ++i) {
        if (!entries[i]->GetId().IsNull())
            roots.Push(entries[i]->GetId());
    }
    return roots;
}

std::optional<XmlSelection> SelectionOf(Session& session, const Arguments& arguments, const Options& options,
                                        int* exitCode) {
    XmlSelection selection;
    LM::LibrarySet::WriteToXMLParameters& parameters = selection.parameters;
    parameters.placeableOnly = options.Has("--placeable");
    parameters.includeSubTypes = !options.Has("--direct");
    for (const std::string& folder : options.All("--exclude")) {
        const std::optional<IO::Location> location = PathToLocation(folder);
        if (!location) {
            *exitCode = Complain(arguments, folder + ": not a usable path", ExitUsage);
            return std::nullopt;
        }
        parameters.excludedFolders.Push(*location);
    }
    for (const std::string& type : options.All("--type")) {
        const std::optional<KL::UnID> id = TypeId(session, type);
        if (!id) {
            *exitCode =
                Complain(arguments, "no part and no guid '" + type + "' to take as a type", ExitFailure);
            return std::nullopt;
        }
        parameters.typeIds.Push(*id);
    }
    selection.typesGiven = !parameters.typeIds.IsEmpty();
    if (!selection.typesGiven)
        parameters.typeIds = TypeTreeRoots(session);
    return selection;
}

// The report reads each part's file; a part read from the library cache has not opened it yet.
void OpenPartFiles(Session& session) {
    for (int i = 0; i < session.Set().GetLibPartNumber(); ++i) {
        const LM::LibPart* part = session.Set().GetLibPartByIndex(i);
        if (part->IsValid() && part->IsSymbol())
            part->GetSymbolFile();
    }
}

// The parts that no root of the type tree covers, chosen as the report chooses the others.
void WritePartsOutsideTree(Session& session, const XmlSelection& selection, KL::XMLOChannel& channel) {
    const LM::LibrarySet& set = session.Set();
    const LM::LibrarySet::WriteToXMLParameters& parameters = selection.parameters;
    channel.StartTag("OutsideTypeTree");
    const LM::LibItemOrderByName byName;
    for (LM::LibItemIterator item(set, byName, LM::LibItemIterator::AllItems); item != nullptr; ++item) {
        const LM::LibPart* part = item.Get();
        if (part == nullptr || !part->IsValid() || part->GetGeneralFileType() != session.Ids().symbolGroup)
            continue;
        if (parameters.placeableOnly && (!part->IsSymbol() || !part->IsPlaceable()))
            continue;
        if (std::any_of(parameters.typeIds.begin(), parameters.typeIds.end(),
                        [&](const KL::UnID& root) { return set.IsSymbolTypeOf(part, root); }))
            continue;
        if (std::any_of(
                parameters.excludedFolders.begin(), parameters.excludedFolders.end(),
                [part](const IO::Location& folder) { return folder.IsAncestorOf(part->GetLocation()); }))
            continue;
        part->WriteToXML(channel, 0);
    }
    channel.EndTag("OutsideTypeTree");
}

int WriteXml(Session& session, const Arguments& arguments, const Options& options) {
    int exitCode = ExitSuccess;
    const std::optional<XmlSelection> selection = SelectionOf(session, arguments, options, &exitCode);
    if (!selection)
        return exitCode;
    OpenPartFiles(session);
    KL::XMLOChannel channel;
    channel.StartTag("LibraryReport");
    session.Set().WriteToXML(channel, 0, selection->parameters);
    if (!selection->typesGiven)
        WritePartsOutsideTree(session, *selection, channel);
    channel.EndTag("LibraryReport");
    if (channel.GetStatus() != KL::NoError)
        return Complain(arguments, "cannot write the report: " + ErrorText(channel.GetStatus()), ExitFailure);
    return WriteOutput(arguments, StandardStream, channel.ToString());
}

nlohmann::json LibrariesJson(Session& session) {
    const int count = session.Set().GetActiveLibraryNum();
    std::vector<int> parts(static_cast<std::size_t>(count), 0);
    for (int i = 0; i < session.Set().GetLibPartNumber(); ++i) {
        const LM::LibPart* part = session.Set().GetLibPartByIndex(i);
        int library = -1;
        if (part->GetState() != LM::LibPartStateDeleted)
            session.Set().GetLibPartLibraryName(part, &library);
        if (library >= 0 && library < count)
            ++parts[static_cast<std::size_t>(library)];
    }
    nlohmann::json libraries = nlohmann::json::array();
    for (int i = 0; i < count; ++i) {
        IO::Location location;
        KL::UniString name;
        session.Set().GetActiveLibraryLocation(i, &location);
        session.Set().GetActiveLibraryName(i, &name);
        libraries.push_back({{"name", name.ToUTF8()},
                             {"location", location.ToString()},
                             {"parts", parts[static_cast<std::size_t>(i)]},
                             {"pass", session.Set().IsLibraryReplayed(i) ? "replayed" : "walked"}});
    }
    return libraries;
}

nlohmann::json PartsJson(Session& session) {
    nlohmann::json parts = nlohmann::json::array();
    for (int i = 0; i < session.Set().GetLibPartNumber(); ++i) {
        const LM::LibPart& part = *session.Set().GetLibPartByIndex(i);
        if (part.GetState() == LM::LibPartStateDeleted)
            continue;
        nlohmann::json json = session.PartJson(part);
        json["library"] = session.Set().GetLibPartLibraryName(&part, nullptr).ToUTF8();
        json["ancestry"] = part.IsSymbol() ? session.AncestryJson(part) : nlohmann::json::array();
        json["sections"] = SectionsJson(part);
        parts.push_back(std::move(json));
    }
    return parts;
}

// The data goes inside a script element: no "<" may stand in it, and inside JSON a "<" can only
// be part of a string, where its escape means the same.
std::string ScriptSafe(const std::string& json) {
    std::string safe;
    safe.reserve(json.size());
    for (const char c : json) {
        if (c == '<')
            safe += "\\u003c";
        else
            safe += c;
    }
    return safe;
}

std::string ReportPage(Session& session) {
    const nlohmann::json data = {{"tool", "libmgr " + std::string(LM::GetLibraryManagerVersion())},
                                 {"summary", SummaryJson(session)},
                                 {"libraries", LibrariesJson(session)},
                                 {"tree", TypeTreeJson(session, 0)},
                                 {"parts", PartsJson(session)},
                                 {"duplicates", DuplicatesJson(session)}};
    std::string page = ReportPageTemplate;
    const std::string placeholder = "{{REPORT_DATA}}";
    page.replace(page.find(placeholder), placeholder.size(),
                 ScriptSafe(data.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)));
    return page;
}

int WriteHtml(Session& session, const Arguments& arguments, const Options& options) {
    const std::string* output = options.Value("-o");
    if (output == nullptr)
        return Complain(arguments, "--html needs -o FILE; see 'libmgr report --help'", ExitUsage);
    for (const char* option : {"--type", "--exclude", "--placeable", "--direct"}) {
        if (options.Value(option) != nullptr || options.Has(option))
            return Complain(arguments, std::string(option) + " goes with --xml; the page shows every part",
                            ExitUsage);
    }
    return WriteOutput(arguments, *output, ReportPage(session));
}

} // namespace

int RunReportCommand(const Arguments& arguments) {
    return RunOnCatalogue(
        arguments, Help, {"--type", "--exclude", "-o"},
        [&arguments](Session& session, const Options& options) {
            const bool xml = options.Has("--xml");
            if (xml == options.Has("--html"))
                return Complain(arguments, "give --xml or --html; see 'libmgr report --help'", ExitUsage);
            return xml ? WriteXml(session, arguments, options) : WriteHtml(session, arguments, options);
        },
        {"--xml", "--html", "--placeable", "--direct"});
}

} // namespace libmgr
