#include "model/Object.h"

#include "model/ObjectInternal.h"

namespace Ormek {

Object::Object() = default;

Object::Object(const Object& other)
    : Item(other), _snapshot(std::make_unique<ObjectInternal>(other, nullptr)) {}

Object& Object::operator=(const Object& other) {
    if (this != &other) {
        _snapshot = std::make_unique<ObjectInternal>(other, nullptr);
    }
    return *this;
}

Object::~Object() = default;

unsigned long Object::length() const { return _snapshot ? _snapshot->length() : 0; }

std::string Object::mimeType() const { return _snapshot ? _snapshot->mimeType() : std::string(); }

KeyValueMap Object::keyValues() const { return _snapshot ? _snapshot->keyValues() : KeyValueMap(); }

}  // namespace Ormek
