#pragma once

#include "KLRoot/IChannel.hpp"
#include "KLRoot/OChannel.hpp"

#include <vector>

namespace KL {

// Reads from a block of memory, borrowed or owned.
class LM_EXPORT MemoryIChannel : public IChannel {
public:
    // Borrows the block: it must outlive the channel.
    MemoryIChannel(const void* data, std::uint64_t size, PlatformSign protocol = LittleEndianSign);
    // Owns the block.
    explicit MemoryIChannel(std::vector<char> data, PlatformSign protocol = LittleEndianSign);
    ~MemoryIChannel() override;

protected:
    int Underflow() override { return NoError; }
    std::int64_t GetAvailableBeyondWindow() const override { return 0; }
    int SkipBeyondWindow(std::uint64_t) override { return ErrEndOfData; }

private:
    std::vector<char> owned;
};

// Writes into a growing block of memory.
class LM_EXPORT MemoryOChannel : public OChannel {
public:
    explicit MemoryOChannel(PlatformSign protocol = LittleEndianSign);
    ~MemoryOChannel() override;

    // Everything written so far.
    const std::vector<char>& GetData();
    // Hands the data over; the channel is done with after that.
    std::vector<char> TakeData();

protected:
    int WriteToSink(const char* data, std::uint64_t size) override;
    bool CanPatchSink() const override { return true; }
    int PatchSink(std::uint64_t offset, const void* data, std::uint64_t size) override;

private:
    std::vector<char> data;
};

} // namespace KL
