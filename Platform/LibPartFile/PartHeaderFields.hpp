#pragma once

#include "LibPartFile/PartFormat.hpp"

#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/KLExport.hpp"

namespace LPF {

// A part file's header as its readers give it out: each getter fills its output only when the
// file was read, and returns the reading's status, so a caller's default stays on failure.
class LM_EXPORT PartHeaderFields {
public:
    // 0, or why the file could not be opened.
    int GetStatus() const { return status; }
    int GetOwnUnID(KL::UnID* id) const { return Give(id, header.ownUnID); }
    int IsPlaceable(bool* placeable) const { return Give(placeable, (header.flags & PlaceableFlag) != 0); }
    int IsArchivable(bool* archivable) const {
        return Give(archivable, (header.flags & ArchivableFlag) != 0);
    }
    int GetMigrationValue(MigrationValue* value) const {
        return Give(value, static_cast<MigrationValue>(header.migrationValue));
    }
    int GetDocumentName(KL::UniString* name) const { return Give(name, header.documentName); }
    // The part's creator code.
    int GetOwner(unsigned* owner) const { return Give(owner, header.owner); }
    // The part's signature, its file type code.
    int GetType(unsigned* type) const { return Give(type, header.signature); }
    int GetVersion(short* version) const { return Give(version, header.version); }
    int GetOriginalVersion(short* version) const { return Give(version, header.originalVersion); }
    KL::PlatformSign GetByteOrder() const { return header.byteOrder; }

protected:
    template <typename T, typename V>
    int Give(T* output, const V& value) const {
        if (status == KL::NoError)
            *output = value;
        return status;
    }

    PartHeader header;
    int status = 0;
};

} // namespace LPF
