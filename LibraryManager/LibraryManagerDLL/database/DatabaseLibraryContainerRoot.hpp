#pragma once

// The root object of a database container, and the root object of a container's own file
// database. The container root keeps the values that head a container file (magic, file type,
// version, platform) and an estimate of the file count; nothing reads it back to test them.
// A container is built once and never changed: the create and delete operations that the object
// file system's interface asks for refuse.
#include "database/DatabaseLibraryContainerEntries.hpp"

#include "ObjectDatabase/Object.hpp"
#include "ObjectDatabase/Ref.hpp"

#include "InputOutput/Name.hpp"
#include "KLRoot/Array.hpp"
#include "KLRoot/KLExport.hpp"

#include <cstdint>

namespace LM {

class LM_EXPORT DatabaseLibraryContainerRoot : public ODB::Object {
public:
    static const KL::ClassInfo classInfo;
    static ODB::Object* ConstructorFunction();

    class LM_EXPORT IsolatedState : public ODB::IsolatedState {
    public:
        std::int32_t magic = 0;
        std::int32_t fileType = 0;
        std::int16_t versionH = 0;
        std::int16_t versionL = 0;
        std::int32_t platform = 0;
        std::uint32_t fileCount = 0;
    };

    DatabaseLibraryContainerRoot();
    DatabaseLibraryContainerRoot(std::int32_t magic, std::int32_t fileType, std::int16_t versionH,
                                 std::int16_t versionL);
    ~DatabaseLibraryContainerRoot() override;

    const KL::ClassInfo* GetClassInfo() const override;
    int WriteIsolatedState(KL::OChannel& channel) const override;
    int ReadIsolatedState(KL::IChannel& channel) override;
    ODB::IsolatedState* CreateIsolatedState() const override;
    int StoreIsolatedState(ODB::IsolatedState* state) const override;
    int RestoreIsolatedState(const ODB::IsolatedState* state) override;
    std::uint64_t GetIsolatedSize() const override;

    std::int32_t GetTLCMagic() const { return magic; }
    std::int32_t GetTLCFileType() const { return fileType; }
    std::int16_t GetTLCVersionH() const { return versionH; }
    std::int16_t GetTLCVersionL() const { return versionL; }
    std::int32_t GetPlatform() const { return platform; }
    std::uint32_t GetFileCount() const { return fileCount; }
    void SetFileCount(std::uint32_t count) { fileCount = count; }

    // The single top folder, if connected.
    void GetConnectedFolderObjects(KL::Array<ODB::Ref<DatabaseLibraryContainerFolder>>* list) const;
    // The root holds no file directly: the list only empties.
    void GetConnectedFileObjects(KL::Array<ODB::Ref<DatabaseLibraryContainerLibPartHeader>>* list) const;
    ODB::Ref<DatabaseLibraryContainerFolder> CreateFolderObject(const IO::Name& name, bool subContainer);
    ODB::Ref<DatabaseLibraryContainerLibPartHeader> CreateFileObject(const IO::Name& name);
    void DeleteFolderObject(const ODB::Ref<DatabaseLibraryContainerFolder>& folder);
    void DeleteFileObject(const ODB::Ref<DatabaseLibraryContainerLibPartHeader>& file);

private:
    int WriteCoreVersion1(KL::OChannel& channel) const;
    int WriteCoreVersion2(KL::OChannel& channel) const;
    int ReadCoreVersion1(KL::IChannel& channel);
    int ReadCoreVersion2(KL::IChannel& channel);

    std::int32_t magic;
    std::int32_t fileType;
    std::int16_t versionH;
    std::int16_t versionL;
    std::int32_t platform = 0x5757;
    std::uint32_t fileCount = 0;
};

// The root object of a container's file database; the owner side of its container root.
class LM_EXPORT LibraryContainerFileRoot : public ODB::Object {
public:
    static const KL::ClassInfo classInfo;
    static ODB::Object* ConstructorFunction();

    LibraryContainerFileRoot();
    ~LibraryContainerFileRoot() override;

    const KL::ClassInfo* GetClassInfo() const override;
    int WriteIsolatedState(KL::OChannel& channel) const override;
    int ReadIsolatedState(KL::IChannel& channel) override;
};

} // namespace LM
