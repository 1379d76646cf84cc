#include "services/FileTypeInitializer.hpp"

#include "InputOutput/FileTypeManager.hpp"

namespace LM {

namespace {

constexpr std::uint32_t ImageCreator = FTM::MakeCode("KLTX");

FTM::TypeID AddImageType(FTM::FileTypeManager* manager, const char* name, const char* extensions,
                         std::uint32_t type) {
    return manager->AddType(FTM::FileType(KL::UniString(name), KL::UniString(extensions), ImageCreator, type),
                            FTM::RootGroup);
}

// Reuses a type the manager knows by its mime already.
FTM::TypeID FindOrAddImageType(FTM::FileTypeManager* manager, const char* mime, const char* name,
                               const char* extensions, std::uint32_t type) {
    FTM::TypeID found = manager->SearchForMime(mime);
    if (found.GetValue() < 0)
        found = FTM::UnknownType;
    return found == FTM::UnknownType ? AddImageType(manager, name, extensions, type) : found;
}

} // namespace

IFileTypeInitializer::~IFileTypeInitializer() = default;
DefaultFileTypeInitializer::~DefaultFileTypeInitializer() = default;

void DefaultFileTypeInitializer::InitImageFileTypes(PublicIDs& ids, FTM::FileTypeManager* manager) {
    ids.imageGroup = manager->AddGroup(KL::UniString("All Images"), FTM::RootGroup);
    bitmapType = FindOrAddImageType(manager, "image/bmp", "Bitmap Image", "bmp", FTM::MakeCode("BMP "));
    jpegType =
        FindOrAddImageType(manager, "image/jpeg", "JPEG Image", "jpg;jpeg;jfif", FTM::MakeCode("JPEG"));
    tiffType = FindOrAddImageType(manager, "image/tiff", "TIFF Image", "tif;tiff", FTM::MakeCode("TIFF"));
    pngType = FindOrAddImageType(manager, "image/png", "PNG Image", "png", FTM::MakeCode("PNG "));
    sgiType = AddImageType(manager, "SGI Image", "sgi", FTM::MakeCode(".SGI"));
    photoshopType = AddImageType(manager, "Photoshop Image", "psd", FTM::MakeCode("8BPS"));
    pictType = AddImageType(manager, "PICT Image", "pct;pict", FTM::MakeCode("PICT"));
    macPaintType = AddImageType(manager, "MacPaint Image", "pntg", FTM::MakeCode("PNTG"));
    tgaType = AddImageType(manager, "Truevision TGA Image", "tga", FTM::MakeCode("TPIC"));
    quickTimeType = AddImageType(manager, "QuickTime Image", "qtif", FTM::MakeCode("qtif"));
    for (FTM::TypeID type : {bitmapType, jpegType, tiffType, sgiType, photoshopType, pictType, pngType,
                             macPaintType, tgaType, quickTimeType})
        manager->AddTypeToGroup(type, ids.imageGroup);
}

void DefaultFileTypeInitializer::DestructImageFileTypes(PublicIDs& ids, FTM::FileTypeManager* manager) {
    for (FTM::TypeID type : {bitmapType, jpegType, unusedType, tiffType, sgiType, photoshopType, pictType,
                             pngType, macPaintType, tgaType, quickTimeType})
        manager->RemoveType(type);
    manager->RemoveGroup(ids.imageGroup);
}

} // namespace LM
