// Feeds arbitrary bytes to the database container readers as a container file: the check by
// content, and the walk that writes every folder and file out. Whatever the database links, the
// output stays in its own folder, which is emptied after each input.
#include "FuzzFolder.hpp"

#include <LibraryManager.hpp>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

namespace {

const std::filesystem::path& Folder() {
    static const std::filesystem::path folder = [] {
        const std::filesystem::path made = fuzz::MakeFolder("database");
        // The preference the format reads lives here, never in a real home.
        ::setenv("LIBMGR_PREFERENCES", (made / "preferences.json").c_str(), 1);
        LM::SetDatabaseLibraryContainerFormatEnabled(true);
        return made;
    }();
    return folder;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::filesystem::path input = Folder() / "input.lcf";
    const std::filesystem::path output = Folder() / "out";
    std::ofstream(input, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    std::error_code ignored;
    std::filesystem::remove_all(output, ignored);
    std::filesystem::create_directories(output);
    const IO::Location location(input.string());
    // A damaged database is reported by the container's error handler as an exception, the way
    // libmgr meets it; anything else escaping is a fault.
    try {
        LM::CheckIfContainer(location);
        KL::NonInterruptibleProcessControl process;
        LM::ExtractContainer(process, location, IO::Location(output.string()), false, false, nullptr, false);
    } catch (const KL::KLException&) {
    }
    // A journal a reader left or rolled back must not carry over to the next input.
    std::filesystem::remove(Folder() / "input.lcf-journal", ignored);
    return 0;
}
