// Feeds arbitrary bytes to the compiled script cache's reader as a cache file: the table read into a
// list, then the file loaded as a store that reads every item's code and ancestry back.
#include "FuzzFolder.hpp"

#include <LibraryManager.hpp>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

const std::filesystem::path& Folder() {
    static const std::filesystem::path folder = fuzz::MakeFolder("bincode");
    return folder;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::filesystem::path cache = Folder() / "Tectonix QdlBinCode.dat";
    std::ofstream(cache, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    LM::QdlBinCodesContainer store(IO::Location(Folder().string()), 0, 0);
    {
        IO::File file(IO::Location(cache.string()));
        LM::QdlBinCodesContainer::Items items;
        store.LoadBinCodesContainer(&file, &items);
    }
    for (int index = 0; index < static_cast<int>(store.GetItemCount()); ++index) {
        KL::ConstSharedPtr<BinCode> code;
        KL::ConstSharedPtr<LM::AncestryHandleWrapper> ancestry;
        store.GetQdlBinCode(index, &code, &ancestry);
    }
    // Nothing to write back: the store's end then only removes the file.
    store.ClearAllQdlBinCodes();
    return 0;
}
