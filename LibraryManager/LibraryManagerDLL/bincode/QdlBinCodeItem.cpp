#include "bincode/QdlBinCodeItem.hpp"

#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/IChannel.hpp"
#include "KLRoot/OChannel.hpp"

namespace LM {

AncestryHandleWrapper::~AncestryHandleWrapper() {
    if (handle != nullptr)
        BMKillHandle(&handle);
}

QdlBinCodeItem::~QdlBinCodeItem() = default;

int QdlBinCodeItem::Write(KL::OChannel& channel) const {
    id.mainGuid.Write(channel);
    id.revGuid.Write(channel);
    location.Write(channel);
    channel.Write(static_cast<std::int32_t>(scriptType));
    for (const std::int32_t value : {usedCount, lastUsed, codeSize, ancestrySize, codeOffset, ancestryOffset})
        channel.Write(value);
    return channel.GetStatus();
}

int QdlBinCodeItem::Read(KL::IChannel& channel) {
    std::int32_t type = 0;
    id.mainGuid.Read(channel);
    id.revGuid.Read(channel);
    location.Read(channel);
    channel.Read(type);
    for (std::int32_t* value : {&usedCount, &lastUsed, &codeSize, &ancestrySize, &codeOffset, &ancestryOffset})
        channel.Read(*value);
    if (const int err = channel.GetStatus(); err != KL::NoError)
        return err;
    if (codeSize < 0 || ancestrySize < 0 || codeOffset < 0 || ancestryOffset < 0)
        return channel.SetStatus(KL::ErrStreamFormat);
    scriptType = static_cast<QDL_ScriptType>(type);
    code.Reset();
    ancestry.Reset();
    ancestryUpToDate = false;
    return KL::NoError;
}

void QdlBinCodeItem::Reset() {
    code.Reset();
    ancestry.Reset();
    codeSize = ancestrySize = codeOffset = ancestryOffset = 0;
    usedCount = lastUsed = 0;
    ancestryUpToDate = false;
}

} // namespace LM
