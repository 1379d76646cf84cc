#include "VBUtils/NotUndoableClass.hpp"

namespace Undo {

const NotUndoableClass& NotUndoableClass::Get() {
    static const NotUndoableClass property;
    return property;
}

} // namespace Undo
