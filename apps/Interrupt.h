#pragma once

#include "apps/SignalHandler.h"

namespace App {

/// Turns Ctrl-C into a question that can be asked, instead of the end of the program, for as long
/// as it lives. A system call that waits is interrupted. One at a time.
class Interrupt {
  public:
    Interrupt();

    /// Whether Ctrl-C was pressed since the last time this was asked.
    static bool take();

  private:
    SignalHandler _handler;
};

}  // namespace App
