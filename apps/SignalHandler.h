#pragma once

#include <csignal>

namespace App {

/// Handles a signal for as long as it lives; a system call that waits is interrupted by it. What
/// handled the signal before does so again afterwards.
class SignalHandler {
  public:
    using Function = void(int);

    SignalHandler(int signal, Function* handle);
    SignalHandler(const SignalHandler&) = delete;
    SignalHandler& operator=(const SignalHandler&) = delete;
    ~SignalHandler();

  private:
    int _signal;
    struct sigaction _previous {};
};

}  // namespace App
