#pragma once

#include "InputOutput/Location.hpp"
#include "KLRoot/Guid.hpp"
#include "KLRoot/KLExport.hpp"
#include "KLRoot/UniString.hpp"

namespace LM {

// The host's library server: the guid it keeps for a part, by server name and path in the library.
class LM_EXPORT IServerLibraryCollection {
public:
    virtual KL::Guid GetGuid(const KL::UniString& serverName, const IO::RelativeLocation& path) const = 0;
    virtual ~IServerLibraryCollection();
};

} // namespace LM
