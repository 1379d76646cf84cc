#include "CatalogueCommands.hpp"
#include "CatalogueSession.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cstdint>
#include <fnmatch.h>
#include <iomanip>
#include <iostream>

namespace libmgr {

namespace {

struct Counts {
    int parts = 0;
    int valid = 0;
    int dummies = 0;
    int damaged = 0;
};

constexpr std::array<const char*, 7> TypeWords = {"part", "script",  "image", "text",
                                                  "xml",  "package", "other"};

// A shell pattern against the document name and the file name, both folded to lower case.
bool MatchesNameOrFile(const LM::LibPart& part, const std::string& pattern) {
    const std::string folded = KL::UniString(pattern).ToLowerCase().ToUTF8();
    for (const KL::UniString& name : {part.GetDocumentName(), part.GetFileName()}) {
        if (::fnmatch(folded.c_str(), name.ToLowerCase().ToUTF8().c_str(), 0) == 0)
            return true;
    }
    return false;
}

Counts CountParts(Session& session) {
    Counts counts;
    for (int i = 0; i < session.Set().GetLibPartNumber(); ++i) {
        const LM::LibPart* part = session.Set().GetLibPartByIndex(i);
        if (part->GetState() == LM::LibPartStateDeleted)
            continue;
        ++counts.parts;
        const std::string state = session.StateWord(*part);
        ++(state == "valid" ? counts.valid : state == "dummy" ? counts.dummies : counts.damaged);
    }
    return counts;
}

std::size_t DuplicateCount(Session& session) {
    const LM::DefLibraryErrorHandler& reports = session.Reports();
    return reports.GetIdDuplicates().GetSize() + reports.GetNameDuplicates().GetSize() +
           reports.GetRevisionConflicts().GetSize() + reports.GetSameNameDifferentContents().GetSize();
}

std::string LastName(const std::string& location) {
    IO::Name name;
    IO::Location(location).GetLastLocalName(&name);
    return name.ToUTF8();
}

// Each library with how this run read it: from its cache, or by a walk.
nlohmann::json LibraryPassesJson(Session& session) {
    nlohmann::json passes = nlohmann::json::array();
    for (int i = 0; i < session.Set().GetActiveLibraryNum(); ++i) {
        IO::Location location;
        session.Set().GetActiveLibraryLocation(i, &location);
        passes.push_back({{"location", location.ToString()},
                          {"pass", session.Set().IsLibraryReplayed(i) ? "replayed" : "walked"}});
    }
    return passes;
}

void PrintSummary(Session& session, std::ostream& out) {
    const nlohmann::json summary = SummaryJson(session);
    const nlohmann::json& kinds = summary["duplicatesByKind"];
    out << "libraries   " << summary["libraries"] << '\n'
        << "parts       " << summary["parts"] << " (" << summary["validParts"] << " valid, "
        << summary["dummyParts"] << " dummy, " << summary["damagedParts"] << " damaged)\n"
        << "folders     " << summary["folders"] << '\n'
        << "duplicates  " << kinds["id"] << " by id, " << kinds["name"] << " by name, "
        << kinds["revisionConflicts"] << " revision conflicts, " << kinds["sameNameDifferentContent"]
        << " same name with different content\n"
        << "time        " << std::fixed << std::setprecision(3) << session.GetSeconds() << " s\n";
    for (const nlohmann::json& pass : summary["libraryPasses"])
        out << "library     " << LastName(pass["location"].get<std::string>()) << " ("
            << pass["pass"].get<std::string>() << ")\n";
    out.unsetf(std::ios::floatfield);
}

nlohmann::json MemberJson(Session& session, const LM::DuplicateReport& report, std::size_t i) {
    return {{"name", report.names[i].ToUTF8()},
            {"location", report.locations[i].ToString()},
            {"display", session.Display(report.locations[i])},
            {"library", report.actLibIndices[i]}};
}

nlohmann::json ReportJson(Session& session, const LM::DuplicateReport& report) {
    nlohmann::json members = nlohmann::json::array();
    for (std::size_t i = 0; i < report.locations.GetSize(); ++i)
        members.push_back(MemberJson(session, report, i));
    nlohmann::json json = {{"name", report.name.ToUTF8()}, {"members", members}};
    if (!report.unId.IsNull()) {
        json["mainGuid"] = report.unId.mainGuid.ToString();
        json["revisionGuid"] = report.unId.revGuid.ToString();
    }
    return json;
}

} // namespace

nlohmann::json SummaryJson(Session& session) {
    const Counts counts = CountParts(session);
    const LM::DefLibraryErrorHandler& reports = session.Reports();
    return {{"libraries", session.Set().GetActiveLibraryNum()},
            {"parts", counts.parts},
            {"validParts", counts.valid},
            {"dummyParts", counts.dummies},
            {"damagedParts", counts.damaged},
            {"folders", session.Set().GetFolderNumber() - LM::FolderSet::FirstLibraryFolder},
            {"duplicates", DuplicateCount(session)},
            {"duplicatesByKind",
             {{"id", reports.GetIdDuplicates().GetSize()},
              {"name", reports.GetNameDuplicates().GetSize()},
              {"revisionConflicts", reports.GetRevisionConflicts().GetSize()},
              {"sameNameDifferentContent", reports.GetSameNameDifferentContents().GetSize()}}},
            {"seconds", session.GetSeconds()},
            {"libraryPasses", LibraryPassesJson(session)}};
}

nlohmann::json DuplicatesJson(Session& session) {
    const LM::DefLibraryErrorHandler& reports = session.Reports();
    const auto reportList = [&session](const LM::DefLibraryErrorHandler::Reports& list) {
        nlohmann::json array = nlohmann::json::array();
        for (const LM::DuplicateReport& report : list)
            array.push_back(ReportJson(session, report));
        return array;
    };
    // A conflict's members come revision by revision; each revision becomes a group of its own.
    nlohmann::json conflicts = nlohmann::json::array();
    for (const LM::DuplicateReport& report : reports.GetRevisionConflicts()) {
        const std::string mainGuid = report.unId.mainGuid.ToString();
        nlohmann::json revisions = nlohmann::json::array();
        for (std::size_t i = 0; i < report.locations.GetSize(); ++i) {
            if (i == 0 || report.revisions[i] != report.revisions[i - 1])
                revisions.push_back({{"name", report.names[i].ToUTF8()},
                                     {"members", nlohmann::json::array()},
                                     {"mainGuid", mainGuid},
                                     {"revisionGuid", report.revisions[i].ToString()}});
            revisions.back()["members"].push_back(MemberJson(session, report, i));
        }
        conflicts.push_back(
            {{"name", report.name.ToUTF8()}, {"mainGuid", mainGuid}, {"revisions", revisions}});
    }
    return {{"idDuplicates", reportList(reports.GetIdDuplicates())},
            {"nameDuplicates", reportList(reports.GetNameDuplicates())},
            {"revisionConflicts", conflicts},
            {"sameNameDifferentContent", reportList(reports.GetSameNameDifferentContents())}};
}

namespace {

void PrintMembers(const nlohmann::json& report, const char* indent, bool markKept, std::ostream& out) {
    bool first = true;
    for (const nlohmann::json& member : report["members"]) {
        out << indent << member["display"].get<std::string>() << (first && markKept ? "   (kept)" : "")
            << '\n';
        first = false;
    }
}

void PrintDuplicates(Session& session, std::ostream& out) {
    const nlohmann::json all = DuplicatesJson(session);
    const auto printKind = [&out](const nlohmann::json& reports, const char* title, bool markKept) {
        out << title << " (" << reports.size() << ")\n";
        for (const nlohmann::json& report : reports) {
            out << "  " << report["name"].get<std::string>();
            if (report.contains("mainGuid"))
                out << "  " << report["mainGuid"].get<std::string>();
            out << '\n';
            PrintMembers(report, "    ", markKept, out);
        }
    };
    printKind(all["idDuplicates"], "same id", true);
    printKind(all["nameDuplicates"], "same name, no id", true);
    out << "revision conflicts (" << all["revisionConflicts"].size() << ")\n";
    for (const nlohmann::json& conflict : all["revisionConflicts"]) {
        out << "  " << conflict["name"].get<std::string>() << "  " << conflict["mainGuid"].get<std::string>()
            << "\n";
        for (const nlohmann::json& revision : conflict["revisions"]) {
            out << "    revision " << revision["revisionGuid"].get<std::string>() << "\n";
            PrintMembers(revision, "      ", false, out);
        }
    }
    printKind(all["sameNameDifferentContent"], "same name, different content", false);
}

// The type tree below `node` to `depth` levels (0: no limit), each level sorted by name.
nlohmann::json TreeJson(Session& session, const LM::Paths::TreeEntry* node, int depth) {
    nlohmann::json children = nlohmann::json::array();
    if (depth == 1)
        return children;
    KL::Queue<LM::Paths::TreeEntry*> entries;
    session.Set().GetAncestryHierarchy()->GetChildren(node, &entries);
    for (std::size_t i = 0; i < entries.GetSize(); ++i) {
        const LM::Paths::TreeEntry* child = entries[i];
        const KL::UnID& id = child->GetId();
        const std::string name = session.PartName(id);
        children.push_back({{"name", id.IsNull()    ? "(parts without an id)"
                                     : name.empty() ? "(missing)"
                                                    : name},
                            {"mainGuid", id.mainGuid.ToString()},
                            {"revisionGuid", id.revGuid.ToString()},
                            {"missing", !id.IsNull() && name.empty()},
                            {"parts", child->GetCount()},
                            {"children", TreeJson(session, child, depth == 0 ? 0 : depth - 1)}});
    }
    std::sort(children.begin(), children.end(), [](const nlohmann::json& a, const nlohmann::json& b) {
        const KL::UniString left(a["name"].get<std::string>()), right(b["name"].get<std::string>());
        const int order = left.Compare(right, KL::CaseInsensitive);
        return order != 0 ? order < 0 : a["mainGuid"].get<std::string>() < b["mainGuid"].get<std::string>();
    });
    return children;
}

} // namespace

nlohmann::json TypeTreeJson(Session& session, int depth) {
    const LM::AncestryHierarchy* hierarchy = session.Set().GetAncestryHierarchy();
    if (hierarchy == nullptr || hierarchy->GetRoot() == nullptr)
        return nlohmann::json::array();
    return TreeJson(session, hierarchy->GetRoot(), depth == 0 ? 0 : depth + 1);
}

namespace {

void PrintTreeLevel(const nlohmann::json& nodes, const std::string& prefix, bool top, std::ostream& out) {
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        const nlohmann::json& node = nodes[i];
        const bool last = i + 1 == nodes.size();
        std::string label = node["name"].get<std::string>();
        if (node["missing"].get<bool>())
            label += " " + node["mainGuid"].get<std::string>();
        out << prefix << (top ? "" : last ? "`-- " : "|-- ") << label << " (" << node["parts"] << ")\n";
        PrintTreeLevel(node["children"], top ? "" : prefix + (last ? "    " : "|   "), false, out);
    }
}

void PrintTree(Session& session, std::ostream& out, int depth = 0) {
    PrintTreeLevel(TypeTreeJson(session, depth), "", true, out);
}

} // namespace

int RunEnumerateCommand(const Arguments& arguments) {
    const CommandHelp help{
        "enumerate LIB... [--json] [-q]",
        "Enumerates the libraries and prints a summary: libraries, parts (valid, dummy, and\n"
        "damaged: part files that cannot be read), folders, duplicates by kind, and the time\n"
        "taken.\n\n"
        "Then one line per library: replayed from the library cache, or walked.\n\n"
        "  --json   one JSON object with libraries, parts, validParts, dummyParts, damagedParts,\n"
        "           folders, duplicates, duplicatesByKind, seconds and libraryPasses\n"
        "  -q       no progress on the terminal\n\n"};
    return RunOnCatalogue(arguments, help, {}, [](Session& session, const Options& options) {
        if (options.json)
            std::cout << SummaryJson(session).dump(2) << '\n';
        else
            PrintSummary(session, std::cout);
        return ExitSuccess;
    });
}

int RunListCommand(const Arguments& arguments) {
    const CommandHelp help{
        "list LIB... [--type T] [--match PATTERN] [--json] [-q]",
        "Lists every part, one a line: name, file name, type, main and revision guid,\n"
        "state (valid, dummy, or damaged: a file that cannot be read), and folder, separated by\n"
        "tabs.\n\n"
        "  --type T   only parts of type T: part, script, image, text, xml, package, other\n"
        "  --match PATTERN\n"
        "             only parts whose document name or file name matches the shell pattern\n"
        "             (* ? [...]), without regard to case: --match 'window 2*'\n"
        "  --json     an array of objects with name, file, location, display (the place inside\n"
        "             its library), type, mainGuid, revisionGuid, valid, state and folder, and\n"
        "             for a damaged file what the reader says\n"
        "  -q         no progress on the terminal\n\n"};
    return RunOnCatalogue(
        arguments, help, {"--type", "--match"}, [&arguments](Session& session, const Options& options) {
            const std::string* wanted = options.Value("--type");
            if (wanted != nullptr &&
                std::find(TypeWords.begin(), TypeWords.end(), *wanted) == TypeWords.end())
                return Complain(
                    arguments,
                    "'" + *wanted +
                        "' is no type; the types are part, script, image, text, xml, package and other",
                    ExitUsage);
            const std::string* pattern = options.Value("--match");
            nlohmann::json parts = nlohmann::json::array();
            for (int i = 0; i < session.Set().GetLibPartNumber(); ++i) {
                const LM::LibPart& part = *session.Set().GetLibPartByIndex(i);
                if (part.GetState() == LM::LibPartStateDeleted)
                    continue;
                if (wanted != nullptr && *wanted != session.TypeWord(part))
                    continue;
                if (pattern != nullptr && !MatchesNameOrFile(part, *pattern))
                    continue;
                parts.push_back(session.PartJson(part));
            }
            if (options.json) {
                std::cout << parts.dump(2) << '\n';
                return ExitSuccess;
            }
            for (const nlohmann::json& part : parts)
                std::cout << PartLine(part) << '\n';
            return ExitSuccess;
        });
}

int RunDuplicatesCommand(const Arguments& arguments) {
    const CommandHelp help{
        "duplicates LIB... [--json] [-q]",
        "Prints the four kinds of duplicate reports: parts with the same id, parts without\n"
        "an id with the same file name, revisions of one part that conflict, and parts of\n"
        "one name whose ids differ. The part kept in the catalogue comes first.\n\n"
        "  --json   an object with idDuplicates, nameDuplicates, revisionConflicts and\n"
        "           sameNameDifferentContent\n"
        "  -q       no progress on the terminal\n\n"};
    return RunOnCatalogue(arguments, help, {}, [](Session& session, const Options& options) {
        if (options.json)
            std::cout << DuplicatesJson(session).dump(2) << '\n';
        else
            PrintDuplicates(session, std::cout);
        return ExitSuccess;
    });
}

int RunTreeCommand(const Arguments& arguments) {
    const CommandHelp help{
        "tree LIB... [--depth N] [--json] [-q]",
        "Prints the type hierarchy of the parts as a tree, each level sorted by name; each node\n"
        "shows how many parts lie at or below it. Ancestors that no library holds show as\n"
        "(missing) with their main guid.\n\n"
        "  --depth N   only the first N levels\n"
        "  --json      an array of the top nodes, each with name, mainGuid, revisionGuid,\n"
        "              missing, parts and children\n"
        "  -q          no progress on the terminal\n\n"};
    return RunOnCatalogue(
        arguments, help, {"--depth"}, [&arguments](Session& session, const Options& options) {
            std::int32_t depth = 0;
            if (const std::string* text = options.Value("--depth");
                text != nullptr && (!KL::ParseInt32(*text, &depth) || depth < 1))
                return Complain(arguments, "'" + *text + "' is no depth; give a whole number from 1",
                                ExitUsage);
            if (options.json)
                std::cout << TypeTreeJson(session, depth).dump(2) << '\n';
            else
                PrintTree(session, std::cout, depth);
            return ExitSuccess;
        });
}

int RunDemoCommand(const Arguments& arguments, const std::string& sampleLibrary) {
    const CommandHelp help{"demo [LIB]",
                           "Enumerates the bundled sample library (or LIB) and prints its summary, its type\n"
                           "tree and its duplicates.\n\n"};
    Arguments withLibrary = arguments;
    if (std::none_of(arguments.values.begin(), arguments.values.end(),
                     [](const std::string& value) { return !value.starts_with("-"); }))
        withLibrary.values.push_back(sampleLibrary);
    return RunOnCatalogue(withLibrary, help, {}, [](Session& session, const Options&) {
        std::cout << "== summary\n";
        PrintSummary(session, std::cout);
        std::cout << "\n== type tree\n";
        PrintTree(session, std::cout);
        std::cout << "\n== duplicates\n";
        PrintDuplicates(session, std::cout);
        return ExitSuccess;
    });
}

} // namespace libmgr
