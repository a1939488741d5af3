#include "apps/Interrupt.h"

#include <csignal>

namespace App {

namespace {

volatile std::sig_atomic_t pressed = 0;

extern "C" void onInterrupt(int /*signal*/) { pressed = 1; }

}  // namespace

Interrupt::Interrupt() : _handler(SIGINT, onInterrupt) {}

bool Interrupt::take() {
    const bool was = pressed != 0;
    pressed = 0;
    return was;
}

}  // namespace App
