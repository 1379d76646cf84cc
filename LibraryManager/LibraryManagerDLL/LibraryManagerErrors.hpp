#pragma once

#include "KLRoot/ErrorCodes.hpp"

namespace LM {

// The component's error codes; 0 is success everywhere.
inline constexpr int LibPartFileError = KL::ErrStreamFormat; // -7003: bad index, no store, bad stream
inline constexpr int NoDataError = KL::ErrNoData;            // -6000: the file has no such data
inline constexpr int InvalidPartError = KL::ErrParam;        // -50: invalid part or null output
inline constexpr int ParamError = KL::ErrParam;              // -50: a null output the caller must give
inline constexpr int EndOfScriptError = -1010;               // a script has no further line
inline constexpr int ContainerWalkSoftFailure = KL::ErrIO;   // -36: a container walk had soft failures

} // namespace LM
