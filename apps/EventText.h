#pragma once

#include <string>

#include "client/Client.h"
#include "client/Event.h"

namespace App {

/// An event in one line. Asks the client for the paths of the folders that it is about.
std::string eventText(Ormek::Client& client, const Ormek::Event& event);

}  // namespace App
