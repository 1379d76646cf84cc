// Feeds arbitrary bytes, as a part file outside any library, to everything the script engine reads
// through a file reference: scripts of every type line by line, parameter names, default
// parameters, the ancestry array, pictures, the drawing and binary 3D data.
#include <LibraryManager.hpp>

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

struct Services {
    Services() : path("/tmp/lm-fuzz-file-ref-" + std::to_string(::getpid()) + ".klm") {
        manager.InitLibraryManager(LM::BinaryCachingInMemory, nullptr, nullptr, nullptr);
    }
    ~Services() { ::unlink(path.c_str()); }

    std::string path;
    LM::LibrarySetSingletonLP manager;
};

void ReadEverything(FileRef& ref) {
    for (int type = 1; type <= 8; ++type) {
        KL::UniString unused;
        if (ref.OpenQDL(nullptr, static_cast<QDL_ScriptType>(type), unused) != 0)
            continue;
        KL::UniString line;
        QDL_ScriptType lineType = QDL_MasterScript;
        while (ref.GetFileLine(line, nullptr, &lineType) >= 0) {
        }
        ref.Close();
    }
    char** names = nullptr;
    int size = 0;
    ref.GetParamNames(&names, &size);
    BMKillHandle(&names);
    KL::ConstSharedPtr<QDLAddParData> params;
    ref.GetDefaultParams(params);
    KL::Array<KL::UnID> ancestors;
    ref.GetANCSArray(&ancestors);
    for (short index = 0; index < 3; ++index) {
        char name[256];
        char** picture = nullptr;
        ref.GetImageDataFromFile(index, &picture, name);
        BMKillHandle(&picture);
    }
    KL::ConstSharedPtr<ISymbol2D> drawing;
    ref.GetFragmentHdl(drawing);
    short count = 0;
    // The engine gives room for every binary section; so does this.
    if (ref.GetBINARYCount(&count) == 0 && count > 0) {
        std::vector<short> indices(static_cast<std::size_t>(count));
        ref.WhichBINARY(&count, indices.data());
        short version = 0;
        KL::PlatformSign platform = 0;
        char** data = nullptr;
        int dataSize = 0;
        ref.GetBinaryHdl(indices[0], &version, &platform, &data, &dataSize);
        BMKillHandle(&data);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Services services;
    std::ofstream(services.path, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    FileRef ref(IO::Location(services.path), *services.manager.GetFileServices());
    ReadEverything(ref);
    return 0;
}
