#include "CheckCommand.hpp"
#include "CatalogueCommands.hpp"
#include "CatalogueSession.hpp"

#include <nlohmann/json.hpp>

#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace libmgr {

namespace {

// One finding: its kind, the part or entry it is about, and what is wrong.
struct Finding {
    std::string kind;
    std::string subject;
    std::string detail;
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
        findings->push_back({"unreadable", session.Display(location), ErrorText(err)});
        return;
    }
    for (const auto& [name, type] : entries) {
        const IO::Location inner = location + name;
        if (type == IO::FolderEntryType)
            CheckEntries(session, inner, findings);
        else if (const int err = ReadWhole(inner); err != KL::NoError)
            findings->push_back({"unreadable", session.Display(inner), ErrorText(err)});
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
        findings->push_back({"same id", report["name"], Members(report) + " (the first is kept)"});
    for (const nlohmann::json& report : all["nameDuplicates"])
        findings->push_back({"same name", report["name"], Members(report) + " (the first is kept)"});
    for (const nlohmann::json& conflict : all["revisionConflicts"]) {
        std::string detail;
        for (const nlohmann::json& revision : conflict["revisions"])
            detail += (detail.empty() ? "" : "; ") + std::string("revision {") +
                      revision["revisionGuid"].get<std::string>() + "} " + Members(revision);
        findings->push_back({"revisions", conflict["name"], detail});
    }
}

} // namespace

int RunCheckCommand(const Arguments& arguments) {
    const CommandHelp help{
        "check LIB... [--json] [-q]",
        "Checks libraries before they ship and prints one line per finding: every entry of a\n"
        "container library that cannot be read through its mount, parts that share an id or a\n"
        "name, and parts whose revisions of one main id conflict. Exit code 0 when nothing was\n"
        "found, 1 when something was.\n\n"
        "  --json       print the findings as JSON\n"};
    return RunOnCatalogue(arguments, help, {}, [](Session& session, const Options& options) {
        std::vector<Finding> findings;
        for (int i = 0; i < session.Set().GetActiveLibraryNum(); ++i) {
            IO::Location location;
            if (session.Set().GetActiveLibraryLocation(i, &location) == 0 && LM::CheckIfContainer(location))
                CheckEntries(session, location, &findings);
        }
        AddDuplicates(session, &findings);
        if (options.json) {
            nlohmann::json array = nlohmann::json::array();
            for (const Finding& finding : findings)
                array.push_back({{"kind", finding.kind}, {"subject", finding.subject}, {"detail", finding.detail}});
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
