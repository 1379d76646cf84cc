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

// Read into a fresh item first: a refused entry leaves this one as it was.
int QdlBinCodeItem::Read(KL::IChannel& channel) {
    QdlBinCodeItem read;
    std::int32_t type = 0;
    read.id.mainGuid.Read(channel);
    read.id.revGuid.Read(channel);
    read.location.Read(channel);
    channel.Read(type);
    for (std::int32_t* value : {&read.usedCount, &read.lastUsed, &read.codeSize, &read.ancestrySize,
                                &read.codeOffset, &read.ancestryOffset})
        channel.Read(*value);
    if (const int err = channel.GetStatus(); err != KL::NoError)
        return err;
    if (read.codeSize < 0 || read.ancestrySize < 0 || read.codeOffset < 0 || read.ancestryOffset < 0)
        return channel.SetStatus(KL::ErrStreamFormat);
    read.scriptType = static_cast<QDL_ScriptType>(type);
    *this = std::move(read);
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
