#include "model/OrmekCast.h"

#include "model/ItemInternal.h"
#include "model/ObjectInternal.h"

namespace Ormek {

std::shared_ptr<ItemInternal> OrmekCast::castItemInternal(std::shared_ptr<Item> item) {
    return std::dynamic_pointer_cast<ItemInternal>(item);
}

std::shared_ptr<ObjectInternal> OrmekCast::castObjectInternal(std::shared_ptr<Object> object) {
    return std::dynamic_pointer_cast<ObjectInternal>(object);
}

}  // namespace Ormek
