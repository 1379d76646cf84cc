#pragma once

// A file database as a host keeps one, with the container's error handler, for tests that build
// containers under a host's object or by hand.
#include <LibraryManager.hpp>

#include <string>

namespace testsupport {

struct ContainerDatabase {
    explicit ContainerDatabase(const IO::Location& file) : space("test host") {
        ODB::FileDatabase::Parameters parameters;
        parameters.idSpace = &space;
        parameters.errorHandler = &handler;
        database = std::make_unique<ODB::FileDatabase>(ODB::FileDatabase::Locations{file}, parameters);
    }
    ODB::FileDatabase* operator->() { return database.get(); }

    ODB::IdSpace space;
    LM::DatabaseLibraryContainerErrorHandler handler;
    std::unique_ptr<ODB::FileDatabase> database;
};

} // namespace testsupport
