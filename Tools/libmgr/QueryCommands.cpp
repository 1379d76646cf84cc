#include "QueryCommands.hpp"
#include "CatalogueSession.hpp"

#include <nlohmann/json.hpp>

#include <filesystem>
#include <iostream>

namespace libmgr {

namespace {

// What answered a search, and with what.
struct Answer {
    std::string stage;
    std::vector<const LM::LibPart*> parts;
    // Revisions of an ambiguous main guid that the search did not hand out.
    std::vector<const LM::LibPart*> others;
    bool ambiguous = false;
    bool migrated = false;
};

// The stage of the whole chain that gave `part` for `id` and `name`.
std::string StageOf(LM::LibrarySet& set, const LM::LibPart* part, const KL::UnID& id,
                    const KL::UniString& name, const Answer& answer) {
    if (answer.migrated)
        return "migration table";
    if (!part->IsValid())
        return "dummy";
    if (!id.IsNull() && set.SearchSymbolByUnID(id, nullptr) == part)
        return "exact id";
    if (!id.IsNull() && part->GetOwnUnID().mainGuid == id.mainGuid)
        return answer.ambiguous ? "main guid, ambiguous" : "main guid";
    if (set.SearchLibPartDocuName(name) == part)
        return "document name";
    return "file name";
}

// The full chain with every fall-back stage, as the script engine meets it for a stale reference.
Answer FindByChain(LM::LibrarySet& set, const KL::UnID& id, const KL::UniString& name) {
    Answer answer;
    KL::Array<const LM::LibPart*> replacements;
    const LM::LibPart* part =
        set.SearchLibPartComplex(id, name, 2, &answer.ambiguous, &replacements, &answer.migrated);
    if (part == nullptr)
        return answer;
    answer.stage = StageOf(set, part, id, name, answer);
    answer.parts.push_back(part);
    // Every revision the main guid stands for, after the one handed out.
    if (answer.ambiguous) {
        KL::PagedArray<const LM::LibPart*, 8> revisions;
        set.SearchSymbolsByMainID(part->GetOwnUnID(), &revisions, 0);
        for (const LM::LibPart* revision : revisions)
            if (revision != part)
                answer.others.push_back(revision);
    }
    // The other replacements follow the one the chain took.
    for (const LM::LibPart* replacement : replacements)
        if (replacement != part)
            answer.parts.push_back(replacement);
    return answer;
}

Answer FindDescendants(LM::LibrarySet& set, KL::UnID ancestor) {
    Answer answer;
    // A main guid alone stands for the revision that the catalogue holds.
    if (ancestor.revGuid.IsNull())
        if (const LM::LibPart* present = set.SearchAnySymbolByMainID(ancestor, nullptr))
            ancestor = present->GetOwnUnID();
    KL::Array<const LM::LibPart*> below;
    set.SearchSymbolsByAncestor(ancestor, below, false);
    answer.stage = "ancestry";
    answer.parts.assign(below.begin(), below.end());
    return answer;
}

int PrintAnswer(Session& session, const Options& options, const Answer& answer, const Arguments& arguments) {
    if (options.json) {
        nlohmann::json parts = nlohmann::json::array();
        for (const LM::LibPart* part : answer.parts)
            parts.push_back(session.PartJson(*part));
        nlohmann::json others = nlohmann::json::array();
        for (const LM::LibPart* part : answer.others)
            others.push_back(session.PartJson(*part));
        std::cout << nlohmann::json{{"stage", answer.stage},
                                    {"ambiguous", answer.ambiguous},
                                    {"migrated", answer.migrated},
                                    {"parts", parts},
                                    {"otherRevisions", others}}
                         .dump(2)
                  << '\n';
    } else {
        for (const LM::LibPart* part : answer.parts)
            std::cout << answer.stage << '\t' << PartLine(session.PartJson(*part)) << '\n';
        for (const LM::LibPart* part : answer.others)
            std::cout << "other revision\t" << PartLine(session.PartJson(*part)) << '\n';
    }
    if (answer.parts.empty())
        return options.json ? ExitFailure : Complain(arguments, "no part matches", ExitFailure);
    return ExitSuccess;
}

// The parts that this part's migration table says it replaces: by name where the catalogue still
// holds them, else by main guid.
nlohmann::json ReplacedParts(LM::LibrarySet& set, const LPF::SymbolFile& file) {
    nlohmann::json replaced = nlohmann::json::array();
    int error = 0;
    const std::unique_ptr<KL::Object> content = file.GetSectionContent(LPF::Tags::MigrationTable, 0, &error);
    const auto* table = dynamic_cast<const MigrationTableObject*>(content.get());
    if (table == nullptr)
        return replaced;
    for (auto pair = table->GetTable().BeginPairs(); pair != table->GetTable().EndPairs(); ++pair) {
        const LM::LibPart* old = set.SearchAnySymbolByMainID(KL::UnID(pair->first, KL::NULLGuid), nullptr);
        replaced.push_back(old != nullptr ? old->GetDocumentName().ToUTF8() : pair->first.ToString());
    }
    return replaced;
}

// The places of the other parts that go by the same document name.
nlohmann::json OthersWithName(Session& session, const LM::LibPart& part) {
    nlohmann::json others = nlohmann::json::array();
    for (int i = 0; i < session.Set().GetLibPartNumber(); ++i) {
        const LM::LibPart* other = session.Set().GetLibPartByIndex(i);
        if (other != &part && other->GetState() != LM::LibPartStateDeleted &&
            other->GetDocumentName().IsEqual(part.GetDocumentName(), KL::CaseInsensitive))
            others.push_back(session.Display(other->GetLocation()));
    }
    return others;
}

nlohmann::json Describe(Session& session, const LM::LibPart& part) {
    LM::LibrarySet& set = session.Set();
    nlohmann::json json = session.PartJson(part);
    json["library"] = set.GetLibPartLibraryName(&part, nullptr).ToUTF8();
    json["sameName"] = OthersWithName(session, part);
    if (!part.IsSymbol())
        return json;
    json["template"] = part.IsTemplate();
    json["placeable"] = part.IsPlaceable();
    json["archivable"] = part.IsArchivable();
    json["migrationValue"] = static_cast<int>(part.GetMigrationValue());
    json["ancestry"] = session.AncestryJson(part);
    if (const LM::LibPart* proxy = set.GetSymbolProxy(&part); proxy != nullptr && proxy != &part)
        json["proxy"] = proxy->GetDocumentName().ToUTF8();
    KL::Array<const LM::LibPart*> below;
    json["descendants"] =
        part.GetOwnUnID().IsNull() ? 0 : set.SearchSymbolsByAncestor(part.GetOwnUnID(), below, false);
    nlohmann::json replacedBy = nlohmann::json::array();
    KL::Array<const LM::LibPart*> replacements;
    set.GetLibPartArrayFromMigrationGuidTable(LM::LibPartId(&part), &replacements);
    for (const LM::LibPart* replacement : replacements)
        replacedBy.push_back(replacement->GetDocumentName().ToUTF8());
    json["replacedBy"] = replacedBy;
    json["replaces"] = nlohmann::json::array();
    json["sections"] = SectionsJson(part);
    if (const LPF::SymbolFile* file = part.GetSymbolFile())
        json["replaces"] = ReplacedParts(set, *file);
    return json;
}

void PrintDescription(const nlohmann::json& part) {
    const auto line = [](const char* label, const std::string& value) {
        std::cout << label << std::string(14 - std::string(label).size(), ' ') << value << '\n';
    };
    line("name", part["name"].get<std::string>());
    line("file", part["file"].get<std::string>());
    line("folder", part["folder"].get<std::string>());
    const std::string state = part["state"].get<std::string>();
    line("type", part["type"].get<std::string>() + (state == "valid" ? "" : ", " + state));
    line("id", part["mainGuid"].get<std::string>() + " " + part["revisionGuid"].get<std::string>());
    line("library", part["library"].get<std::string>());
    if (part.contains("damaged"))
        line("damaged", part["damaged"].get<std::string>());
    if (!part["sameName"].empty()) {
        std::string others;
        for (const nlohmann::json& other : part["sameName"])
            others += (others.empty() ? "" : ", ") + other.get<std::string>();
        line("same name", others + " (give a file or an id to choose)");
    }
    if (!part.contains("ancestry"))
        return;
    std::string flags;
    for (const char* flag : {"template", "placeable", "archivable"})
        if (part[flag].get<bool>())
            flags += (flags.empty() ? "" : ", ") + std::string(flag);
    line("flags", flags.empty() ? "-" : flags);
    line("migration", std::to_string(part["migrationValue"].get<int>()));
    std::string chain;
    for (const nlohmann::json& ancestor : part["ancestry"]) {
        const std::string name = ancestor["name"].get<std::string>();
        chain += (name.empty() ? "(missing) " + ancestor["mainGuid"].get<std::string>() : name) + " > ";
    }
    line("ancestry", chain + part["name"].get<std::string>());
    if (part.contains("proxy"))
        line("proxy", part["proxy"].get<std::string>());
    line("descendants", std::to_string(part["descendants"].get<int>()));
    std::string replacedBy;
    for (const nlohmann::json& name : part["replacedBy"])
        replacedBy += (replacedBy.empty() ? "" : ", ") + name.get<std::string>();
    if (!replacedBy.empty())
        line("replaced by", replacedBy);
    std::string replaces;
    for (const nlohmann::json& name : part["replaces"])
        replaces += (replaces.empty() ? "" : ", ") + name.get<std::string>();
    if (!replaces.empty())
        line("replaces", replaces);
    std::cout << "sections\n";
    for (const nlohmann::json& section : part["sections"])
        std::cout << "  " << section["tag"].get<std::string>() << ' ' << section["index"] << "  version "
                  << section["version"] << ", " << section["size"] << " bytes\n";
}

} // namespace

int RunFindCommand(const Arguments& arguments) {
    const CommandHelp help{
        "find LIB... (--guid ID [--name N] | --name N | --file F | --ancestor ID) [--json] [-q]",
        "Searches the catalogue the way the script engine does, through every fall-back stage, and\n"
        "shows which stage answered: exact id, main guid (ambiguous when several revisions are\n"
        "present; the others follow as \"other revision\"), dummy, migration table, document name\n"
        "or file name. Parts that replace an old id follow the one chosen. Names match without case, and "
        "\"/\" in a name reads as \":\".\n"
        "Each line is the stage, then the columns of 'libmgr list'.\n\n"
        "  --guid ID       an id: MAIN or MAIN/REVISION\n"
        "  --name N        a document name; with --guid, the name the reference carries\n"
        "  --file F        a file name\n"
        "  --ancestor ID   every part below this type\n"
        "  --json          an object with stage, ambiguous, migrated, parts and otherRevisions\n"
        "  -q              no progress on the terminal\n\n"
        "Exits with 1 when no part matches.\n"};
    return RunOnCatalogue(
        arguments, help, {"--guid", "--name", "--file", "--ancestor"},
        [&](Session& session, const Options& options) {
            const std::string* guid = options.Value("--guid");
            const std::string* name = options.Value("--name");
            const std::string* file = options.Value("--file");
            const std::string* ancestor = options.Value("--ancestor");
            const int ways = (guid || name ? 1 : 0) + (file ? 1 : 0) + (ancestor ? 1 : 0);
            if (ways != 1)
                return Complain(arguments, "give one of --guid/--name, --file or --ancestor", ExitUsage);
            const std::string* idText = guid != nullptr ? guid : ancestor;
            const std::optional<KL::UnID> id = idText != nullptr ? ParseId(*idText) : KL::UnID();
            if (!id)
                return Complain(arguments, "'" + *idText + "' is not an id (MAIN or MAIN/REVISION)",
                                ExitUsage);
            Answer answer;
            if (ancestor != nullptr) {
                answer = FindDescendants(session.Set(), *id);
            } else if (file != nullptr) {
                answer.stage = "file name";
                if (const LM::LibPart* part = session.Set().SearchLibPartFileName(KL::UniString(*file)))
                    answer.parts.push_back(part);
            } else {
                answer =
                    FindByChain(session.Set(), *id, KL::UniString(name != nullptr ? *name : std::string()));
            }
            return PrintAnswer(session, options, answer, arguments);
        });
}

int RunShowCommand(const Arguments& arguments) {
    const CommandHelp help{
        "show LIB... PART [--json] [-q]",
        "Shows everything about one part: its place, type and id, its flags, its ancestry\n"
        "by name, the part that stands in for it, how many parts lie below it, the parts\n"
        "that replace it, and the sections of its file.\n\n"
        "PART, the last argument, is a part file, an id (MAIN or MAIN/REVISION), a document\n"
        "name or a file name.\n\n"
        "  --json   one object with these fields\n"
        "  -q       no progress on the terminal\n"};
    Arguments libraries = arguments;
    std::string partText;
    for (auto value = libraries.values.rbegin(); value != libraries.values.rend(); ++value)
        if (!value->starts_with("-") && !arguments.WantsHelp()) {
            partText = *value;
            libraries.values.erase(std::next(value).base());
            break;
        }
    if (partText.empty() && !arguments.WantsHelp())
        return Complain(arguments, "which part? see 'libmgr show --help'", ExitUsage);
    return RunOnCatalogue(libraries, help, {}, [&](Session& session, const Options& options) {
        const LM::LibPart* part = session.Resolve(partText);
        if (part == nullptr)
            return Complain(arguments, partText + ": no such part in these libraries", ExitFailure);
        const nlohmann::json description = Describe(session, *part);
        if (options.json)
            std::cout << description.dump(2) << '\n';
        else
            PrintDescription(description);
        return ExitSuccess;
    });
}

} // namespace libmgr
