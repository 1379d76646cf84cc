#pragma once

// Utilities over the file layer: scratch files, the text forms of locations, resource mounts, the
// product's version file.
#include "KLUtils/KLUtilsErrors.hpp"
#include "KLUtils/LocationSource.hpp"
#include "KLUtils/ProductVersionInfo.hpp"
#include "KLUtils/ResourceFileSystem.hpp"
#include "KLUtils/ScratchFile.hpp"
