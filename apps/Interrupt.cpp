#include "apps/Interrupt.h"

namespace App {

namespace {

volatile std::sig_atomic_t pressed = 0;

extern "C" void onInterrupt(int /*signal*/) { pressed = 1; }

}  // namespace

Interrupt::Interrupt() {
    struct sigaction action {};
    action.sa_handler = onInterrupt;
    ::sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, &_previous);
}

Interrupt::~Interrupt() { ::sigaction(SIGINT, &_previous, nullptr); }

bool Interrupt::take() {
    const bool was = pressed != 0;
    pressed = 0;
    return was;
}

}  // namespace App
