#include "KLRoot/ClassInfo.hpp"

#include "KLRoot/PagedArray.hpp"

namespace KL {

const ClassInfo PagedArrayPrivate::classInfo("KL::PagedArrayPrivate",
                                             Guid("0C9D2F6E-41B8-4A57-8E3D-6F1A2B9C4D85"), 1, 0);

bool ClassInfo::IsCompatibleWith(const ClassInfo& other) const {
    for (const ClassInfo* info = this; info != nullptr; info = info->base) {
        if (info == &other || (!other.guid.IsNull() && info->guid == other.guid))
            return true;
    }
    return false;
}

} // namespace KL
