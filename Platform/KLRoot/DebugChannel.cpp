#include "KLRoot/DebugChannel.hpp"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace KL {

namespace {

void WriteToStandardError(std::string_view line) {
    static const bool enabled = [] {
        const char* value = std::getenv("LIBMGR_DEBUG");
        return value != nullptr && *value != '\0';
    }();
    if (!enabled)
        return;
    const std::string text = "libmgr debug: " + std::string(line) + "\n";
    std::fwrite(text.data(), 1, text.size(), stderr);
}

std::atomic<DebugSink> sink{nullptr};

} // namespace

void WriteDebugText(std::string_view line) {
    const DebugSink chosen = sink.load(std::memory_order_acquire);
    (chosen != nullptr ? chosen : WriteToStandardError)(line);
}

void SetDebugSink(DebugSink newSink) {
    sink.store(newSink, std::memory_order_release);
}

} // namespace KL
