#include "model/Item.h"

#include "model/Container.h"
#include "model/ItemInternal.h"
#include "model/Object.h"

namespace Ormek {

Item::~Item() = default;

const Item* Item::snapshot() const {
    if (const auto* object = dynamic_cast<const Object*>(this)) {
        return object->_snapshot.get();
    }
    if (const auto* container = dynamic_cast<const Container*>(this)) {
        return container->_snapshot.get();
    }
    return nullptr;
}

std::map<unsigned long, std::vector<ShareData>> Item::shares() const {
    const Item* source = snapshot();
    return source ? source->shares() : std::map<unsigned long, std::vector<ShareData>>();
}

bool Item::isShared() const {
    const Item* source = snapshot();
    return source && source->isShared();
}

int Item::accessLevel() const {
    const Item* source = snapshot();
    return source ? source->accessLevel() : 0;
}

std::string Item::firstText() const {
    const Item* source = snapshot();
    return source ? source->firstText() : std::string();
}

std::string Item::secondText() const {
    const Item* source = snapshot();
    return source ? source->secondText() : std::string();
}

unsigned long Item::id() const {
    const Item* source = snapshot();
    return source ? source->id() : 0;
}

unsigned long Item::parentId() const {
    const Item* source = snapshot();
    return source ? source->parentId() : 0;
}

unsigned long Item::oldParentId() const {
    const Item* source = snapshot();
    return source ? source->oldParentId() : 0;
}

std::string Item::name() const {
    const Item* source = snapshot();
    return source ? source->name() : std::string();
}

std::string Item::description() const {
    const Item* source = snapshot();
    return source ? source->description() : std::string();
}

unsigned long Item::ownerId() const {
    const Item* source = snapshot();
    return source ? source->ownerId() : 0;
}

unsigned long Item::driveId() const {
    const Item* source = snapshot();
    return source ? source->driveId() : 0;
}

std::string Item::thirdText() const {
    const Item* source = snapshot();
    return source ? source->thirdText() : std::string();
}

bool Item::idLoaded() const {
    const Item* source = snapshot();
    return source && source->idLoaded();
}

bool Item::dataLoaded() const {
    const Item* source = snapshot();
    return source && source->dataLoaded();
}

unsigned long Item::created() const {
    const Item* source = snapshot();
    return source ? source->created() : 0;
}

unsigned long Item::updated() const {
    const Item* source = snapshot();
    return source ? source->updated() : 0;
}

unsigned long Item::deleted() const {
    const Item* source = snapshot();
    return source ? source->deleted() : 0;
}

int Item::type() const {
    const Item* source = snapshot();
    return source ? source->type() : 0;
}

bool Item::isDeleted() const {
    const Item* source = snapshot();
    return source && source->isDeleted();
}

std::map<unsigned long, int> Item::ACLMap() const {
    if (const auto* internal = dynamic_cast<const ItemInternal*>(this)) {
        return internal->_aclMap;
    }
    const Item* source = snapshot();
    return source ? source->ACLMap() : std::map<unsigned long, int>();
}

}  // namespace Ormek
