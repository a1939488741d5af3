#pragma once

#include <memory>
#include <string>

#include "apps/Session.h"

namespace App {

/// A place for something new.
struct NewPlace {
    std::shared_ptr<Ormek::Item> folder;
    std::string name;
};

/// The place that a path says. Slashes at its end mean nothing. Throws CommandError when there is
/// no folder to hold it.
NewPlace newPlaceAt(Session& session, const std::string& path);

/// Begins an action that makes something; `doing` is what stands before its path in what is said.
void beginCreation(Session& session, const Ormek::Action& action, const std::string& doing);

}  // namespace App
