#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "cache/DirectoryCache.h"
#include "fuzz/Input.h"
#include "fuzz/TraceSink.h"
#include "service/LocalIds.h"
#include "tests/support/Fakes.h"

namespace Ormek::Fuzzing {

/// Pages as no service should deliver them: empty, with an id several times, with the ids 0 and the
/// largest there is, with names of up to 64 KiB of anything, with folders nested deeply or in
/// themselves, with totals and positions at the end of the numbers. What came last has to show.
class HostilePages {
  public:
    explicit HostilePages(Input input) : _input(input), _sink(_input.flag()) {}

    void run() {
        for (int pages = 0; pages < MostPages && !_input.isEmpty(); ++pages) {
            deliver();
        }
    }

  private:
    static constexpr int MostPages = 60;
    static constexpr unsigned MostDepth = 200;

    unsigned long id() {
        switch (_input.below(6)) {
            case 0:
                return 0;
            case 1:
                return std::numeric_limits<unsigned long>::max();
            case 2:
                return Nimra::FirstLocalId + _input.below(4);
            case 3:
                return _input.number();
            default:
                return _input.below(16);
        }
    }
    std::uint32_t position() {
        const unsigned value = _input.byte();
        return value < 240 ? value % 40 : std::numeric_limits<std::uint32_t>::max() - (value - 240);
    }
    unsigned long total() {
        switch (_input.below(4)) {
            case 0:
                return std::numeric_limits<unsigned long>::max() - _input.below(3);
            case 1:
                return _input.number();
            default:
                return _input.byte();
        }
    }
    // A few bytes, as often as makes a name of 0 to 64 KiB.
    std::string name() {
        const std::string piece = _input.text(24);
        const std::size_t size = static_cast<std::size_t>(1) << _input.below(17);
        std::string name;
        while (!piece.empty() && name.size() + piece.size() <= size) {
            name += piece;
        }
        return name.empty() ? piece : name;
    }

    Nimra::Folder folder() {
        Nimra::Folder record(id(), id(), id(), name());
        record.oldParentId = id();
        record.driveId = id();
        record.type = _input.byte();
        record.accessLevel = static_cast<std::int32_t>(_input.number());
        for (unsigned depth = _input.below(MostDepth); depth > 0; --depth) {
            Nimra::Folder outer(depth, record.id, 0, "");
            outer.children.push_back(std::move(record));
            record = std::move(outer);
        }
        return record;
    }
    Nimra::Document document() {
        Nimra::Document record(id(), id(), id(), name());
        record.type = _input.byte();
        record.deleted = id();
        record.length = id();
        record.mimeType = _input.text(12);
        record.state = static_cast<std::int32_t>(_input.number());
        record.setKeyValue(_input.text(4), {_input.text(4), _input.flag()});
        record.shares[id()].resize(_input.below(3));
        return record;
    }
    Nimra::Tag tag() {
        Nimra::Tag record;
        record.id = id();
        record.tagKey = name();
        record.name = name();
        record.setKeyValue("artist", {name(), true});
        return record;
    }
    template <class Make>
    auto several(Make make) {
        std::vector<decltype(make())> records;
        for (unsigned count = _input.below(9); count > 0; --count) {
            records.push_back(make());
            if (_input.below(4) == 0) {
                records.push_back(records[_input.byte() % records.size()]);
            }
        }
        return records;
    }

    void deliver() {
        FilterInternal filter;
        filter.setDataId({id()});
        filter.setOffset(position());
        filter.setCount(position());
        const bool tags = _input.below(5) == 0;
        std::shared_ptr<QueryResult> directory;
        if (tags) {
            _cache.getKeyValues(filter, directory, nullptr);
        } else {
            filter.setByPassCache(false);
            _cache.get(filter, directory, nullptr);
        }
        const unsigned long reported = total();
        merge(filter, directory, tags, reported);
        lookAt(filter, *directory, reported);
    }

    void merge(const FilterInternal& filter, const std::shared_ptr<QueryResult>& directory,
               bool tags, unsigned long reported) {
        const auto makeFolder = [this] { return folder(); };
        const auto makeDocument = [this] { return document(); };
        if (tags) {
            return _cache.addKeyValues(filter, directory, several([this] { return tag(); }),
                                       reported);
        }
        switch (_input.below(3)) {
            case 0: {
                const auto folders = several(makeFolder);
                return _cache.addItems(filter, directory, folders, several(makeDocument), reported);
            }
            case 1:
                return _cache.addItems(filter, directory, several(makeFolder), reported);
            default:
                return _cache.addItems(filter, directory, several(makeDocument), reported);
        }
    }

    static QueryResultInternal& internalOf(QueryResult& directory) {
        return dynamic_cast<QueryResultInternal&>(directory);
    }

    void lookAt(const FilterInternal& filter, QueryResult& directory, unsigned long reported) {
        const std::vector<std::shared_ptr<Item>> all = directory.items();
        check(directory.count() == all.size(), "the count of a listing");
        check(std::find(all.begin(), all.end(), nullptr) == all.end(), "an empty pointer");
        check(directory.totalCount() == reported, "the total of a listing");
        check(internalOf(directory).isPageLoaded(filter), "a delivered page is not loaded");
        // What was added here and is counted by now comes with the page that its position is on.
        const auto whole = directory.page(0, std::numeric_limits<unsigned long>::max());
        auto next = whole.begin();
        for (const auto& entry : all) {
            const bool isNext = next != whole.end() && *next == entry;
            check(
                isNext || (entry->idLoaded() && !internalOf(directory).heldPositionOf(entry->id())),
                "the page of everything lacks something");
            next += isNext ? 1 : 0;
        }
        check(next == whole.end(), "the page of everything has more than everything");
        for (const auto& entry : all) {
            const auto named = directory.itemByName(entry->name());
            check(named && named->name() == entry->name(), "a name is not found");
            const Nimra::Folder record = _cache.itemToFolder(entry.get());
            check(record.id == entry->id(), "the record of another entry");
        }
        _cache.getDirectory(filter);
        _cache.printAllItems();
        check(_cache.itemsSize() == _wired.probe.items().size(), "the store's size");
    }

    Input _input;
    TraceSink _sink;
    Testing::WiredCache _wired;
    DirectoryCache& _cache = _wired.cache;
};

inline void hostilePages(Input input) { HostilePages(input).run(); }

}  // namespace Ormek::Fuzzing
