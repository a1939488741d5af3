// Listing queries: finding a directory, and starting a load when it cannot answer.

#include <utility>

#include "cache/Directories.h"
#include "cache/DirectoryCache.h"
#include "cache/Trace.h"
#include "model/WriteSide.h"

namespace Ormek {

namespace {

constexpr int ListingService = 0;
constexpr int KeyValueService = 16;

// All lines of a directory, which are written twice.
std::string traceOf(const std::vector<std::shared_ptr<Item>>& entries) {
    constexpr std::size_t UsualLine = 80;
    std::string text;
    text.reserve(entries.size() * UsualLine);
    std::string room;
    TraceLine line;
    for (const auto& entry : entries) {
        line.add("item in directory: ");
        line.add(entry->id());
        line.add(" name: ");
        line.moveTo(text);
        text += nameOf(*entry, room);
        text += '\n';
    }
    return text;
}

}  // namespace

bool DirectoryCache::get(FilterInternal filter, std::shared_ptr<QueryResult>& result) {
    trace("in DirectoryCache::get(Ormek::FilterInternal filter", "\n");
    result = getDirectory(filter);
    if (!result) {
        const std::shared_ptr<QueryResult> directory =
            std::make_shared<QueryResultInternal>(filter);
        _directories.push_back(directory);
        _indexes->listings.update();
        result = _directories.back();
        trace("\n", "Ormek::DirectoryCache::get 1 ", static_cast<const void*>(&directory),
              " Added directory", static_cast<const void*>(&result), "\n");
        return false;
    }
    if (internalOf(result).isPageLoaded(filter)) {
        trace("\n", "Ormek::DirectoryCache::get 3 Page already loaded", "\n");
        return true;
    }
    trace("\n", "Ormek::DirectoryCache::get 2 Page not loaded", "\n");
    return false;
}

unsigned long DirectoryCache::get(FilterInternal filter, std::shared_ptr<QueryResult>& result,
                                  Nimra::ItemEventProtocol* listener) {
    traceAndFlush("!filter.getbyPassCache = (true) ", filter.getByPassCache() ? 0 : 1, "\n");
    if (!filter.getByPassCache() && get(filter, result)) {
        trace("Ormek::DirectoryCache::get found the directory ", static_cast<const void*>(&result),
              "\n");
        return 0;
    }
    return loadDirectory(filter, result, listener);
}

bool DirectoryCache::getKeyValues(FilterInternal filter, std::shared_ptr<QueryResult>& result) {
    result = getKeyValueDirectory(filter);
    if (result) {
        trace("Ormek::DirectoryCache::gettag dir found ", static_cast<const void*>(&result), " ",
              static_cast<const void*>(result.get()), "\n");
        return true;
    }
    const std::shared_ptr<QueryResult> directory = std::make_shared<QueryResultInternal>(filter);
    _keyValueDirectories.push_back(directory);
    _indexes->keyValues.update();
    result = _keyValueDirectories.back();
    trace("\n", "Ormek::DirectoryCache::gettag 1 ", static_cast<const void*>(&directory),
          " Added directory", static_cast<const void*>(&result), " ",
          static_cast<const void*>(result.get()), "\n");
    return false;
}

unsigned long DirectoryCache::getKeyValues(FilterInternal filter,
                                           std::shared_ptr<QueryResult>& result,
                                           Nimra::ItemEventProtocol* listener) {
    if (getKeyValues(filter, result)) {
        trace("Ormek::DirectoryCache::gettag found dir returning ",
              static_cast<const void*>(result.get()), "\n");
        return 0;
    }
    trace("Ormek::DirectoryCache::gettag found dir failed ", static_cast<const void*>(result.get()),
          "\n");
    Nimra::ItemFilter serviceFilter = filterConverter(filter);
    Nimra::OperationHandler* handler = requests();
    auto operation = newLoad(std::move(serviceFilter), listener);
    operation->setService(serviceFor(KeyValueService));
    return handOver(std::move(operation), handler, filter.contextId != 0);
}

// A found directory's entries are traced twice, which is meant. Whoever reads the trace sees every
// directory on the way; otherwise neither the walk nor the snapshots are needed.
std::shared_ptr<QueryResult> DirectoryCache::getDirectory(FilterInternal filter) {
    trace("\n", "Ormek::DirectoryCache::getDirectory count", _directories.size(), "\n");
    std::shared_ptr<QueryResult> found;
    const auto look = [&](const std::shared_ptr<QueryResult>& directory) {
        const std::string entries = tracing() ? traceOf(directory->items()) : std::string();
        trace(entries);
        if (!internalOf(directory).filter().sameListing(filter)) {
            return false;
        }
        trace(entries);
        traceAndFlush("it: ", static_cast<const void*>(directory.get()), "\n");
        found = directory;
        return true;
    };
    if (tracing()) {
        _indexes->listings.visitAll(look);
    } else {
        _indexes->listings.visitListings(filter, look);
    }
    if (!found) {
        trace("\n", "Ormek::DirectoryCache::getDirectory 2", " Couldn't find directory", "\n");
    }
    return found;
}

std::shared_ptr<QueryResult> DirectoryCache::getKeyValueDirectory(FilterInternal filter) {
    trace("\n", "Ormek::DirectoryCache::gettagDirectory count", _keyValueDirectories.size(), "\n");
    std::shared_ptr<QueryResult> found;
    _indexes->keyValues.visitListings(filter, [&](const std::shared_ptr<QueryResult>& directory) {
        if (internalOf(directory).filter().sameListing(filter)) {
            found = directory;
        }
        return found != nullptr;
    });
    if (found) {
        trace("\n", "Ormek::DirectoryCache::gettagDirectory 1", " Found directory", "\n");
    } else {
        // The words of the other look-up, which is meant.
        trace("\n", "Ormek::DirectoryCache::getDirectory 2", " Couldn't find directory", "\n");
    }
    return found;
}

std::shared_ptr<QueryResult> DirectoryCache::add(QueryResult result) {
    return std::make_shared<QueryResultInternal>(result);
}

unsigned long DirectoryCache::loadDirectory(FilterInternal filter,
                                            std::shared_ptr<QueryResult> /*result*/,
                                            Nimra::ItemEventProtocol* listener) {
    const std::vector<std::int32_t> types = filter.getDataTypes();
    // One line more than there are types, with 0 on the last: this is meant.
    for (std::size_t index = 0; index <= types.size(); ++index) {
        trace("----------------------> types in vector ", index < types.size() ? types[index] : 0,
              "\n");
    }
    trace("Ormek::DirectoryCache::loadDirectory 1", ", types.size(): ", types.size(), "\n");
    _loadListener = listener;
    return loadFromService(serviceFor(ListingService), filter, listener);
}

unsigned long DirectoryCache::loadFromService(Nimra::DataService* service, FilterInternal filter,
                                              Nimra::ItemEventProtocol* listener) {
    trace("Ormek::DirectoryCache::loadFromService 1", "\n");
    trace("Ormek::DirectoryCache::loadFromService 2", "\n");
    Nimra::ItemFilter serviceFilter = filterConverter(filter);
    trace("Ormek::DirectoryCache::loadFromService 3", "\n");
    Nimra::OperationHandler* handler = requests();
    auto operation = newLoad(std::move(serviceFilter), listener);
    trace("Ormek::DirectoryCache::loadFromService 4", "\n");
    operation->setService(service);
    trace("Ormek::DirectoryCache::loadFromService 5", "\n");
    const bool known = filter.contextId != 0;
    trace(known ? "Ormek::DirectoryCache::loadFromService 6 "
                : "Ormek::DirectoryCache::loadFromService 7 ",
          filter.contextId, "\n");
    const unsigned long id = handOver(std::move(operation), handler, known);
    trace("Ormek::DirectoryCache::loadFromService 8", "\n");
    return id;
}

Nimra::ItemFilter DirectoryCache::filterConverter(FilterInternal filter) {
    Nimra::ItemFilter record;
    record.serviceFlag = filter.serviceFlag;
    record.userId = filter.getUserId();
    record.url = filter.getUrl();
    record.tagLabels = filter.getTagLabels();
    record.query = filter.getQuery();
    record.path = filter.getPath();
    record.containerFirst = filter.getContainerFirst();
    record.ascending = filter.getAscending();
    record.count = filter.getCount();
    record.dataId = filter.getDataId();
    record.dataType = filter.getDataType();
    record.offset = filter.getOffset();
    record.deleted = filter.getDeleted();
    record.group = filter.getGroup();
    // Lands in the copy that order() returns: the record never carries the order, which is meant.
    record.order() = filter.order();
    trace(" ---------------> DEBUG filterConverter filter offset: ", record.offset, "\n");
    trace(" ---------------> DEBUG filterConverter filter dataType: ", record.dataType, "\n");
    trace(" ---------------> DEBUG filterConverter filter queryString: ", record.query, "\n");
    return record;
}

}  // namespace Ormek
