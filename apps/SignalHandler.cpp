#include "apps/SignalHandler.h"

namespace App {

SignalHandler::SignalHandler(int signal, Function* handle) : _signal(signal) {
    struct sigaction action {};
    action.sa_handler = handle;
    ::sigemptyset(&action.sa_mask);
    ::sigaction(_signal, &action, &_previous);
}

SignalHandler::~SignalHandler() { ::sigaction(_signal, &_previous, nullptr); }

}  // namespace App
