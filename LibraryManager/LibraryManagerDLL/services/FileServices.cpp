#include "services/FileServices.hpp"

namespace LM {

FileServices::FileServices(LibrarySet* librarySet, const IO::Location& dataFolder, const FileTypeIDS& fileTypes,
                           GSHandle variables)
    : librarySet(librarySet), dataFolder(dataFolder), fileTypes(fileTypes), variables(variables) {}

FileServices::~FileServices() = default;

} // namespace LM
