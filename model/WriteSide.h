#pragma once

#include <string>
#include <string_view>
#include <typeinfo>

#include "model/ContainerInternal.h"
#include "model/ObjectInternal.h"

namespace Ormek {

// The cache's own two kinds of entries are told by their exact type, which costs a tenth of a
// dynamic_cast through the virtual bases. What derives from them is none of them.

/// Null for anything but a document or a key-value entry of the cache's own kind.
inline ObjectInternal* objectWriteSide(Item& item) {
    return typeid(item) == typeid(ObjectInternal)
               ? static_cast<ObjectInternal*>(dynamic_cast<void*>(&item))
               : nullptr;
}

/// Null for anything but a folder of the cache's own kind.
inline ContainerInternal* containerWriteSide(Item& item) {
    return typeid(item) == typeid(ContainerInternal)
               ? static_cast<ContainerInternal*>(dynamic_cast<void*>(&item))
               : nullptr;
}

/// Null for anything but these two.
inline ItemInternal* writeSide(Item& item) {
    if (ObjectInternal* object = objectWriteSide(item)) {
        return object;
    }
    return containerWriteSide(item);
}

inline const ItemInternal* writeSide(const Item& item) {
    return writeSide(const_cast<Item&>(item));
}

/// An entry's name, without a copy where that can be avoided; else it is copied to `room`. Valid as
/// long as `room` is and while the entry keeps its name.
inline std::string_view nameOf(const Item& item, std::string& room) {
    if (const ItemInternal* internal = writeSide(item)) {
        return internal->nameView();
    }
    room = item.name();
    return room;
}

}  // namespace Ormek
