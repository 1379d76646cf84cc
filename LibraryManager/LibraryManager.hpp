#pragma once

// Everything a host needs: the component's exported classes and the platform types they use.
#include "InputOutput/InputOutput.hpp"
#include "KLRoot/KLRoot.hpp"
#include "KLUtils/KLUtils.hpp"

#include "LibraryManagerVersion.hpp"
