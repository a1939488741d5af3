#include "model/QueryResult.h"

#include <utility>

#include "model/QueryResultInternal.h"

namespace Ormek {

QueryResult::QueryResult() = default;

QueryResult::QueryResult(const QueryResult& other)
    : _listing(other.copyOfListing()), _rememberedFilter(other.filterToRemember()) {}

QueryResult& QueryResult::operator=(const QueryResult& other) {
    if (this != &other) {
        Listing listing = other.copyOfListing();
        std::shared_ptr<const FilterInternal> filter = other.filterToRemember();
        const std::lock_guard lock(_mutex);
        std::swap(_listing, listing);
        std::swap(_rememberedFilter, filter);
    }
    return *this;
}

QueryResult::~QueryResult() = default;

Listing QueryResult::copyOfListing() const {
    const std::lock_guard lock(_mutex);
    return _listing;
}

std::shared_ptr<const FilterInternal> QueryResult::filterToRemember() const {
    if (const auto* internal = dynamic_cast<const QueryResultInternal*>(this)) {
        return std::make_shared<const FilterInternal>(internal->filter());
    }
    const std::lock_guard lock(_mutex);
    return _rememberedFilter;
}

unsigned long QueryResult::count() const {
    const std::lock_guard lock(_mutex);
    return _listing.count();
}

unsigned long QueryResult::totalCount() const {
    const std::lock_guard lock(_mutex);
    return _listing.totalCount();
}

std::vector<std::shared_ptr<Item>> QueryResult::items() const {
    const std::lock_guard lock(_mutex);
    return _listing.items();
}

std::vector<std::shared_ptr<Item>> QueryResult::page(unsigned long offset,
                                                     unsigned long count) const {
    const std::lock_guard lock(_mutex);
    return _listing.page(offset, count);
}

std::shared_ptr<Item> QueryResult::itemByName(const std::string& name) const {
    const std::lock_guard lock(_mutex);
    return _listing.itemByName(name);
}

bool QueryResult::contains(unsigned long id) const {
    const std::lock_guard lock(_mutex);
    return _listing.contains(id);
}

}  // namespace Ormek
