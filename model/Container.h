#pragma once

#include <memory>

#include "model/Item.h"

namespace Ormek {

/// The read side of a folder.
///
/// A plain `Container` is a value: a copy of any other container, also of one that the cache
/// holds, answers for good what its source answered when it was copied. A default-made one
/// answers 0, "", false and empty.
/// Assigning to an entry that the cache holds changes nothing: its write side is `ItemInternal`.
class Container : public virtual Item {
  public:
    Container();
    Container(const Container& other);
    Container& operator=(const Container& other);
    ~Container() override;

  private:
    friend class Item;

    std::unique_ptr<const Container> _snapshot;
};

}  // namespace Ormek
