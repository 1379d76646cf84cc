#pragma once

// Everything a host needs: the component's exported classes and the platform types they use.
#include "KLRoot/KLRoot.hpp"

#include "LibraryManagerVersion.hpp"
