#include "catalogue/LibraryErrorHandler.hpp"

namespace LM {

ILibraryErrorHandler::~ILibraryErrorHandler() = default;

DefLibraryErrorHandler::~DefLibraryErrorHandler() = default;

void DefLibraryErrorHandler::Reset() {
    idDuplicates.Clear();
    nameDuplicates.Clear();
    revisionConflicts.Clear();
    sameNameDifferentContents.Clear();
}

void DefLibraryErrorHandler::ReportRevisionConflict(const DuplicateReport& report) {
    revisionConflicts.Push(report);
}

void DefLibraryErrorHandler::ReportNameDuplicate(const DuplicateReport& report) {
    nameDuplicates.Push(report);
}

void DefLibraryErrorHandler::ReportIdDuplicate(const DuplicateReport& report) {
    idDuplicates.Push(report);
}

void DefLibraryErrorHandler::ReportSameNameDifferentContent(const DuplicateReport& report) {
    sameNameDifferentContents.Push(report);
}

bool DefLibraryErrorHandler::AcceptDuplicateLocation(const IO::Location&) {
    return true;
}

} // namespace LM
