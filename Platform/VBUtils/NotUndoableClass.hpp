#pragma once

// The class property of stored classes whose objects take no part in undo: what they hold is
// made once and replaced whole, never edited step by step.
#include "ObjectDatabase/ClassRegistry.hpp"

#include "KLRoot/KLExport.hpp"

namespace Undo {

class LM_EXPORT NotUndoableClass : public ODB::ClassProperty {
public:
    const char* GetName() const override { return "NotUndoableClass"; }
    static const NotUndoableClass& Get();
};

} // namespace Undo
