// libmgr: the library manager's command-line tool.
#include "CatalogueCommands.hpp"
#include "CheckCommand.hpp"
#include "CommandLine.hpp"
#include "ContainerCommands.hpp"
#include "GenCommand.hpp"
#include "PartCommands.hpp"
#include "QueryCommands.hpp"
#include "SelfCheck.hpp"

#include <LibraryManager.hpp>

#include <cstring>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

namespace {

using libmgr::ExitFailure;
using libmgr::ExitSuccess;
using libmgr::ExitUsage;

void PrintUsage(std::ostream& out) {
    out << "Usage: libmgr [--version] [--help] <command> [<args>]\n"
           "\n"
           "Inspect, pack and author libraries of parametric parts.\n"
           "\n"
           "Commands:\n"
           "  demo        enumerate the bundled sample library: summary, type tree, duplicates\n"
           "  enumerate   enumerate libraries and print a summary\n"
           "  list        list the parts of libraries\n"
           "  find        search libraries by id, name, file name or ancestor, through every fall-back\n"
           "  show        everything about one part: place, id, flags, ancestry, sections\n"
           "  duplicates  print the duplicate reports of libraries\n"
           "  tree        print the type hierarchy of libraries\n"
           "  check       check libraries before they ship: unreadable entries, duplicates\n"
           "  pack        pack libraries into one container file\n"
           "  unpack      unpack a container file into a folder\n"
           "  part        build a part file from its XML description, or dump one as XML\n"
           "  gen         write a synthetic library of any size, for benchmarks and tests\n"
           "  self-check  exercise the foundation libraries and report each check\n"
           "\n"
           "Run 'libmgr <command> --help' for the options of a command.\n";
}

bool WantsHelp(int argc, char** argv) {
    for (int i = 2; i < argc; ++i) {
        if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0)
            return true;
    }
    return false;
}

int RunSelfCheckCommand(int argc, char** argv, std::string_view name) {
    if (WantsHelp(argc, argv)) {
        std::cout << "Usage: libmgr " << name
                  << "\n\nRuns the foundation's self-check and prints one line per check.\n";
        return ExitSuccess;
    }
    if (argc > 2) {
        std::cerr << "libmgr " << name << ": unexpected argument '" << argv[2] << "'\n";
        return ExitUsage;
    }
    std::cout << "libmgr " << LM::GetLibraryManagerVersion() << " self-check\n";
    const bool passed = libmgr::RunSelfCheck(std::cout);
    std::cout << (passed ? "all checks passed\n" : "some checks FAILED\n");
    return passed ? ExitSuccess : ExitFailure;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        PrintUsage(std::cerr);
        return ExitUsage;
    }
    const std::string_view command = argv[1];
    if (command == "--help" || command == "-h" || command == "help") {
        PrintUsage(std::cout);
        return ExitSuccess;
    }
    if (command == "--version") {
        std::cout << "libmgr " << LM::GetLibraryManagerVersion() << '\n';
        return ExitSuccess;
    }
    const libmgr::Arguments arguments{std::string(command), std::vector<std::string>(argv + 2, argv + argc)};
    if (command == "self-check")
        return RunSelfCheckCommand(argc, argv, command);
    if (command == "demo")
        return libmgr::RunDemoCommand(arguments, LM_SAMPLE_LIBRARY_DIR);
    if (command == "enumerate")
        return libmgr::RunEnumerateCommand(arguments);
    if (command == "list")
        return libmgr::RunListCommand(arguments);
    if (command == "find")
        return libmgr::RunFindCommand(arguments);
    if (command == "show")
        return libmgr::RunShowCommand(arguments);
    if (command == "duplicates")
        return libmgr::RunDuplicatesCommand(arguments);
    if (command == "tree")
        return libmgr::RunTreeCommand(arguments);
    if (command == "gen")
        return libmgr::RunGenCommand(arguments);
    if (command == "check")
        return libmgr::RunCheckCommand(arguments);
    if (command == "pack")
        return libmgr::RunPackCommand(arguments);
    if (command == "unpack")
        return libmgr::RunUnpackCommand(arguments);
    if (command == "part")
        return libmgr::RunPartCommand(arguments);
    std::cerr << "libmgr: unknown command '" << command << "'; see 'libmgr --help'\n";
    return ExitUsage;
}
