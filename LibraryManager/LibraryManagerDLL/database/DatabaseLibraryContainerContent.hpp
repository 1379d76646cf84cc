#pragma once

// The bulky half of a file in a database container: its whole bytes, uncompressed, with the
// file's name, MIME text, type, creator, times and info items. Contents live in a storage group
// of their own and are loaded only when a read asks for their bytes; once loaded, a file is one
// buffer in memory, which the database's memory limit lets go again.
#include "containers/ContainerFormat.hpp"

#include "ObjectDatabase/Object.hpp"
#include "VBUtils/DateTime.hpp"

#include "KLRoot/Array.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/UniString.hpp"

#include <cstdint>
#include <memory>
#include <vector>

namespace IO {
class Location;
}

namespace LM {

class LM_EXPORT DatabaseLibraryContainerLibPartContent : public ODB::Object {
public:
    static const KL::ClassInfo classInfo;
    static ODB::Object* ConstructorFunction();

    class LM_EXPORT IsolatedState : public ODB::IsolatedState {
    public:
        std::int32_t macType = 0;
        std::int32_t macCreator = 0;
        OVFS::DateTime creationTime;
        OVFS::DateTime modificationTime;
        KL::UniString name;
        KL::UniString mime;
        InfoArray infos;
        std::vector<char> libEntry;
    };

    DatabaseLibraryContainerLibPartContent();
    DatabaseLibraryContainerLibPartContent(const KL::UniString& name, const KL::UniString& mime,
                                           OVFS::DateTime creationTime, OVFS::DateTime modificationTime,
                                           std::int32_t macType, std::int32_t macCreator);
    ~DatabaseLibraryContainerLibPartContent() override;

    const KL::ClassInfo* GetClassInfo() const override;
    int WriteIsolatedState(KL::OChannel& channel) const override;
    int ReadIsolatedState(KL::IChannel& channel) override;
    ODB::IsolatedState* CreateIsolatedState() const override;
    int StoreIsolatedState(ODB::IsolatedState* state) const override;
    int RestoreIsolatedState(const ODB::IsolatedState* state) override;
    std::uint64_t GetIsolatedSize() const override;

    // Reads the whole file; an empty file leaves the bytes as they are.
    int SetLibEntry(const IO::Location& location);
    // Reads `size` bytes; a size of 0 is refused with -7003.
    int SetLibEntry(KL::IChannel& channel, std::uint32_t size);
    // All of `size` bytes from `offset`, or nothing and -7003: never a short read.
    int GetBinData(char* dest, std::uint64_t offset, std::uint32_t size, std::uint32_t* read) const;
    int WriteToChannel(KL::OChannel& channel) const;

    std::uint32_t GetLibEntrySize() const { return libEntrySize; }
    const KL::UniString& GetName() const { return name; }
    const KL::UniString& GetMime() const { return mime; }
    OVFS::DateTime GetCreationTime() const { return creationTime; }
    OVFS::DateTime GetModificationTime() const { return modificationTime; }
    std::int32_t GetMacType() const { return macType; }
    std::int32_t GetMacCreator() const { return macCreator; }
    void SetInfoData(const KL::Array<InfoData*>& items);
    unsigned GetInfoData(KL::Array<InfoData*>& items) const;

private:
    void TakeLibEntry(std::unique_ptr<char[]> bytes, std::uint32_t size);

    std::int32_t macType = 0;
    std::int32_t macCreator = 0;
    OVFS::DateTime creationTime;
    OVFS::DateTime modificationTime;
    KL::UniString name;
    KL::UniString mime;
    InfoArray infos;
    std::uint32_t libEntrySize = 0;
    std::unique_ptr<char[]> libEntry;
};

} // namespace LM
