#pragma once

#include "QDL/ScriptTypes.hpp"

#include <array>
#include <cstddef>
#include <cstdint>

namespace LM {

// Where the compiled code of each script type of one part lies in the compiled script store: one
// index per QDL_ScriptType 1 to 8, at type - 1. Kept plain so that stores and caches can copy it.
struct QdlBinCodeIndexArray {
    static constexpr std::int32_t NoIndex = -1;
    static constexpr std::size_t ScriptTypeCount = 8;

    std::array<std::int32_t, ScriptTypeCount> indices{NoIndex, NoIndex, NoIndex, NoIndex,
                                                      NoIndex, NoIndex, NoIndex, NoIndex};

    // The engine's types arrive unchecked; only these have a place here.
    static constexpr bool IsScriptType(QDL_ScriptType type) {
        return type >= 1 && static_cast<std::size_t>(type) <= ScriptTypeCount;
    }

    // The type is not checked: callers hold one of the eight script types.
    std::int32_t Get(QDL_ScriptType type) const { return indices[static_cast<std::size_t>(type) - 1]; }
    void Set(QDL_ScriptType type, std::int32_t index) { indices[static_cast<std::size_t>(type) - 1] = index; }
    void Clear() { indices.fill(NoIndex); }

    bool operator==(const QdlBinCodeIndexArray&) const = default;
};

} // namespace LM
