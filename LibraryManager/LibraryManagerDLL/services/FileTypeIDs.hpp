#pragma once

#include "InputOutput/FileType.hpp"

namespace LM {

// The file type ids that start-up registers and a host may read.
struct PublicIDs {
    FTM::TypeID scriptType;
    FTM::TypeID textType;
    FTM::TypeID xmlType;
    FTM::TypeID packageType;
    FTM::TypeID listSetupType;
    // Never assigned by start-up; text types are added to its default value all the same.
    FTM::GroupID textGroup;
    FTM::TypeID listCriteriaType;
    FTM::GroupID symbolGroup;
    FTM::GroupID imageGroup;
};

// The ids the script engine's file services tell files apart by.
struct FileTypeIDS {
    FileTypeIDS() = default;
    FileTypeIDS(FTM::GroupID imageGroup, FTM::GroupID symbolGroup, FTM::TypeID scriptType,
                FTM::TypeID listSetupType, FTM::TypeID textType, FTM::GroupID textGroup,
                FTM::TypeID listCriteriaType)
        : imageGroup(imageGroup), symbolGroup(symbolGroup), scriptType(scriptType),
          listSetupType(listSetupType), textType(textType), textGroup(textGroup),
          listCriteriaType(listCriteriaType) {}

    FTM::GroupID imageGroup;
    FTM::GroupID symbolGroup;
    FTM::TypeID scriptType;
    FTM::TypeID listSetupType;
    FTM::TypeID textType;
    FTM::GroupID textGroup;
    FTM::TypeID listCriteriaType;
};

} // namespace LM
