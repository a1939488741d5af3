#include "model/ItemInternal.h"

#include <utility>

namespace Ormek {

ItemInternal::ItemInternal(ObjectUpdater* updater) : _objectUpdater(updater) {}

ItemInternal::ItemInternal(unsigned long id, std::string name, ObjectUpdater* updater)
    : _name(std::move(name)), _id(id), _objectUpdater(updater) {}

ItemInternal::ItemInternal(const Item& source, ObjectUpdater* updater)
    : _name(source.name()),
      _description(source.description()),
      _id(source.id()),
      _parentId(source.parentId()),
      _oldParentId(source.oldParentId()),
      _ownerId(source.ownerId()),
      _driveId(source.driveId()),
      _created(source.created()),
      _updated(source.updated()),
      _deleted(source.deleted()),
      _type(source.type()),
      _dataLoaded(source.dataLoaded()),
      _idLoaded(source.idLoaded()),
      _firstText(source.firstText()),
      _secondText(source.secondText()),
      _thirdText(source.thirdText()),
      _shares(source.shares()),
      _objectUpdater(updater),
      _aclMap(source.ACLMap()) {}

ItemInternal::~ItemInternal() = default;

std::map<unsigned long, std::vector<ShareData>> ItemInternal::shares() const { return _shares; }
bool ItemInternal::isShared() const { return !_shares.empty(); }

int ItemInternal::accessLevel() const {
    const auto row = _aclMap.find(_ownerId);
    return row == _aclMap.end() ? 0 : row->second;
}

std::string ItemInternal::firstText() const { return _firstText; }
std::string ItemInternal::secondText() const { return _secondText; }
unsigned long ItemInternal::id() const { return _id; }
unsigned long ItemInternal::parentId() const { return _parentId; }
unsigned long ItemInternal::oldParentId() const { return _oldParentId; }
std::string ItemInternal::name() const { return _name; }
std::string ItemInternal::description() const { return _description; }
unsigned long ItemInternal::ownerId() const { return _ownerId; }
unsigned long ItemInternal::driveId() const { return _driveId; }
std::string ItemInternal::thirdText() const { return _thirdText; }
bool ItemInternal::idLoaded() const { return _idLoaded; }
bool ItemInternal::dataLoaded() const { return _dataLoaded; }
unsigned long ItemInternal::created() const { return _created; }
unsigned long ItemInternal::updated() const { return _updated; }
unsigned long ItemInternal::deleted() const { return _deleted; }
int ItemInternal::type() const { return _type; }
bool ItemInternal::isDeleted() const { return _deleted != 0; }

void ItemInternal::shares(std::map<unsigned long, std::vector<ShareData>> shares) {
    _shares = std::move(shares);
}
void ItemInternal::firstText(std::string text) { _firstText = std::move(text); }
void ItemInternal::secondText(std::string text) { _secondText = std::move(text); }
void ItemInternal::id(unsigned long id) {
    if (_id != id) {
        const std::uint64_t before = idHash(*this, _id);
        _id = id;
        idChanges().add(*this, before);
    }
}
void ItemInternal::parentId(unsigned long id) { _parentId = id; }
void ItemInternal::oldParentId(unsigned long id) { _oldParentId = id; }
void ItemInternal::name(std::string name) {
    if (_name != name) {
        const std::uint64_t before = nameHash(_name);
        _name = std::move(name);
        nameChanges().add(*this, before);
    }
}
void ItemInternal::description(std::string text) { _description = std::move(text); }
void ItemInternal::ownerId(unsigned long id) { _ownerId = id; }
void ItemInternal::driveId(unsigned long id) { _driveId = id; }
void ItemInternal::thirdText(std::string text) { _thirdText = std::move(text); }
void ItemInternal::idLoaded(bool loaded) { _idLoaded = loaded; }
void ItemInternal::dataLoaded(bool loaded) { _dataLoaded = loaded; }
void ItemInternal::created(unsigned long stamp) { _created = stamp; }
void ItemInternal::updated(unsigned long stamp) { _updated = stamp; }
void ItemInternal::deleted(unsigned long stamp) { _deleted = stamp; }
void ItemInternal::type(int type) { _type = type; }
void ItemInternal::setACLMap(unsigned long userId, int access) { _aclMap[userId] = access; }

ChangeLog& ItemInternal::idChanges() noexcept {
    static ChangeLog log;
    return log;
}

ChangeLog& ItemInternal::nameChanges() noexcept {
    static ChangeLog log;
    return log;
}

ObjectUpdater* ItemInternal::objectUpdater() const { return _objectUpdater; }

}  // namespace Ormek
