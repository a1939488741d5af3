#include "model/QueryResultInternal.h"

#include <utility>

namespace Ormek {

QueryResultInternal::QueryResultInternal(FilterInternal filter) : _filter(std::move(filter)) {}

QueryResultInternal::QueryResultInternal(QueryResult& other) : QueryResult(other) {
    if (_rememberedFilter) {
        _filter = *_rememberedFilter;
        _rememberedFilter.reset();
    }
}

QueryResultInternal::~QueryResultInternal() = default;

bool QueryResultInternal::isPageLoaded(FilterInternal filter) const {
    const std::lock_guard lock(_mutex);
    return _listing.isPageLoaded(filter.getOffset(), filter.getCount());
}

bool QueryResultInternal::isPageCurrent(const FilterInternal& filter) const {
    const std::lock_guard lock(_mutex);
    return _listing.isPageCurrent(filter.getOffset(), filter.getCount());
}

void QueryResultInternal::invalidate() {
    const std::lock_guard lock(_mutex);
    _listing.invalidate();
}

std::optional<unsigned long> QueryResultInternal::heldPositionOf(unsigned long id) const {
    const std::lock_guard lock(_mutex);
    return _listing.heldPositionOf(id);
}

void QueryResultInternal::addPage(unsigned long offset, unsigned long count) {
    const std::lock_guard lock(_mutex);
    _listing.addPage(offset, count);
}

void QueryResultInternal::totalCount(unsigned long total) {
    const std::lock_guard lock(_mutex);
    _listing.totalCount(total);
}

void QueryResultInternal::addItems(unsigned long offset, std::vector<std::shared_ptr<Item>> items,
                                   PagePart part) {
    const std::lock_guard lock(_mutex);
    _listing.addItems(offset, std::move(items), part);
}

void QueryResultInternal::addItem(std::shared_ptr<Item> item, bool flag) {
    const std::lock_guard lock(_mutex);
    _listing.addItem(std::move(item), flag);
}

void QueryResultInternal::removeItem(unsigned long id) {
    const std::lock_guard lock(_mutex);
    _listing.removeItem(id);
}

bool QueryResultInternal::removeItemByName(std::shared_ptr<Item> item) {
    const std::lock_guard lock(_mutex);
    return _listing.removeItemByName(item);
}

void QueryResultInternal::restoreItem(std::shared_ptr<Item> item, unsigned long position) {
    const std::lock_guard lock(_mutex);
    _listing.restoreItem(std::move(item), position);
}

void QueryResultInternal::replaceItem(const std::shared_ptr<Item>& item, bool flag) {
    const std::lock_guard lock(_mutex);
    _listing.replaceItem(item, flag);
}

}  // namespace Ormek
