#include "model/ObjectInternal.h"

#include <utility>

#include "service/Document.h"

namespace Ormek {

ObjectInternal::ObjectInternal(ObjectUpdater* updater) : ItemInternal(updater) {}

ObjectInternal::ObjectInternal(const Object& source, ObjectUpdater* updater)
    : ItemInternal(source, updater),
      _length(source.length()),
      _mimeType(source.mimeType()),
      _keyValues(source.keyValues()) {
    const auto* internal = dynamic_cast<const ObjectInternal*>(&source);
    if (!internal) {
        internal = static_cast<const ObjectInternal*>(source._snapshot.get());
    }
    if (internal) {
        _state = internal->_state;
        _ranges = internal->_ranges;
    }
}

ObjectInternal::ObjectInternal(const Nimra::Document& document, ObjectUpdater* updater)
    : ItemInternal(document.id, document.name, updater),
      _length(document.length),
      _state(document.state),
      _mimeType(document.mimeType),
      _keyValues(document.keyValues()) {
    parentId(document.parentId);
    oldParentId(document.oldParentId);
    ownerId(document.ownerId);
    created(document.created);
    updated(document.updated);
    deleted(document.deleted);
    type(document.type);
    description(document.description);
    _shares = document.shares;
    setACLMap(document.ownerId, document.aclMode);
}

ObjectInternal::~ObjectInternal() = default;

unsigned long ObjectInternal::length() const { return _length; }
std::string ObjectInternal::mimeType() const { return _mimeType; }
KeyValueMap ObjectInternal::keyValues() const { return _keyValues; }

void ObjectInternal::length(unsigned long bytes) { _length = bytes; }
void ObjectInternal::setMimeType(std::string mimeType) { _mimeType = std::move(mimeType); }
void ObjectInternal::setKeyValues(KeyValueMap keyValues) { _keyValues = std::move(keyValues); }

}  // namespace Ormek
