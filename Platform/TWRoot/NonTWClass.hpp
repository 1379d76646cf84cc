#pragma once

// The class property of stored classes whose objects are never shared with other users of a
// host's database: each user's copy stands alone.
#include "ObjectDatabase/ClassRegistry.hpp"

#include "KLRoot/KLExport.hpp"

namespace TW {

class LM_EXPORT NonTWClass : public ODB::ClassProperty {
public:
    const char* GetName() const override { return "NonTWClass"; }
    static const NonTWClass& Get();
};

} // namespace TW
