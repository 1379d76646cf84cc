#pragma once

// Everything a host needs: the component's exported classes and the platform types they use.
#include "InputOutput/InputOutput.hpp"
#include "KLMSections/KLMSections.hpp"
#include "KLRoot/KLRoot.hpp"
#include "KLUtils/KLUtils.hpp"
#include "LibPartFile/LibPartFile.hpp"
#include "QDL/QDL.hpp"
#include "VectorImage/VectorImage.hpp"

#include "LibraryManagerVersion.hpp"
