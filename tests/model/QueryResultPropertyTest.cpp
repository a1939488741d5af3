#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <algorithm>
#include <cstdint>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "model/ObjectInternal.h"
#include "model/QueryResultInternal.h"
#include "tests/support/Fakes.h"
#include "tests/support/FixedCases.h"
#include "tests/support/ListingServer.h"

namespace Ormek::Testing {
namespace {

constexpr unsigned long Folder = 7;

/// One thing that happens; two numbers say to which entry or page.
struct Step {
    enum Kind {
        Load,
        Remove,
        AddAtOnce,
        AddUntold,
        ServerLearns,
        ServerLearnsUnderNewId,
        Rename,
        Replace,
        AddElsewhere,
        RemoveElsewhere,
        Last = RemoveElsewhere
    };
    Kind kind;
    unsigned long one;
    unsigned long other;
};

std::ostream& operator<<(std::ostream& stream, const Step& step) {
    return stream << "{" << step.kind << ", " << step.one << ", " << step.other << "}";
}

/// What a case starts from.
struct Start {
    std::vector<unsigned long> names;
    unsigned long pageSize;
};

std::ostream& operator<<(std::ostream& stream, const Start& start) {
    stream << "page size " << start.pageSize << ", names";
    for (const unsigned long name : start.names) {
        stream << ' ' << name;
    }
    return stream;
}

/// Whether an edit that moves entries in a way the listing cannot follow invalidates it: a rename,
/// and the removal of an entry whose position is not held. Their order asks for it.
enum class Moves { AreNotTold, Invalidate };

/// A listing and its server, with the store that entries are shared with, as a cache keeps them.
///
/// Local edits are told. What happens elsewhere must alter the total beyond what local edits
/// explain: a step that would hide such a change before it has been seen does not take place.
class World {
  public:
    World(const Start& start, Moves moves) : _pageSize(start.pageSize), _moves(moves) {
        for (const unsigned long name : start.names) {
            _server.add(_nextId++, nameOf(name));
        }
        note("server");
    }

    void take(const Step& step) {
        switch (step.kind) {
            case Step::Load:
                return step.other % 4 == 0
                           ? load(step.one % (_server.total() + 3), 1 + step.other / 4)
                           : load(pageOffset(step.one), _pageSize);
            case Step::Remove:
                return remove(step.one);
            case Step::AddAtOnce:
            case Step::AddUntold:
                return add(step.one, step.other % 2 == 0, step.kind == Step::AddAtOnce);
            case Step::ServerLearns:
            case Step::ServerLearnsUnderNewId:
                return serverLearns(step.one, step.kind == Step::ServerLearnsUnderNewId);
            case Step::Rename:
                return rename(step.one, step.other);
            case Step::Replace:
                return replace(step.one);
            case Step::AddElsewhere:
                return addElsewhere(step.one);
            case Step::RemoveElsewhere:
                return removeElsewhere(step.one);
        }
    }

    /// Sees what has happened elsewhere, which a listing that nobody asks for cannot.
    void lookOnce() { load(0, _pageSize); }
    bool hasUnseenChange() const { return _unseen; }

    void serverLearnsAll() {
        while (!_untold.empty()) {
            serverLearns(0, false);
        }
    }

    /// Loads every page that is not current until all are; false when that takes too long.
    bool loadUntilCurrent() {
        for (int round = 0; round < 40; ++round) {
            if (!loadRound()) {
                return true;
            }
        }
        return false;
    }

    std::vector<unsigned long> listed() const {
        std::vector<unsigned long> ids;
        for (const std::shared_ptr<Item>& item : _result.items()) {
            ids.push_back(item->id());
        }
        return ids;
    }
    /// The server's entries in its order, and behind them those that it has not been told of.
    std::vector<unsigned long> expected() const {
        std::vector<unsigned long> ids;
        for (const ListingServer::Record& record : _server.records()) {
            ids.push_back(record.id);
        }
        for (const std::shared_ptr<ObjectInternal>& item : _untold) {
            ids.push_back(item->id());
        }
        return ids;
    }
    std::string story() const { return _story.str(); }

  private:
    static std::string nameOf(unsigned long number) {
        return {static_cast<char>('a' + number % 8)};
    }

    unsigned long pageOffset(unsigned long one) const {
        return one % (_server.total() / _pageSize + 2) * _pageSize;
    }

    // What the result set may explain a total by; rather too much than too little.
    bool isExplained(unsigned long total, unsigned long removals, unsigned long additions) const {
        return !_lastTotal || (total + removals >= *_lastTotal && total <= *_lastTotal + additions);
    }
    // Whether a local edit would hide what has happened elsewhere.
    bool wouldHide(long total, unsigned long removals, unsigned long additions) const {
        return _unseen && isExplained(_server.total() + static_cast<unsigned long>(total),
                                      _removals + removals, _additions.size() + additions);
    }

    void load(unsigned long offset, unsigned long count) {
        _result.addPage(offset, count);
        _result.totalCount(_server.total());
        std::vector<std::shared_ptr<Item>> page;
        for (const ListingServer::Record& record : _server.page(offset, count)) {
            page.push_back(merge(record));
        }
        _result.addItems(offset, page);
        _lastTotal = _server.total();
        _removals = 0;
        _unseen = false;
        std::erase_if(_additions, [](const auto& item) { return item->idLoaded(); });
        note("load " + std::to_string(offset) + ", " + std::to_string(count));
    }

    std::shared_ptr<Item> merge(const ListingServer::Record& record) {
        std::shared_ptr<ObjectInternal>& item = _store[record.id];
        if (!item) {
            item = makeObject(record.id, Folder, record.name);
        } else {
            item->name(record.name);
            const bool replaced = _result.removeItemByName(item);
            _result.addItem(item, replaced);
        }
        item->idLoaded(true);
        return item;
    }

    bool loadRound() {
        bool loaded = false;
        for (unsigned long offset = 0; offset == 0 || offset < _result.totalCount();
             offset += _pageSize) {
            const FilterInternal page = folderFilter(Folder, static_cast<std::uint32_t>(offset),
                                                     static_cast<std::uint32_t>(_pageSize));
            if (!_result.isPageLoaded(page) || !_result.isPageCurrent(page)) {
                load(offset, _pageSize);
                loaded = true;
            }
        }
        return loaded;
    }

    std::shared_ptr<ObjectInternal> stored(unsigned long number) const {
        return _store.empty()
                   ? nullptr
                   : std::next(_store.begin(), static_cast<std::ptrdiff_t>(number % _store.size()))
                         ->second;
    }

    void remove(unsigned long number) {
        const std::shared_ptr<ObjectInternal> item = stored(number);
        if (!item || wouldHide(isOnServer(item->id()) ? -1 : 0, 1, 0)) {
            return;
        }
        ++_removals;
        dropFromStore(item);
        _server.remove(item->id());
        const bool wasHeld = isHeld(*item);
        _result.removeItem(item->id());
        if (!wasHeld && _moves == Moves::Invalidate) {
            _result.invalidate();
        }
        note("remove " + described(*item));
    }

    void add(unsigned long name, bool front, bool atOnce) {
        if (wouldHide(atOnce ? 1 : 0, 0, 1)) {
            return;
        }
        const auto item = makeObject(_nextId++, Folder, nameOf(name));
        _store[item->id()] = item;
        _additions.push_back(item);
        if (atOnce) {
            _server.add(item->id(), item->name());
            item->idLoaded(true);
        } else {
            _untold.push_back(item);
        }
        _result.addItem(item, front);
        note(std::string("add ") + (front ? "in front " : "behind ") + described(*item) +
             (atOnce ? "" : ", server not told"));
    }

    void serverLearns(unsigned long number, bool newId) {
        if (_untold.empty() || wouldHide(1, 0, 0)) {
            return;
        }
        const auto place = _untold.begin() + static_cast<std::ptrdiff_t>(number % _untold.size());
        const std::shared_ptr<ObjectInternal> item = *place;
        _untold.erase(place);
        const std::string old = described(*item);
        if (newId) {
            _store.erase(item->id());
            item->id(_nextId++);
            _store[item->id()] = item;
        }
        item->idLoaded(true);
        _server.add(item->id(), item->name());
        note("server learns of " + old + " as " + described(*item));
    }

    void rename(unsigned long number, unsigned long name) {
        const std::shared_ptr<ObjectInternal> item = stored(number);
        if (!item) {
            return;
        }
        const std::string old = described(*item);
        item->name(nameOf(name));
        _server.rename(item->id(), item->name());
        if (_moves == Moves::Invalidate) {
            _result.invalidate();
        }
        note("rename " + old + " to " + described(*item));
    }

    // Another entry takes the place of its namesake, here and on the server.
    void replace(unsigned long name) {
        const auto old =
            std::dynamic_pointer_cast<ObjectInternal>(_result.itemByName(nameOf(name)));
        if (!old) {
            return;
        }
        const bool wasUntold = isUntold(old);
        const bool wasOnServer = isOnServer(old->id());
        if (wouldHide(wasUntold || wasOnServer ? 0 : 1, 1, 1)) {
            return;
        }
        const auto item = makeObject(_nextId++, Folder, nameOf(name));
        dropFromStore(old);
        _store[item->id()] = item;
        _additions.push_back(item);
        ++_removals;
        if (wasUntold) {
            _untold.push_back(item);
        } else {
            if (!_server.replace(old->id(), item->id())) {
                _server.add(item->id(), item->name());
            }
            item->idLoaded(true);
        }
        const bool replaced = _result.removeItemByName(item);
        _result.addItem(item, replaced);
        note("replace " + described(*old) + " by " + described(*item));
    }

    void addElsewhere(unsigned long name) {
        if (!isExplained(_server.total() + 1, _removals, _additions.size())) {
            _server.add(_nextId++, nameOf(name));
            _unseen = true;
            note("elsewhere add");
        }
    }

    void removeElsewhere(unsigned long number) {
        if (_server.total() != 0 &&
            !isExplained(_server.total() - 1, _removals, _additions.size())) {
            const ListingServer::Record record = _server.records()[number % _server.total()];
            _server.remove(record.id);
            _unseen = true;
            note("elsewhere remove");
        }
    }

    bool isHeld(const Item& item) const {
        for (std::uint32_t position = 0; position < _result.totalCount(); ++position) {
            for (const std::shared_ptr<Item>& there : _result.page(position, 1)) {
                if (there.get() == &item) {
                    return _result.isPageCurrent(folderFilter(Folder, position, 1));
                }
            }
        }
        return false;
    }
    bool isUntold(const std::shared_ptr<ObjectInternal>& item) const {
        return std::find(_untold.begin(), _untold.end(), item) != _untold.end();
    }
    bool isOnServer(unsigned long id) const {
        const auto& records = _server.records();
        return std::any_of(records.begin(), records.end(),
                           [id](const auto& record) { return record.id == id; });
    }
    void dropFromStore(const std::shared_ptr<ObjectInternal>& item) {
        _store.erase(item->id());
        std::erase(_untold, item);
    }

    static std::string described(const Item& item) {
        return item.name() + std::to_string(item.id());
    }
    void note(const std::string& event) {
        _story << event << "\n      server:";
        for (const ListingServer::Record& record : _server.records()) {
            _story << ' ' << record.name << record.id;
        }
        _story << "\n      result:";
        for (const std::shared_ptr<Item>& item : _result.items()) {
            _story << ' ' << described(*item);
        }
        _story << "\n      current:";
        for (std::uint32_t at = 0; at < _result.totalCount(); ++at) {
            _story << (_result.isPageCurrent(folderFilter(Folder, at, 1)) ? " +" : " -");
        }
        _story << '\n';
    }

    unsigned long _pageSize;
    Moves _moves;
    unsigned long _nextId = 1;
    ListingServer _server;
    QueryResultInternal _result{folderFilter(Folder)};
    std::map<unsigned long, std::shared_ptr<ObjectInternal>> _store;
    std::vector<std::shared_ptr<ObjectInternal>> _untold;  // Local additions, in their order.
    std::ostringstream _story;

    // What the result set has been told since the last total.
    std::optional<unsigned long> _lastTotal;
    unsigned long _removals = 0;
    std::vector<std::shared_ptr<ObjectInternal>> _additions;
    bool _unseen = false;  // A change elsewhere that no total has shown yet.
};

rc::Gen<unsigned long> number(unsigned long end) {
    return rc::gen::resize(rc::kNominalSize, rc::gen::inRange(0ul, end));
}

rc::Gen<Start> starts() {
    return rc::gen::build<Start>(
        rc::gen::set(&Start::names, rc::gen::container<std::vector<unsigned long>>(number(8))),
        rc::gen::set(&Start::pageSize, rc::gen::map(number(4), [](auto n) { return n + 1; })));
}

// Every second step is a load.
rc::Gen<Step> steps() {
    const auto kind = rc::gen::map(number(2 * Step::Last), [](unsigned long n) {
        return n > Step::Last ? Step::Load : static_cast<Step::Kind>(n);
    });
    return rc::gen::build<Step>(rc::gen::set(&Step::kind, kind),
                                rc::gen::set(&Step::one, number(16)),
                                rc::gen::set(&Step::other, number(16)));
}

constexpr int Cases = 20000;
constexpr int Steps = 20;

std::vector<unsigned long> sorted(std::vector<unsigned long> ids) {
    std::sort(ids.begin(), ids.end());
    return ids;
}

TEST(QueryResultPropertyTest, NoEntryIsLostAndNoneIsThereTwiceOnceEveryPageIsCurrent) {
    EXPECT_TRUE(holds("no entry lost, none twice", Cases, Steps, [] {
        World world(*starts(), Moves::AreNotTold);
        for (const Step& step : *rc::gen::container<std::vector<Step>>(steps())) {
            world.take(step);
        }
        if (world.hasUnseenChange()) {
            world.lookOnce();
        }
        const bool settled = world.loadUntilCurrent();
        RC_LOG() << world.story();
        RC_ASSERT(settled);
        RC_ASSERT(sorted(world.listed()) == sorted(world.expected()));
    }));
}

TEST(QueryResultPropertyTest, EntriesStandInTheServersOrderOnceEveryPageIsCurrent) {
    EXPECT_TRUE(holds("the server's order", Cases, Steps, [] {
        World world(*starts(), Moves::Invalidate);
        for (const Step& step : *rc::gen::container<std::vector<Step>>(steps())) {
            world.take(step);
        }
        if (world.hasUnseenChange()) {
            world.lookOnce();
        }
        world.serverLearnsAll();
        world.lookOnce();
        const bool settled = world.loadUntilCurrent();
        RC_LOG() << world.story();
        RC_ASSERT(settled);
        RC_ASSERT(world.listed() == world.expected());
    }));
}

}  // namespace
}  // namespace Ormek::Testing
