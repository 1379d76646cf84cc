#pragma once

// How a container file is written: compression (off, or the three words of the zip channel's
// options), the name under which an embedded library is stored, and whether readers show the
// container's top folder. The process-wide default names every embedded library, whatever the
// options of the call.
#include "InputOutput/ZipChannel.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/UniString.hpp"

#include <memory>

namespace LM {

class LM_EXPORT ContainerWriteOptions {
public:
    // Null zip options switch compression off.
    explicit ContainerWriteOptions(const IO::ZipOChannelOptions* zipOptions = nullptr,
                                   bool createTopFolder = true);
    ContainerWriteOptions(const IO::ZipOChannelOptions& zipOptions, bool createTopFolder);
    ContainerWriteOptions(const ContainerWriteOptions& other);
    ContainerWriteOptions& operator=(const ContainerWriteOptions& other);
    ~ContainerWriteOptions();

    bool IsZipEnabled() const { return zipOptions != nullptr; }
    // Raises KL::BMNullPointerException when compression is off.
    const IO::ZipOChannelOptions& GetZipOptions() const;
    void DisableZip() { zipOptions.reset(); }
    void SetZipOptions(const IO::ZipOChannelOptions& options);

    bool CreateTopFolder() const { return createTopFolder; }
    const KL::UniString& GetEmbeddedName() const { return embeddedName; }
    void SetEmbeddedName(const KL::UniString& name) { embeddedName = name; }

private:
    std::unique_ptr<IO::ZipOChannelOptions> zipOptions;
    KL::UniString embeddedName;
    bool createTopFolder;
};

// The process's default; its embedded name starts as "Embedded Library". A host may point it at
// options of its own before it writes the first container with an embedded library.
LM_EXPORT extern ContainerWriteOptions* DefaultContainerWriteOptions;

} // namespace LM
