#pragma once

#include "model/Container.h"
#include "model/ItemInternal.h"

namespace Nimra {
class Folder;
}

namespace Ormek {

/// A folder as the cache keeps it. Always held by a shared pointer.
class ContainerInternal : public Container, public ItemInternal {
  public:
    /// Copies everything that `source` answers.
    ContainerInternal(const Container& source, ObjectUpdater* updater);
    /// Copies every field that has a counterpart; `dataLoaded()` and `idLoaded()` start false. The
    /// two leading strings of the record arrive crossed: its first is the second text attribute
    /// and its second the first. This is meant, and `DirectoryCache::itemToFolder` crosses back.
    ContainerInternal(const Nimra::Folder& folder, ObjectUpdater* updater);
    ~ContainerInternal() override;
};

}  // namespace Ormek
