#include "model/OrmekCast.h"

#include "model/WriteSide.h"

namespace Ormek {

std::shared_ptr<ItemInternal> OrmekCast::castItemInternal(std::shared_ptr<Item> item) {
    if (ItemInternal* internal = item ? writeSide(*item) : nullptr) {
        return {item, internal};
    }
    return std::dynamic_pointer_cast<ItemInternal>(item);
}

std::shared_ptr<ObjectInternal> OrmekCast::castObjectInternal(std::shared_ptr<Object> object) {
    if (ObjectInternal* internal = object ? objectWriteSide(*object) : nullptr) {
        return {object, internal};
    }
    return std::dynamic_pointer_cast<ObjectInternal>(object);
}

}  // namespace Ormek
