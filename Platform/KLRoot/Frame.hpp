#pragma once

#include "KLRoot/ClassInfo.hpp"
#include "KLRoot/KLExport.hpp"

#include <cstdint>

namespace KL {

class IChannel;
class OChannel;

// A versioned frame around the stream of one object:
//   class guid (16 bytes, Guid stream form), major u16, minor u16, body length u32, body.
// The length is patched when the frame closes, so a reader can always land behind the frame,
// whatever a newer writer appended to it.
class LM_EXPORT OutputFrame {
public:
    static constexpr std::uint64_t HeaderSize = 24;

    OutputFrame(OChannel& channel, const ClassInfo& info);
    ~OutputFrame();
    OutputFrame(const OutputFrame&) = delete;
    OutputFrame& operator=(const OutputFrame&) = delete;

    // Patches the length; the status of the channel afterwards, or the frame's own failure.
    int Close();
    int GetStatus() const;
    ClassVersion GetVersion() const { return version; }

private:
    OChannel& channel;
    ClassVersion version;
    std::uint64_t lengthOffset = 0;
    bool open = false;
    int status = 0;
};

// Reads the header of a frame written by OutputFrame. A foreign class guid or a length past the
// known end of the data is a format error. While the frame is open, no read passes its end.
// Closing moves the reader behind the frame, skipping whatever tail fields a newer version wrote.
// Frames on one channel close in the reverse order of opening.
class LM_EXPORT InputFrame {
public:
    InputFrame(IChannel& channel, const ClassInfo& info);
    ~InputFrame();
    InputFrame(const InputFrame&) = delete;
    InputFrame& operator=(const InputFrame&) = delete;

    int Close();
    int GetStatus() const;
    // The version the stream was written with.
    ClassVersion GetVersion() const { return version; }
    // Bytes of the body not yet read.
    std::uint64_t GetRemaining() const;

private:
    IChannel& channel;
    ClassVersion version;
    std::uint64_t end = 0;
    bool open = false;
    int status = 0;
};

} // namespace KL
