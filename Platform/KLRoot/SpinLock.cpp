#include "KLRoot/SpinLock.hpp"

#include "KLRoot/Exceptions.hpp"

#include <sched.h>

namespace KL {

void SpinLock::Wait() {
    // Spin on a plain load, which keeps the cache line shared, and give up the processor now and
    // then: on two cores the holder may be waiting for this one.
    for (int spins = 0; flag.test(std::memory_order_relaxed); ++spins) {
        if (spins >= 64) {
            sched_yield();
            spins = 0;
        }
    }
}

FastLock::FastLock() {
    pthread_mutexattr_t attributes;
    if (pthread_mutexattr_init(&attributes) != 0)
        throw SynchronizationException("Failed to create fast lock: failed to create critical section.",
                                       __FILE__, __LINE__);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    const int result = pthread_mutex_init(&mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
    if (result != 0)
        throw SynchronizationException("Failed to create fast lock: failed to create critical section.",
                                       __FILE__, __LINE__);
}

FastLock::~FastLock() {
    pthread_mutex_destroy(&mutex);
}

void FastLock::Acquire() {
    if (pthread_mutex_lock(&mutex) != 0)
        throw SynchronizationException("Failed to acquire fast lock: failed to enter critical section.",
                                       __FILE__, __LINE__);
}

void FastLock::Release() {
    pthread_mutex_unlock(&mutex);
}

} // namespace KL
