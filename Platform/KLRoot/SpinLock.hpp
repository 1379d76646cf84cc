#pragma once

#include "KLRoot/KLExport.hpp"

#include <atomic>
#include <pthread.h>

namespace KL {

// A lock for regions of a few instructions: a field write, a table operation. Not re-entrant.
class LM_EXPORT SpinLock {
public:
    SpinLock() = default;
    SpinLock(const SpinLock&) = delete;
    SpinLock& operator=(const SpinLock&) = delete;

    void Acquire() {
        while (flag.test_and_set(std::memory_order_acquire))
            Wait();
    }
    bool TryAcquire() { return !flag.test_and_set(std::memory_order_acquire); }
    void Release() { flag.clear(std::memory_order_release); }

private:
    void Wait();

    std::atomic_flag flag = ATOMIC_FLAG_INIT;
};

class SpinLockGuard {
public:
    explicit SpinLockGuard(SpinLock& lock) : lock(lock) { lock.Acquire(); }
    ~SpinLockGuard() { lock.Release(); }
    SpinLockGuard(const SpinLockGuard&) = delete;
    SpinLockGuard& operator=(const SpinLockGuard&) = delete;

private:
    SpinLock& lock;
};

// The fast lock: a mutex that its owning thread may enter again. Failures of the system
// raise SynchronizationException.
class LM_EXPORT FastLock {
public:
    FastLock();
    ~FastLock();
    FastLock(const FastLock&) = delete;
    FastLock& operator=(const FastLock&) = delete;

    void Acquire();
    void Release();

private:
    pthread_mutex_t mutex;
};

class FastLockGuard {
public:
    explicit FastLockGuard(FastLock& lock) : lock(lock) { lock.Acquire(); }
    ~FastLockGuard() { lock.Release(); }
    FastLockGuard(const FastLockGuard&) = delete;
    FastLockGuard& operator=(const FastLockGuard&) = delete;

private:
    FastLock& lock;
};

} // namespace KL
