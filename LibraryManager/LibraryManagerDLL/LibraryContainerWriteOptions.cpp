#include "LibraryContainerWriteOptions.hpp"

#include "KLRoot/Exceptions.hpp"

namespace LM {

ContainerWriteOptions::ContainerWriteOptions(const IO::ZipOChannelOptions* zip, bool createTopFolder)
    : zipOptions(zip != nullptr ? std::make_unique<IO::ZipOChannelOptions>(*zip) : nullptr),
      createTopFolder(createTopFolder) {}

ContainerWriteOptions::ContainerWriteOptions(const IO::ZipOChannelOptions& zip, bool createTopFolder)
    : ContainerWriteOptions(&zip, createTopFolder) {}

ContainerWriteOptions::ContainerWriteOptions(const ContainerWriteOptions& other)
    : ContainerWriteOptions(other.zipOptions.get(), other.createTopFolder) {
    embeddedName = other.embeddedName;
}

ContainerWriteOptions& ContainerWriteOptions::operator=(const ContainerWriteOptions& other) {
    if (this != &other) {
        zipOptions = other.zipOptions != nullptr ? std::make_unique<IO::ZipOChannelOptions>(*other.zipOptions)
                                                 : nullptr;
        embeddedName = other.embeddedName;
        createTopFolder = other.createTopFolder;
    }
    return *this;
}

ContainerWriteOptions::~ContainerWriteOptions() = default;

const IO::ZipOChannelOptions& ContainerWriteOptions::GetZipOptions() const {
    if (zipOptions == nullptr)
        throw KL::BMNullPointerException("the container write options have compression off", __FILE__,
                                         __LINE__);
    return *zipOptions;
}

void ContainerWriteOptions::SetZipOptions(const IO::ZipOChannelOptions& options) {
    zipOptions = std::make_unique<IO::ZipOChannelOptions>(options);
}

namespace {

ContainerWriteOptions& BuiltInDefault() {
    static ContainerWriteOptions options = [] {
        ContainerWriteOptions made;
        made.SetEmbeddedName(KL::UniString("Embedded Library"));
        return made;
    }();
    return options;
}

} // namespace

ContainerWriteOptions* DefaultContainerWriteOptions = &BuiltInDefault();

} // namespace LM
