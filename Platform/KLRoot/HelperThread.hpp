#pragma once

#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace KL {

// A second thread that works for its owner until the owner stops it. The state both threads share
// stays the owner's, under the owner's lock: Stop raises the owner's flag under that lock, wakes
// every waiter and joins.
class HelperThread {
public:
    HelperThread() = default;
    HelperThread(const HelperThread&) = delete;
    HelperThread& operator=(const HelperThread&) = delete;

    // Starts `run`; false when no thread could be had, and the owner then does the work alone.
    template <typename Run>
    bool Start(Run&& run) {
        try {
            thread = std::thread(std::forward<Run>(run));
            return true;
        } catch (const std::system_error&) {
            return false;
        }
    }
    bool IsRunning() const { return thread.joinable(); }
    void Stop(std::mutex& lock, bool& stopping, std::condition_variable& changed) {
        {
            const std::lock_guard guard(lock);
            stopping = true;
        }
        changed.notify_all();
        if (thread.joinable())
            thread.join();
    }

private:
    std::thread thread;
};

} // namespace KL
