#include "DatabaseLibraryContainerErrorHandler.hpp"

#include "database/DatabaseLibraryContainerExceptions.hpp"

namespace LM {

DatabaseLibraryContainerErrorHandler::DatabaseLibraryContainerErrorHandler() = default;

DatabaseLibraryContainerErrorHandler::~DatabaseLibraryContainerErrorHandler() = default;

void DatabaseLibraryContainerErrorHandler::ErrorEncountered(const ODB::FileDatabase*,
                                                            ODB::FileDatabase::Operation::Value operation,
                                                            ODB::FileDatabase::Subject::Value,
                                                            ODB::FileDatabase::ErrorCode::Value, int code) {
    if (operation == ODB::FileDatabase::Operation::Open || operation == ODB::FileDatabase::Operation::Create)
        throw DatabaseLibraryContainerOpeningFailedException(code, "Database opening failed", __FILE__,
                                                             __LINE__);
    throw DatabaseLibraryContainerException(code, "DatabaseLibraryContainer exception", __FILE__, __LINE__);
}

} // namespace LM
