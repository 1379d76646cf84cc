#pragma once

// Ctrl-C, or a polite kill, asks long work to stop at its next poll, so that it can take away what
// it left half done; a second signal ends the process at once.
namespace libmgr {

class InterruptGuard {
public:
    InterruptGuard();
    ~InterruptGuard();
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;

private:
    void (*previousInterrupt)(int);
    void (*previousTerminate)(int);
};

// True once SIGINT or SIGTERM arrived while a guard was up.
bool Interrupted();

} // namespace libmgr
