#pragma once

// The object file systems' utilities that the component uses.
#include "VBUtils/DateTime.hpp"
#include "VBUtils/NotUndoableClass.hpp"
#include "VBUtils/ObjectVFS.hpp"
#include "VBUtils/ProcessControl.hpp"
