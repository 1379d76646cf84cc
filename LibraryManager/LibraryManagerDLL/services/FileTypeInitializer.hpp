#pragma once

#include "services/FileTypeIDs.hpp"

#include "InputOutput/FileType.hpp"
#include "KLRoot/KLExport.hpp"

namespace FTM {
class FileTypeManager;
}

namespace LM {

// Registers the picture types; a host with its own image support supplies its own.
class LM_EXPORT IFileTypeInitializer {
public:
    virtual void InitImageFileTypes(PublicIDs& ids, FTM::FileTypeManager* manager) = 0;
    virtual void DestructImageFileTypes(PublicIDs& ids, FTM::FileTypeManager* manager) = 0;
    virtual ~IFileTypeInitializer();
};

// The picture types the component knows by itself, in the group "All Images". A type the manager
// already knows by its mime is reused rather than registered twice.
class LM_EXPORT DefaultFileTypeInitializer : public IFileTypeInitializer {
public:
    void InitImageFileTypes(PublicIDs& ids, FTM::FileTypeManager* manager) override;
    void DestructImageFileTypes(PublicIDs& ids, FTM::FileTypeManager* manager) override;
    ~DefaultFileTypeInitializer() override;

private:
    FTM::TypeID bitmapType;
    FTM::TypeID jpegType;
    FTM::TypeID unusedType; // kept for its place: it is removed on shut-down like the others
    FTM::TypeID tiffType;
    FTM::TypeID sgiType;
    FTM::TypeID photoshopType;
    FTM::TypeID pictType;
    FTM::TypeID pngType;
    FTM::TypeID macPaintType;
    FTM::TypeID tgaType;
    FTM::TypeID quickTimeType;
};

} // namespace LM
