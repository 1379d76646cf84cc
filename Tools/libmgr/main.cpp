// libmgr: the library manager's command-line tool.
#include "CatalogueCommands.hpp"
#include "CatalogueSession.hpp"
#include "CheckCommand.hpp"
#include "CommandLine.hpp"
#include "ContainerCommands.hpp"
#include "GenCommand.hpp"
#include "PartCommands.hpp"
#include "QueryCommands.hpp"
#include "ReportCommand.hpp"
#include "SelfCheck.hpp"

#include <LibraryManager.hpp>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

namespace {

using libmgr::ExitFailure;
using libmgr::ExitSuccess;
using libmgr::ExitUsage;

using Runner = int (*)(const libmgr::Arguments&);

int RunDemo(const libmgr::Arguments& arguments) {
    return libmgr::RunDemoCommand(arguments, LM_SAMPLE_LIBRARY_DIR);
}

int RunSelfCheck(const libmgr::Arguments& arguments);

struct Command {
    const char* name;
    const char* summary;
    Runner run;
};

constexpr Command Commands[] = {
    {"demo", "enumerate the bundled sample library: summary, type tree, duplicates", RunDemo},
    {"enumerate", "enumerate libraries and print a summary", libmgr::RunEnumerateCommand},
    {"list", "list the parts of libraries", libmgr::RunListCommand},
    {"find", "search libraries by id, name, file name or ancestor, through every fall-back",
     libmgr::RunFindCommand},
    {"show", "everything about one part: place, id, flags, ancestry, sections", libmgr::RunShowCommand},
    {"duplicates", "print the duplicate reports of libraries", libmgr::RunDuplicatesCommand},
    {"tree", "print the type hierarchy of libraries", libmgr::RunTreeCommand},
    {"check", "check libraries before they ship: missing macros, damaged files, duplicates",
     libmgr::RunCheckCommand},
    {"report", "report parts as XML, or the whole catalogue as one page for a browser",
     libmgr::RunReportCommand},
    {"pack", "pack libraries into one container file", libmgr::RunPackCommand},
    {"unpack", "unpack a container file into a folder", libmgr::RunUnpackCommand},
    {"part", "build a part file from its XML description, or dump one as XML", libmgr::RunPartCommand},
    {"gen", "write a synthetic library of any size, for benchmarks and tests", libmgr::RunGenCommand},
    {"self-check", "exercise the foundation libraries and report each check", RunSelfCheck},
};

void PrintUsage(std::ostream& out) {
    out << "Usage: libmgr [--version] [--help] [-q] [-v] [--json] [--no-cache] [--strict] <command> "
           "[<args>]\n"
           "\n"
           "Inspect, pack and author libraries of parametric parts.\n"
           "\n"
           "Commands:\n";
    for (const Command& command : Commands) {
        const std::string name = command.name;
        out << "  " << name << std::string(12 - name.size(), ' ') << command.summary << '\n';
    }
    out << "\n"
           "Run 'libmgr help <command>' or 'libmgr <command> --help' for the options of a command.\n";
}

const Command* FindCommand(std::string_view name) {
    for (const Command& command : Commands) {
        if (name == command.name)
            return &command;
    }
    return nullptr;
}

// Options that every catalogue command takes may also stand before the command.
bool IsGlobalOption(std::string_view value) {
    for (const char* option : libmgr::CommonFlags) {
        if (value == option)
            return true;
    }
    return false;
}

int RunSelfCheck(const libmgr::Arguments& arguments) {
    if (arguments.WantsHelp()) {
        std::cout << "Usage: libmgr self-check\n\nRuns the foundation's self-check and prints one line per "
                     "check.\n";
        return ExitSuccess;
    }
    if (!arguments.values.empty())
        return libmgr::Complain(arguments, "unexpected argument '" + arguments.values.front() + "'",
                                ExitUsage);
    std::cout << "libmgr " << LM::GetLibraryManagerVersion() << " self-check\n";
    const bool passed = libmgr::RunSelfCheck(std::cout);
    std::cout << (passed ? "all checks passed\n" : "some checks FAILED\n");
    return passed ? ExitSuccess : ExitFailure;
}

// Output that could not be written is a failure, not a silent loss: a full disk or a closed pipe.
int FinishOutput(const libmgr::Arguments& arguments, int exitCode) {
    std::cout.flush();
    // The stream's own failure may lie far back; a last flush of what is left gives a fresh reason.
    errno = 0;
    const bool flushed = std::fflush(stdout) == 0 && !std::ferror(stdout);
    if (flushed && std::cout.good())
        return exitCode;
    const int reason = errno;
    std::cout.clear();
    return libmgr::Complain(
        arguments, "cannot write the output" + (reason != 0 ? ": " + std::string(std::strerror(reason)) : ""),
        ExitFailure);
}

} // namespace

int main(int argc, char** argv) {
    // Global options may stand before the command; they are handed to it.
    std::vector<std::string> globals;
    int at = 1;
    while (at < argc && IsGlobalOption(argv[at]))
        globals.emplace_back(argv[at++]);
    if (at == argc) {
        PrintUsage(std::cerr);
        return ExitUsage;
    }
    std::string_view name = argv[at];
    std::vector<std::string> values(argv + at + 1, argv + argc);
    if (name == "--help" || name == "-h" || (name == "help" && values.empty())) {
        PrintUsage(std::cout);
        return FinishOutput({"", {}}, ExitSuccess);
    }
    if (name == "--version") {
        std::cout << "libmgr " << LM::GetLibraryManagerVersion() << '\n';
        return FinishOutput({"", {}}, ExitSuccess);
    }
    // "libmgr help CMD" is "libmgr CMD --help".
    if (name == "help") {
        name = argv[at + 1];
        values = {"--help"};
    }
    const Command* command = FindCommand(name);
    if (command == nullptr) {
        std::cerr << "libmgr: unknown command '" << name << "'; see 'libmgr --help'\n";
        return ExitUsage;
    }
    values.insert(values.end(), globals.begin(), globals.end());
    // Every command reads containers of either kind, whatever the host's preference says.
    LM::SetDatabaseLibraryContainerFormatEnabled(true);
    const libmgr::Arguments arguments{command->name, std::move(values)};
    return FinishOutput(arguments, command->run(arguments));
}
