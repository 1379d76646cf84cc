#include "containers/ContainerExtraction.hpp"

#include "containers/ContainerReader.hpp"

#include "InputOutput/File.hpp"
#include "KLRoot/ErrorCodes.hpp"

namespace LM {

DummyProcessor::~DummyProcessor() = default;

// A check must not create what it looks for: a missing file is simply no container.
bool CheckIfContainer(const IO::Location& location) {
    IO::File file(location);
    if (file.Open(IO::File::ReadMode) != KL::NoError)
        return false;
    // The header is all a check needs from what may be a large file.
    file.SetReadAhead(ContainerReader::RecordReadAhead);
    DummyProcessor nothing;
    ContainerReader reader(&nothing, false, false, nullptr, false);
    return reader.ReadHeader(file);
}

} // namespace LM
