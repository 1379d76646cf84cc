#pragma once

// The error handler every database of a container gets: it turns each database fault into an
// exception, so a fault surfaces through whatever database call was running. A fault while
// opening or making a database is an opening failure; any other fault is a container exception.
// Both carry the database's own code.
#include "ObjectDatabase/FileDatabase.hpp"

#include "KLRoot/KLExport.hpp"

namespace LM {

class LM_EXPORT DatabaseLibraryContainerErrorHandler : public ODB::FileDatabase::ErrorHandler {
public:
    DatabaseLibraryContainerErrorHandler();
    ~DatabaseLibraryContainerErrorHandler() override;

    [[noreturn]] void ErrorEncountered(const ODB::FileDatabase* database,
                                       ODB::FileDatabase::Operation::Value operation,
                                       ODB::FileDatabase::Subject::Value subject,
                                       ODB::FileDatabase::ErrorCode::Value error, int code) override;
};

} // namespace LM
