#include "CheckCommand.hpp"
#include "CatalogueCommands.hpp"
#include "CatalogueSession.hpp"

#include <nlohmann/json.hpp>

#include <iostream>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace libmgr {

namespace {

// One finding: its kind, the part or entry it is about, and what is wrong.
struct Finding {
    std::string kind;
    std::string subject;
    std::string detail;
    std::vector<std::string> callers; // of a missing macro
};

// Reads a file of a mounted container to its end; the error of the first failure, or 0.
int ReadWhole(const IO::Location& location) {
    IO::File file(location);
    if (const int err = file.Open(IO::File::ReadMode); err != KL::NoError)
        return err;
    std::uint64_t length = 0;
    if (const int err = file.GetDataLength(&length); err != KL::NoError)
        return err;
    constexpr std::uint64_t Chunk = 64 * 1024;
    const std::unique_ptr<char[]> bytes(new char[Chunk]);
    for (std::uint64_t done = 0; done < length; done += Chunk) {
        if (const int err = file.ReadBin(bytes.get(), std::min(Chunk, length - done)); err != KL::NoError)
            return err;
    }
    return KL::NoError;
}

// Every entry of the folder at `location`, read through the mount it lies in.
void CheckEntries(Session& session, const IO::Location& location, std::vector<Finding>* findings) {
    IO::Folder folder(location);
    IO::Folder::Listing entries;
    if (const int err = folder.GetStatus() != KL::NoError ? folder.GetStatus() : folder.List(&entries);
        err != KL::NoError) {
        findings->push_back({"unreadable", session.Display(location), ErrorText(err), {}});
        return;
    }
    for (const auto& [name, type] : entries) {
        const IO::Location inner = location + name;
        if (type == IO::FolderEntryType)
            CheckEntries(session, inner, findings);
        else if (const int err = ReadWhole(inner); err != KL::NoError)
            findings->push_back({"unreadable", session.Display(inner), ErrorText(err), {}});
    }
}

std::string Members(const nlohmann::json& group) {
    std::string text;
    for (const nlohmann::json& member : group["members"])
        text += (text.empty() ? "" : ", ") + member["display"].get<std::string>();
    return text;
}

void AddDuplicates(Session& session, std::vector<Finding>* findings) {
    const nlohmann::json all = DuplicatesJson(session);
    for (const nlohmann::json& report : all["idDuplicates"])
        findings->push_back({"same id", report["name"], Members(report) + " (the first is kept)", {}});
    for (const nlohmann::json& report : all["nameDuplicates"])
        findings->push_back({"same name", report["name"], Members(report) + " (the first is kept)", {}});
    for (const nlohmann::json& conflict : all["revisionConflicts"]) {
        std::string detail;
        for (const nlohmann::json& revision : conflict["revisions"])
            detail += (detail.empty() ? "" : "; ") + std::string("revision ") +
                      revision["revisionGuid"].get<std::string>() + " " + Members(revision);
        findings->push_back({"revisions", conflict["name"], detail, {}});
    }
}

// The names a script calls literally; computed names are not known before the script runs.
void CollectCalledNames(QDL::IFileRef& ref, QDL_ScriptType type, std::set<std::string>* names) {
    KL::UniString unused;
    if (ref.OpenQDL(nullptr, type, unused) != 0)
        return;
    KL::UniString line;
    QDL_ScriptType lineType = type;
    while (ref.GetFileLine(line, nullptr, &lineType) >= 0) {
        for (const KL::UniString& name : FindMacroCallNames(line))
            names->insert(name.ToUTF8());
    }
    ref.Close();
}

// Every macro a part calls: those its list of called macros names, and those its scripts call.
std::set<std::string> CalledMacros(const LM::LibPart& part, FileRef& ref) {
    std::set<std::string> names;
    const FileRef::KFFileType type = ref.GetFileType();
    if (type == FileRef::KFScriptFile)
        CollectCalledNames(ref, QDL_3DScript, &names);
    // Pictures and texts call nothing.
    if (type != FileRef::KFPartFile)
        return names;
    for (int script = QDL_ParameterScript; script <= QDL_BackwardMigrationScript; ++script)
        CollectCalledNames(ref, static_cast<QDL_ScriptType>(script), &names);
    if (const LPF::SymbolFile* file = part.GetSymbolFile()) {
        const KL::Array<SyCalledMacroItem> listed = LM::FileServices::ReadCalledMacros(*file);
        for (const SyCalledMacroItem& item : listed)
            names.insert(item.name.ToUTF8());
    }
    return names;
}

// Resolves every called macro from its caller, as the script engine does when the part runs.
void AddMissingMacros(Session& session, std::vector<Finding>* findings) {
    LM::FileServices& services = session.Services();
    std::map<std::string, std::vector<std::string>> missing;
    for (int i = 0; i < session.Set().GetLibPartNumber(); ++i) {
        const LM::LibPart* part = session.Set().GetLibPartByIndex(i);
        if (!part->IsValid())
            continue;
        FileRef caller(part, services);
        for (const std::string& name : CalledMacros(*part, caller)) {
            short notFound = 0;
            KL::UnID found;
            QDL::IFileRef* macro = services.Macro2File(KL::UniString(name), &caller, nullptr, &notFound,
                                                       QDL_3DScript, &found, false);
            if (macro == nullptr)
                missing[name].push_back(session.Display(part->GetLocation()));
            services.Dispose(&macro);
        }
    }
    for (auto& [name, callers] : missing) {
        std::string detail = "called by ";
        for (std::size_t i = 0; i < callers.size(); ++i)
            detail += (i == 0 ? "" : ", ") + callers[i];
        findings->push_back({"missing macro", name, detail, std::move(callers)});
    }
}

// Part files and scripts the reader cannot read, in its own words.
void AddDamagedParts(Session& session, std::vector<Finding>* findings) {
    for (int i = 0; i < session.Set().GetLibPartNumber(); ++i) {
        const LM::LibPart* part = session.Set().GetLibPartByIndex(i);
        if (const int damage = session.DamageOf(*part); damage != KL::NoError)
            findings->push_back({"damaged", session.Display(part->GetLocation()), ErrorText(damage), {}});
    }
}

// Paths the catalogue refuses to walk on the systems with the shortest limit.
void AddLongPaths(Session& session, std::vector<Finding>* findings) {
    constexpr std::size_t Limit = LM::LongFilenameEnumerator::MaxPathLength;
    for (int i = 0; i < session.Set().GetLibPartNumber(); ++i) {
        const LM::LibPart* part = session.Set().GetLibPartByIndex(i);
        if (part->GetState() == LM::LibPartStateDeleted || part->GetLocation().IsEmpty())
            continue;
        if (const std::size_t length = LM::LongFilenameEnumerator::PathLength(part->GetLocation());
            length > Limit)
            findings->push_back(
                {"path too long",
                 session.Display(part->GetLocation()),
                 std::to_string(length) + " characters, the limit is " + std::to_string(Limit),
                 {}});
    }
}

} // namespace

int RunCheckCommand(const Arguments& arguments) {
    const CommandHelp help{
        "check LIB... [--json] [-q]",
        "Checks libraries before they ship and prints one line per finding: macros that no\n"
        "library holds, with every part that calls them (resolved from each caller as the\n"
        "script engine resolves them), part files that cannot be read, every entry of a\n"
        "container library that cannot be read through its mount, parts that share an id or a\n"
        "name, parts whose revisions of one main id conflict, and paths longer than 260\n"
        "characters. Exit code 0 when nothing was found, 1 when something was.\n\n"
        "  --json       print the findings as JSON\n"};
    return RunOnCatalogue(arguments, help, {}, [](Session& session, const Options& options) {
        std::vector<Finding> findings;
        for (int i = 0; i < session.Set().GetActiveLibraryNum(); ++i) {
            IO::Location location;
            if (session.Set().GetActiveLibraryLocation(i, &location) == 0 &&
                (LM::CheckIfContainer(location) || LM::IsOpenableDatabaseContainer(location)))
                CheckEntries(session, location, &findings);
        }
        AddMissingMacros(session, &findings);
        AddDamagedParts(session, &findings);
        AddDuplicates(session, &findings);
        AddLongPaths(session, &findings);
        if (options.json) {
            nlohmann::json array = nlohmann::json::array();
            for (const Finding& finding : findings) {
                nlohmann::json entry = {
                    {"kind", finding.kind}, {"subject", finding.subject}, {"detail", finding.detail}};
                if (!finding.callers.empty())
                    entry["callers"] = finding.callers;
                array.push_back(std::move(entry));
            }
            std::cout << array.dump(2) << '\n';
        } else {
            for (const Finding& finding : findings)
                std::cout << finding.kind << "  " << finding.subject << ": " << finding.detail << '\n';
            if (findings.empty() && !options.quiet)
                std::cout << "no findings\n";
        }
        return findings.empty() ? ExitSuccess : ExitFailure;
    });
}

} // namespace libmgr
