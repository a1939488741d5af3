#pragma once

#include <memory>

namespace Ormek {

class Item;
class ItemInternal;
class Object;
class ObjectInternal;

/// The way from the read side of an entry to its write side. The result shares ownership with the
/// argument; an empty pointer, or a plain value that has no write side, gives an empty pointer.
class OrmekCast {
  public:
    static std::shared_ptr<ItemInternal> castItemInternal(std::shared_ptr<Item> item);
    static std::shared_ptr<ObjectInternal> castObjectInternal(std::shared_ptr<Object> object);
};

}  // namespace Ormek
