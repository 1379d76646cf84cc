#include "bincode/QdlBinCodeItem.hpp"

namespace LM {

AncestryHandleWrapper::~AncestryHandleWrapper() {
    if (handle != nullptr)
        BMKillHandle(&handle);
}

void QdlBinCodeItem::Reset() {
    code.Reset();
    ancestry.Reset();
    codeSize = ancestrySize = codeOffset = ancestryOffset = 0;
    usedCount = lastUsed = 0;
    ancestryUpToDate = false;
}

} // namespace LM
