#include "service/Tag.h"

#include <utility>

namespace Nimra {

Tag::Tag() : PelData(16) {}

void Tag::addKeyValue(std::string key, KeyValue value) {
    _keyValues.emplace(std::move(key), std::move(value));
}

void Tag::setKeyValue(std::string key, KeyValue value) {
    _keyValues.insert_or_assign(std::move(key), std::move(value));
}

}  // namespace Nimra
