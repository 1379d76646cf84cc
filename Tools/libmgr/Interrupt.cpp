#include "Interrupt.hpp"

#include <csignal>

namespace libmgr {

namespace {

volatile std::sig_atomic_t interrupted = 0;

void AskToStop(int signal) {
    interrupted = 1;
    std::signal(signal, SIG_DFL);
}

} // namespace

InterruptGuard::InterruptGuard()
    : previousInterrupt(std::signal(SIGINT, AskToStop)), previousTerminate(std::signal(SIGTERM, AskToStop)) {
    interrupted = 0;
}

InterruptGuard::~InterruptGuard() {
    std::signal(SIGINT, previousInterrupt);
    std::signal(SIGTERM, previousTerminate);
}

bool Interrupted() {
    return interrupted != 0;
}

} // namespace libmgr
