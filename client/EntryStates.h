#pragma once

#include "client/Edits.h"
#include "model/Item.h"
#include "service/Document.h"
#include "service/Folder.h"

namespace Ormek {

// What entries and the service's records say of what an action can change.
Edits::State stateOf(const Item& item);
Edits::State stateOf(const Nimra::Document& document);
Edits::State stateOf(const Nimra::Folder& folder);

/// Makes a record say what is to be shown.
void apply(const Edits::State& state, Nimra::Document& document);
void apply(const Edits::State& state, Nimra::Folder& folder);

}  // namespace Ormek
