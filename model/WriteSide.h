#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <typeinfo>

#include "model/ContainerInternal.h"
#include "model/ObjectInternal.h"

namespace Ormek {

/// The write side of an entry that is one of the cache's own two kinds, and null for anything else,
/// also for what derives from these. Costs a comparison of type names, where a dynamic_cast through
/// the virtual bases costs ten times that.
inline ItemInternal* writeSide(Item& item) {
    const std::type_info& type = typeid(item);
    if (type == typeid(ObjectInternal)) {
        return static_cast<ObjectInternal*>(dynamic_cast<void*>(&item));
    }
    if (type == typeid(ContainerInternal)) {
        return static_cast<ContainerInternal*>(dynamic_cast<void*>(&item));
    }
    return nullptr;
}

inline const ItemInternal* writeSide(const Item& item) {
    return writeSide(const_cast<Item&>(item));
}

/// An entry's name, without a copy where that can be avoided; else it is copied to `room`. Valid as
/// long as `room` and while the entry keeps its name.
inline std::string_view nameOf(const Item& item, std::string& room) {
    if (const ItemInternal* internal = writeSide(item)) {
        return internal->nameView();
    }
    room = item.name();
    return room;
}

}  // namespace Ormek
