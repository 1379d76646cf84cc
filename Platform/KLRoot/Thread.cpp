#include "KLRoot/Thread.hpp"

#include <atomic>

namespace KL {

namespace {

std::atomic<Thread::Id> nextId{1};

Thread::Id CurrentId() {
    thread_local const Thread::Id id = nextId.fetch_add(1, std::memory_order_relaxed);
    return id;
}

// Taken when the library is loaded, which happens on the host's main thread.
std::atomic<Thread::Id> mainId{CurrentId()};

} // namespace

Thread::Id Thread::GetCurrent() {
    return CurrentId();
}
Thread::Id Thread::GetMain() {
    return mainId.load(std::memory_order_relaxed);
}
void Thread::SetMain(Id id) {
    mainId.store(id, std::memory_order_relaxed);
}

} // namespace KL
