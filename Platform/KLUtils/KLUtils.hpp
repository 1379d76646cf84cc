#pragma once

// Utilities over the file layer: scratch files, the text forms of locations, resource mounts.
#include "KLUtils/LocationSource.hpp"
#include "KLUtils/ResourceFileSystem.hpp"
#include "KLUtils/ScratchFile.hpp"
