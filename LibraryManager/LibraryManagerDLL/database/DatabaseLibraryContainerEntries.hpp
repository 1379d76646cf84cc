#pragma once

// The entries of a database container's tree: folders, and the headers that stand for files.
// A header is small, so a folder lists without touching any file's bytes; what it tells of its
// file (size, times, type, bytes) it reads through from its content, linked one to one. The two
// header classes differ only by class: a symbol header stands for a library part.
#include "containers/ContainerFormat.hpp"

#include "ObjectDatabase/Object.hpp"
#include "ObjectDatabase/Ref.hpp"
#include "VBUtils/DateTime.hpp"

#include "InputOutput/Name.hpp"
#include "KLRoot/Array.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/UniString.hpp"

#include <cstdint>

namespace LM {

class DatabaseLibraryContainerFolder;
class DatabaseLibraryContainerLibPartContent;
class DatabaseLibraryContainerLibPartHeader;

class LM_EXPORT DatabaseLibraryContainerEntry : public ODB::Object {
public:
    static const KL::ClassInfo classInfo;
    static ODB::Object* ConstructorFunction();

    class LM_EXPORT IsolatedState : public ODB::IsolatedState {};

    DatabaseLibraryContainerEntry();
    ~DatabaseLibraryContainerEntry() override;

    const KL::ClassInfo* GetClassInfo() const override;
    int WriteIsolatedState(KL::OChannel& channel) const override;
    int ReadIsolatedState(KL::IChannel& channel) override;
    ODB::IsolatedState* CreateIsolatedState() const override;
    int StoreIsolatedState(ODB::IsolatedState* state) const override;
    int RestoreIsolatedState(const ODB::IsolatedState* state) override;
    std::uint64_t GetIsolatedSize() const override;
};

class LM_EXPORT DatabaseLibraryContainerFolder : public DatabaseLibraryContainerEntry {
public:
    static const KL::ClassInfo classInfo;
    static ODB::Object* ConstructorFunction();

    class LM_EXPORT IsolatedState : public DatabaseLibraryContainerEntry::IsolatedState {
    public:
        KL::UniString name;
        InfoArray infos;
        bool isSubContainer = false;
    };

    DatabaseLibraryContainerFolder();
    explicit DatabaseLibraryContainerFolder(const KL::UniString& name);
    ~DatabaseLibraryContainerFolder() override;

    const KL::ClassInfo* GetClassInfo() const override;
    int WriteIsolatedState(KL::OChannel& channel) const override;
    int ReadIsolatedState(KL::IChannel& channel) override;
    ODB::IsolatedState* CreateIsolatedState() const override;
    int StoreIsolatedState(ODB::IsolatedState* state) const override;
    int RestoreIsolatedState(const ODB::IsolatedState* state) override;
    std::uint64_t GetIsolatedSize() const override;

    const KL::UniString& GetName() const { return name; }
    IO::Name GetNameIO() const { return IO::Name(name); }
    void SetNameIO(const IO::Name& newName);
    bool IsSubContainer() const { return isSubContainer; }
    void IsSubContainer(bool value) { isSubContainer = value; }
    // Replaces the items with deep copies.
    void SetInfoData(const KL::Array<InfoData*>& items);
    // Appends deep copies that the caller owns; returns how many.
    unsigned GetInfoData(KL::Array<InfoData*>& items) const;
    const InfoArray& GetInfos() const { return infos; }

    // The children of each kind, in link order.
    void GetConnectedFolderObjects(KL::Array<ODB::Ref<DatabaseLibraryContainerFolder>>* list) const;
    void GetConnectedFileObjects(KL::Array<ODB::Ref<DatabaseLibraryContainerLibPartHeader>>* list) const;
    // A container is built once and never changed: these refuse.
    ODB::Ref<DatabaseLibraryContainerFolder> CreateFolderObject(const IO::Name& folderName,
                                                                bool subContainer);
    ODB::Ref<DatabaseLibraryContainerLibPartHeader> CreateFileObject(const IO::Name& fileName);
    void DeleteFolderObject(const ODB::Ref<DatabaseLibraryContainerFolder>& folder);
    void DeleteFileObject(const ODB::Ref<DatabaseLibraryContainerLibPartHeader>& file);

private:
    KL::UniString name;
    InfoArray infos;
    bool isSubContainer = false;
};

class LM_EXPORT DatabaseLibraryContainerLibPartHeader : public DatabaseLibraryContainerEntry {
public:
    static const KL::ClassInfo classInfo;
    static ODB::Object* ConstructorFunction();

    class LM_EXPORT IsolatedState : public DatabaseLibraryContainerEntry::IsolatedState {
    public:
        KL::UniString name;
    };

    DatabaseLibraryContainerLibPartHeader();
    explicit DatabaseLibraryContainerLibPartHeader(const KL::UniString& name);
    ~DatabaseLibraryContainerLibPartHeader() override;

    const KL::ClassInfo* GetClassInfo() const override;
    int WriteIsolatedState(KL::OChannel& channel) const override;
    int ReadIsolatedState(KL::IChannel& channel) override;
    ODB::IsolatedState* CreateIsolatedState() const override;
    int StoreIsolatedState(ODB::IsolatedState* state) const override;
    int RestoreIsolatedState(const ODB::IsolatedState* state) override;
    std::uint64_t GetIsolatedSize() const override;

    const KL::UniString& GetName() const { return name; }
    IO::Name GetNameIO() const { return IO::Name(name); }
    void SetNameIO(const IO::Name& newName);

    // Read through to the content; with none, 0 and zero values, and -7003 for the bytes.
    std::uint64_t GetDataSize() const;
    int GetBinData(char* dest, std::uint64_t offset, std::uint32_t size, std::uint32_t* read) const;
    OVFS::DateTime GetCreationTime() const;
    OVFS::DateTime GetModificationTime() const;
    std::int32_t GetMacType() const;
    std::int32_t GetMacCreator() const;
    // Contents are never written through a header.
    int SetBinData(const char* source, std::uint64_t offset, std::uint32_t size, std::uint32_t* written);
    ODB::ConstRef<DatabaseLibraryContainerLibPartContent> GetContent() const;

private:
    KL::UniString name;
};

class LM_EXPORT DatabaseLibraryContainerSymbolHeader : public DatabaseLibraryContainerLibPartHeader {
public:
    static const KL::ClassInfo classInfo;
    static ODB::Object* ConstructorFunction();

    class LM_EXPORT IsolatedState : public DatabaseLibraryContainerLibPartHeader::IsolatedState {};

    DatabaseLibraryContainerSymbolHeader();
    explicit DatabaseLibraryContainerSymbolHeader(const KL::UniString& name);
    ~DatabaseLibraryContainerSymbolHeader() override;

    const KL::ClassInfo* GetClassInfo() const override;
    int WriteIsolatedState(KL::OChannel& channel) const override;
    int ReadIsolatedState(KL::IChannel& channel) override;
    ODB::IsolatedState* CreateIsolatedState() const override;
    int StoreIsolatedState(ODB::IsolatedState* state) const override;
    int RestoreIsolatedState(const ODB::IsolatedState* state) override;
};

} // namespace LM
