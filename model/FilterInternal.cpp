#include "model/FilterInternal.h"

#include <algorithm>

#include "model/Container.h"
#include "model/Item.h"
#include "model/WriteSide.h"

namespace Ormek {

namespace {

constexpr std::uint32_t bit(std::int32_t type) { return std::uint32_t{1} << type; }

constexpr std::int32_t DocumentType = 4;
constexpr std::int32_t FolderType = 8;
constexpr std::int32_t TagType = 16;
constexpr std::uint32_t RestrictingTypes = bit(DocumentType) | bit(FolderType) | bit(TagType);

std::int32_t typeOf(const Item& item) {
    const int type = item.type();
    if (type != 0) {
        return type;
    }
    return dynamic_cast<const Container*>(&item) ? FolderType : DocumentType;
}

}  // namespace

std::vector<std::int32_t> FilterInternal::getDataTypes() {
    std::vector<std::int32_t> types;
    for (std::int32_t type = 0; type < 32; ++type) {
        if (_dataTypes & bit(type)) {
            types.push_back(type);
        }
    }
    return types;
}

void FilterInternal::setDataTypes(const std::vector<std::int32_t>& types) {
    std::uint32_t mask = 0;
    for (const std::int32_t type : types) {
        checkDataType(type);
        mask |= bit(type);
    }
    _dataTypes = mask;
}

bool FilterInternal::sameListing(const FilterInternal& other) const {
    return _dataId == other._dataId && _userId == other._userId && _dataTypes == other._dataTypes &&
           Filter::sameListing(other) && serviceFlag == other.serviceFlag &&
           _group == other._group && _path == other._path && _url == other._url &&
           _spareText == other._spareText && _spareFlag == other._spareFlag &&
           _lastSpareText == other._lastSpareText && _tagLabels == other._tagLabels;
}

bool FilterInternal::matchesDataId(unsigned long id) const {
    return std::find(_dataId.begin(), _dataId.end(), id) != _dataId.end();
}

std::uint32_t FilterInternal::restrictingTypes() const {
    return (_dataTypes | bit(getDataType())) & RestrictingTypes;
}

bool FilterInternal::matchesQuery(const Item& item) const {
    if (!_group.empty() || !_path.empty() || !_url.empty() || !_tagLabels.empty()) {
        return false;
    }
    if (!matchesDataId(item.parentId()) || (item.deleted() != 0 && !getDeleted())) {
        return false;
    }
    const std::uint32_t types = restrictingTypes();
    if (types != 0) {
        const std::int32_t type = typeOf(item);
        if (type < 0 || type > 31 || !(types & bit(type))) {
            return false;
        }
    }
    std::string room;
    return nameContainsQuery(nameOf(item, room));
}

}  // namespace Ormek
