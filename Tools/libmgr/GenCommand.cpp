#include "GenCommand.hpp"
#include "Interrupt.hpp"
#include "LibraryGenerator.hpp"

#include <filesystem>
#include <iostream>
#include <optional>
#include <unistd.h>

namespace libmgr {

namespace {

constexpr const char* GenHelp =
    "Usage: libmgr gen OUT --parts N [--seed S] [--depth D] [--duplicates P] [--tiny] [--force] [-q]\n"
    "\n"
    "Writes a synthetic library into the folder OUT, which must not exist or be empty: templates\n"
    "in a type tree whose ancestry chains run 1 to D deep, N placeable parts in nested folders with\n"
    "scripts and parameters of 2 to 40 KiB, pictures and texts, and P percent of clashing copies,\n"
    "half with the same id and half as another revision. The same options and seed give the same\n"
    "files, byte for byte.\n"
    "\n"
    "  --parts N        placeable parts, 1 to 1000000\n"
    "  --seed S         seed of the generator, 0 to 4294967295 (default 1)\n"
    "  --depth D        longest ancestry chain, 1 to 6 (default 6)\n"
    "  --duplicates P   percent of parts with a clashing copy, 0 to 50 (default 3)\n"
    "  --tiny           parts of a few hundred bytes and pictures under 512 bytes, for catalogues\n"
    "                   of up to a million parts\n"
    "  --force          write into OUT even when it holds files; same names are overwritten\n"
    "  -q               no progress on the terminal\n"
    "\n"
    "Interrupted (Ctrl-C), it takes away what it wrote, unless OUT held files before.\n";

// A number within its range, read by one of the foundation's strict parsers; `*value` changes only
// when the text is good.
template <typename Number, typename Parse>
bool ParseInRange(const std::string& text, Parse parse, Number min, Number max, Number* value) {
    Number parsed{};
    if (!parse(text, &parsed) || parsed < min || parsed > max)
        return false;
    *value = parsed;
    return true;
}

struct GenArguments {
    std::string output;
    GeneratorOptions options;
    bool quiet = false;
    bool force = false;
};

std::optional<GenArguments> ParseGenArguments(const Arguments& arguments, int* exitCode) {
    GenArguments parsed;
    bool partsGiven = false;
    const std::vector<std::string>& values = arguments.values;
    const auto fail = [&](const std::string& text) {
        *exitCode = Complain(arguments, text, ExitUsage);
        return std::nullopt;
    };
    for (std::size_t i = 0; i < values.size(); ++i) {
        const std::string& option = values[i];
        if (option == "-q" || option == "--quiet") {
            parsed.quiet = true;
            continue;
        }
        if (option == "--force") {
            parsed.force = true;
            continue;
        }
        if (option == "--tiny") {
            parsed.options.tiny = true;
            continue;
        }
        if (!option.starts_with("-")) {
            if (!parsed.output.empty())
                return fail("unexpected argument '" + option + "'");
            parsed.output = option;
            continue;
        }
        // "--parts=5" as well as "--parts 5".
        const std::size_t equals = option.starts_with("--") ? option.find('=') : std::string::npos;
        if (equals == std::string::npos && i + 1 == values.size())
            return fail(option + " needs a value; see 'libmgr gen --help'");
        const std::string value = equals != std::string::npos ? option.substr(equals + 1) : values[++i];
        const std::string name = option.substr(0, equals);
        GeneratorOptions& options = parsed.options;
        bool valid = true;
        if (name == "--parts")
            valid = partsGiven = ParseInRange(value, KL::ParseInt32, 1, 1000000, &options.parts);
        else if (name == "--seed")
            valid = KL::ParseUInt32(value, &options.seed);
        else if (name == "--depth")
            valid = ParseInRange(value, KL::ParseInt32, 1, 6, &options.depth);
        else if (name == "--duplicates")
            valid = ParseInRange(value, KL::ParseDouble, 0.0, 50.0, &options.duplicates);
        else
            return fail("unknown option '" + option + "'");
        if (!valid)
            return fail("'" + value + "' is no value for " + name + "; see 'libmgr gen --help'");
    }
    if (parsed.output.empty())
        return fail("where to? see 'libmgr gen --help'");
    if (!partsGiven)
        return fail("how many parts? give --parts N");
    return parsed;
}

// Takes away a library that was cut short: the folder itself if this run made it, else its content.
void RemoveWritten(const std::filesystem::path& root, bool existed) {
    std::error_code ignored;
    if (!existed) {
        std::filesystem::remove_all(root, ignored);
        return;
    }
    for (const std::filesystem::directory_entry& entry : std::filesystem::directory_iterator(root, ignored))
        std::filesystem::remove_all(entry.path(), ignored);
}

} // namespace

int RunGenCommand(const Arguments& arguments) {
    if (arguments.WantsHelp()) {
        std::cout << GenHelp;
        return ExitSuccess;
    }
    int exitCode = ExitSuccess;
    const std::optional<GenArguments> parsed = ParseGenArguments(arguments, &exitCode);
    if (!parsed)
        return exitCode;
    const std::filesystem::path root = std::filesystem::absolute(parsed->output).lexically_normal();
    std::error_code error;
    const bool existed = std::filesystem::exists(root, error);
    if (existed && !std::filesystem::is_directory(root, error))
        return Complain(arguments, parsed->output + ": exists and is not a folder", ExitFailure);
    const bool heldFiles = existed && !std::filesystem::is_empty(root, error);
    if (heldFiles && !parsed->force)
        return Complain(arguments, parsed->output + ": holds files; give --force to write into it",
                        ExitFailure);

    const bool showProgress = !parsed->quiet && ::isatty(STDERR_FILENO) == 1;
    LibraryGenerator generator(parsed->options);
    GeneratorSummary summary;
    std::string failedPath;
    int result = KL::NoError;
    {
        InterruptGuard guard;
        result = generator.Generate(
            root,
            [showProgress](int done, int total) {
                if (showProgress && (done % 100 == 0 || done == total))
                    std::cerr << "\r\x1b[Kgenerating " << done << " of " << total << " parts" << std::flush;
                return !Interrupted();
            },
            &summary, &failedPath);
    }
    if (showProgress)
        std::cerr << "\r\x1b[K" << std::flush;
    if (result == LibraryGenerator::Stopped) {
        if (heldFiles)
            return Complain(arguments, "interrupted; " + parsed->output + " holds what was written so far",
                            ExitFailure);
        RemoveWritten(root, existed);
        return Complain(arguments, "interrupted; nothing was left", ExitFailure);
    }
    if (result != KL::NoError)
        return Complain(arguments, failedPath + ": " + ErrorText(result), ExitFailure);
    std::cout << "parts       " << summary.parts << " below " << summary.templates << " templates, in "
              << summary.folders << " folders\n"
              << "clashes     " << summary.idDuplicates << " copies with the same id, "
              << summary.revisionConflicts << " other revisions\n"
              << "others      " << summary.pictures << " pictures, " << summary.texts << " texts\n"
              << "size        " << (summary.bytes + 512 * 1024) / (1024 * 1024) << " MiB\n";
    return ExitSuccess;
}

} // namespace libmgr
