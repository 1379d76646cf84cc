#include "PartCommands.hpp"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>

namespace libmgr {

namespace {

constexpr const char* PartUsage =
    "Usage: libmgr part <build|dump> ...\n"
    "\n"
    "Author library part files (.klm) through their XML description.\n"
    "\n"
    "  build SOURCE.xml [-o PART.klm]   compile a description into a part file\n"
    "                                   (default output: SOURCE with the extension .klm)\n"
    "  dump PART.klm [-o OUT.xml]       write a part file as its description\n"
    "                                   (default output: standard output)\n"
    "\n"
    "A file named - is standard input or standard output. An output that is the input is\n"
    "refused.\n"
    "\n"
    "Dumping a built part gives its source back; the format is in docs/formats/part-xml.md.\n"
    "Guids the source leaves out are made fresh at each build.\n";

// Standard input or output, wherever a file is read or written.
struct InputAndOutput {
    std::string input;
    std::string output;
};

// One positional argument and an optional "-o FILE".
std::optional<InputAndOutput> ParseInputAndOutput(const Arguments& arguments, int* exitCode) {
    InputAndOutput parsed;
    const std::vector<std::string>& values = arguments.values;
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (values[i].starts_with("--output=")) {
            parsed.output = values[i].substr(std::string_view("--output=").size());
        } else if (values[i] == "-o" || values[i] == "--output") {
            if (i + 1 == values.size()) {
                *exitCode = Complain(arguments, "-o needs a file name", ExitUsage);
                return std::nullopt;
            }
            parsed.output = values[++i];
        } else if (values[i].starts_with("-") && values[i] != "-") {
            *exitCode = Complain(arguments, "unknown option '" + values[i] + "'", ExitUsage);
            return std::nullopt;
        } else if (parsed.input.empty()) {
            parsed.input = values[i];
        } else {
            *exitCode = Complain(arguments, "unexpected argument '" + values[i] + "'", ExitUsage);
            return std::nullopt;
        }
    }
    if (parsed.input.empty()) {
        *exitCode =
            Complain(arguments, "which file? see 'libmgr " + arguments.command + " --help'", ExitUsage);
        return std::nullopt;
    }
    std::error_code error;
    if (parsed.input != StandardStream && parsed.output != StandardStream && !parsed.output.empty() &&
        std::filesystem::equivalent(parsed.input, parsed.output, error)) {
        *exitCode =
            Complain(arguments, parsed.output + " is the input; write the output elsewhere", ExitUsage);
        return std::nullopt;
    }
    return parsed;
}

// The whole input: a file, or standard input for "-".
std::optional<std::string> ReadInput(const std::string& path) {
    std::ostringstream bytes;
    if (path == StandardStream) {
        bytes << std::cin.rdbuf();
        return bytes.str();
    }
    std::ifstream file(path, std::ios::binary);
    if (!file)
        return std::nullopt;
    bytes << file.rdbuf();
    return bytes.str();
}

int Build(const Arguments& arguments, const InputAndOutput* files) {
    if (files->input == StandardStream && files->output.empty())
        return Complain(arguments, "a description from standard input needs -o PART.klm (or -o -)",
                        ExitUsage);
    const std::optional<std::string> text = ReadInput(files->input);
    if (!text)
        return Complain(arguments, files->input + ": cannot be read", ExitFailure);
    KL::XMLIChannel xml;
    if (xml.Parse(*text) != KL::NoError)
        return Complain(arguments, files->input + ": not well-formed XML: " + xml.GetParseMessage(),
                        ExitFailure);
    LPF::SymbolFile part;
    std::string message;
    if (KLM::ReadPartXML(xml, &part, &message) != KL::NoError)
        return Complain(arguments, files->input + ": " + message, ExitFailure);
    const std::string output = files->output.empty()
                                   ? std::filesystem::path(files->input).replace_extension(".klm").string()
                                   : files->output;
    if (output == StandardStream) {
        KL::MemoryOChannel bytes(part.GetByteOrder());
        if (const int err = part.Write(bytes); err != KL::NoError)
            return Complain(arguments, files->input + ": " + ErrorText(err), ExitFailure);
        std::cout.write(bytes.GetData().data(), static_cast<std::streamsize>(bytes.GetData().size()));
        return ExitSuccess;
    }
    const std::optional<IO::Location> location = PathToLocation(output);
    if (!location)
        return Complain(arguments, output + ": not a usable path", ExitFailure);
    if (const int err = part.Save(*location); err != KL::NoError)
        return Complain(arguments, output + ": " + ErrorText(err), ExitFailure);
    return ExitSuccess;
}

// A part file from disk, or whole from standard input.
std::unique_ptr<LPF::SymbolFile> OpenPart(const std::string& path) {
    if (path != StandardStream) {
        const std::optional<IO::Location> location = PathToLocation(path);
        return location ? std::make_unique<LPF::SymbolFile>(*location) : nullptr;
    }
    const std::optional<std::string> bytes = ReadInput(path);
    return std::make_unique<LPF::SymbolFile>(std::vector<char>(bytes->begin(), bytes->end()));
}

int Dump(const Arguments& arguments, const InputAndOutput* files) {
    const std::unique_ptr<LPF::SymbolFile> opened = OpenPart(files->input);
    if (opened == nullptr)
        return Complain(arguments, files->input + ": not a usable path", ExitFailure);
    const LPF::SymbolFile& part = *opened;
    if (const int err = part.GetStatus(); err != KL::NoError)
        return Complain(arguments, files->input + ": " + ErrorText(err), ExitFailure);
    KL::XMLOChannel xml;
    std::string message;
    if (KLM::WritePartXML(part, xml, &message) != KL::NoError)
        return Complain(arguments, files->input + ": " + message, ExitFailure);
    return WriteOutput(arguments, files->output.empty() ? StandardStream : files->output, xml.ToString());
}

} // namespace

int RunPartCommand(const Arguments& arguments) {
    InitLibPartFile("Default_Set");
    const std::string verb = arguments.values.empty() ? "" : arguments.values.front();
    Arguments rest{arguments.command + " " + verb,
                   {arguments.values.begin() + (verb.empty() ? 0 : 1), arguments.values.end()}};
    static const struct {
        const char* verb;
        const char* help;
        int (*run)(const Arguments&, const InputAndOutput*);
    } verbs[] = {
        {"build",
         "Usage: libmgr part build SOURCE.xml [-o PART.klm]\n\n"
         "Compiles the XML description of a part into a part file. The output is written\n"
         "whole or not at all.\n",
         Build},
        {"dump",
         "Usage: libmgr part dump PART.klm [-o OUT.xml]\n\n"
         "Writes a part file as its XML description, on standard output or into OUT.xml.\n"
         "A damaged or hostile file gets one line on standard error and exit status 1.\n",
         Dump},
    };
    for (const auto& entry : verbs) {
        if (verb != entry.verb)
            continue;
        if (rest.WantsHelp()) {
            std::cout << entry.help;
            return ExitSuccess;
        }
        int exitCode = ExitUsage;
        const std::optional<InputAndOutput> files = ParseInputAndOutput(rest, &exitCode);
        return files ? entry.run(rest, &*files) : exitCode;
    }
    if (verb.empty() || verb == "--help" || verb == "-h" || verb == "help") {
        (verb.empty() ? std::cerr : std::cout) << PartUsage;
        return verb.empty() ? ExitUsage : ExitSuccess;
    }
    return Complain(arguments, "unknown subcommand '" + verb + "'; see 'libmgr part --help'", ExitUsage);
}

} // namespace libmgr
