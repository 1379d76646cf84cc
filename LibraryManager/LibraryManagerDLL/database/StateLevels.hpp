#pragma once

// The shape every level of a container object's state takes: a frame on the level's class, the
// base's level inside it, then the level's own core; and the same shape for the isolated state
// records, which refuse a record of another class. Each class supplies only its core.
#include "ObjectDatabase/Object.hpp"

#include "KLRoot/ClassInfo.hpp"
#include "KLRoot/ErrorCodes.hpp"
#include "KLRoot/Frame.hpp"
#include "KLRoot/IChannel.hpp"
#include "KLRoot/OChannel.hpp"

namespace LM {

// `core` runs only on a channel in good state.
template <class BaseStep, class CoreStep>
int WriteStateLevel(KL::OChannel& channel, const KL::ClassInfo& info, BaseStep base, CoreStep core) {
    KL::OutputFrame frame(channel, info);
    if (const int result = base(); result != KL::NoError)
        return result;
    if (channel.GetStatus() != KL::NoError)
        return channel.GetStatus();
    if (const int result = core(); result != KL::NoError)
        return result;
    return frame.Close();
}

// `core` receives the version the level was written with.
template <class BaseStep, class CoreStep>
int ReadStateLevel(KL::IChannel& channel, const KL::ClassInfo& info, BaseStep base, CoreStep core) {
    KL::InputFrame frame(channel, info);
    if (frame.GetStatus() != KL::NoError)
        return frame.GetStatus();
    if (const int result = base(); result != KL::NoError)
        return result;
    if (channel.GetStatus() != KL::NoError)
        return channel.GetStatus();
    if (const int result = core(frame.GetVersion()); result != KL::NoError)
        return result;
    return frame.Close();
}

// Runs the base's step, then `copy` on the record when it is of class State.
template <class State, class Record, class BaseStep, class Copy>
int IsolatedStateLevel(Record* record, BaseStep base, Copy copy) {
    auto* own = dynamic_cast<State*>(record);
    if (own == nullptr)
        return KL::ErrStreamFormat;
    if (const int result = base(); result != KL::NoError)
        return result;
    copy(*own);
    return KL::NoError;
}

} // namespace LM
