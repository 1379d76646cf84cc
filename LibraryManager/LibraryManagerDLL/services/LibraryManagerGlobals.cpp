#include "services/LibraryManagerGlobals.hpp"

namespace LM {

namespace {

struct ProcessRecords {
    LibraryManagerCallBacks callBacks;
    LibraryManagerStrings strings;
    FTM::GeneralID symbolFileGroup{FTM::UnknownGroup};
    FTM::GeneralID scriptFileType{FTM::UnknownType};
};

ProcessRecords& Records() {
    static ProcessRecords records;
    return records;
}

} // namespace

void InitLibraryManager(const LibraryManagerCallBacks& callBacks, const LibraryManagerStrings& strings,
                        const FTM::GeneralID& symbolFileGroup, const FTM::GeneralID& scriptFileType) {
    ProcessRecords& records = Records();
    records.callBacks = callBacks;
    records.strings = strings;
    records.symbolFileGroup = symbolFileGroup;
    records.scriptFileType = scriptFileType;
}

void FreeLibraryManager() {}

const LibraryManagerCallBacks& GetLibraryManagerCallBacks() {
    return Records().callBacks;
}
const LibraryManagerStrings& GetLibraryManagerStrings() {
    return Records().strings;
}
const FTM::GeneralID& GetSymbolFileGroup() {
    return Records().symbolFileGroup;
}
const FTM::GeneralID& GetScriptFileType() {
    return Records().scriptFileType;
}

} // namespace LM
