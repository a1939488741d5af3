#include "model/Filter.h"

#include <stdexcept>

namespace Ormek {

namespace {

constexpr std::int32_t LastDataType = 31;

}  // namespace

void Filter::checkDataType(std::int32_t type) {
    if (type < 0 || type > LastDataType) {
        throw std::invalid_argument("Filter: data type " + std::to_string(type) +
                                    " is not between 0 and 31");
    }
}

void Filter::setDataType(std::int32_t type) {
    checkDataType(type);
    _dataType = type;
}

std::string Filter::renderOrder() const {
    std::string text;
    for (const auto& [key, value] : _order) {
        if (!text.empty()) {
            text += ',';
        }
        text += std::to_string(static_cast<std::int32_t>(key)) + ':' + value;
    }
    return text;
}

bool Filter::nameContainsQuery(std::string_view name) const {
    return name.find(_query) != std::string_view::npos;
}

bool Filter::sameListing(const Filter& other) const {
    return _dataType == other._dataType && _flags == other._flags && _query == other._query &&
           _order == other._order && _spareText == other._spareText && _records == other._records;
}

}  // namespace Ormek
