#include "bincode/QdlBinCodesContainer.hpp"

namespace LM {

QdlBinCodesContainer::QdlBinCodesContainer(int memoryLimit, int fileLimit)
    : memoryLimit(memoryLimit), fileLimit(fileLimit) {}

QdlBinCodesContainer::QdlBinCodesContainer(const IO::Location& folder, int memoryLimit, int fileLimit)
    : folder(folder), memoryLimit(memoryLimit), fileLimit(fileLimit) {}

QdlBinCodesContainer::~QdlBinCodesContainer() = default;

} // namespace LM
