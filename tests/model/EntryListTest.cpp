#include "model/EntryList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "model/Object.h"
#include "tests/support/AllocationFaults.h"
#include "tests/support/Fakes.h"
#include "tests/support/FixedCases.h"

namespace Ormek::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Entry = EntryList::Entry;

constexpr unsigned long Parent = 7;
constexpr unsigned long Far = 1UL << 50;

std::shared_ptr<ObjectInternal> named(unsigned long id, std::string name) {
    return makeObject(id, Parent, std::move(name));
}

/// An entry whose changes nobody counts: it is not one of the cache's own kind.
class Foreign : public Object {
  public:
    Foreign(unsigned long id, std::string name) : _id(id), _name(std::move(name)) {}
    unsigned long id() const override { return _id; }
    std::string name() const override { return _name; }
    void change(unsigned long id, std::string name) {
        _id = id;
        _name = std::move(name);
    }

  private:
    unsigned long _id;
    std::string _name;
};

/// The same list, without chunks and without indexes.
class Plain {
  public:
    void put(unsigned long position, Entry entry) { _entries[position] = std::move(entry); }
    Entry take(unsigned long position) {
        const auto found = _entries.find(position);
        if (found == _entries.end()) {
            return nullptr;
        }
        Entry entry = found->second;
        _entries.erase(found);
        return entry;
    }
    void vacate(unsigned long begin, unsigned long end) {
        _entries.erase(_entries.lower_bound(begin), _entries.lower_bound(end));
    }
    Entry erase(unsigned long position) {
        Entry entry = take(position);
        shift(position, -1UL);
        return entry;
    }
    void insert(unsigned long position, Entry entry) {
        shift(position, 1);
        put(position, std::move(entry));
    }
    void truncate(unsigned long position) {
        _entries.erase(_entries.lower_bound(position), _entries.end());
    }

    const std::map<unsigned long, Entry>& entries() const { return _entries; }
    bool isVacant(unsigned long position) const { return _entries.count(position) == 0; }
    std::vector<Entry> copy(unsigned long begin, unsigned long end) const {
        std::vector<Entry> copied;
        for (const auto& [position, entry] : _entries) {
            if (position >= begin && position < end) {
                copied.push_back(entry);
            }
        }
        return copied;
    }
    template <class Wanted>
    std::vector<unsigned long> positionsOf(Wanted wanted) const {
        std::vector<unsigned long> positions;
        for (const auto& [position, entry] : _entries) {
            if (wanted(*entry)) {
                positions.push_back(position);
            }
        }
        return positions;
    }

  private:
    void shift(unsigned long from, unsigned long by) {
        std::map<unsigned long, Entry> shifted;
        for (auto& [position, entry] : _entries) {
            shifted[position < from ? position : position + by] = entry;
        }
        _entries = shifted;
    }

    std::map<unsigned long, Entry> _entries;
};

/// Both lists, the entries that come and go in them, and edits that are done to both.
class Both {
  public:
    /// Either of any entries, which change, or of those alone that an index can be trusted on.
    explicit Both(bool ofAny) : _ofAny(ofAny) {
        for (unsigned long id = 0; id < 6; ++id) {
            _own.push_back(named(id, id < 2 ? "" : "n" + std::to_string(id % 3)));
            _foreign.push_back(std::make_shared<Foreign>(id, "n" + std::to_string(id % 4)));
            _fixed.push_back(named(id + 1, "n" + std::to_string(id % 4)));
        }
        _own[4]->type(16);
        _own[5]->type(16);
        _own[5]->id(4);
        if (ofAny) {
            _pool.assign(_own.begin(), _own.end());
            _pool.insert(_pool.end(), _foreign.begin(), _foreign.end());
        } else {
            _pool.assign(_fixed.begin(), _fixed.end());
        }
    }

    void edit() {
        switch (*rc::gen::inRange(0, 10)) {
            case 0:
            case 1:
                return put(position(), any());
            case 2:
                return fill(position(), *rc::gen::inRange(1UL, 600UL));
            case 3: {
                const unsigned long at = position();
                RC_ASSERT(list.take(at) == plain.take(at));
                return;
            }
            case 4: {
                const unsigned long begin = position();
                const unsigned long end = begin + *rc::gen::inRange(0UL, 600UL);
                list.vacate(begin, end);
                return plain.vacate(begin, end);
            }
            case 5: {
                const unsigned long at = position();
                RC_ASSERT(list.erase(at) == plain.erase(at));
                return;
            }
            case 6: {
                const unsigned long at = position();
                const Entry entry = any();
                list.insert(at, entry);
                return plain.insert(at, entry);
            }
            case 7: {
                const unsigned long at = position();
                list.truncate(at);
                return plain.truncate(at);
            }
            case 8:
                return _ofAny ? changeOne() : put(position(), any());
            default: {
                EntryList other(list);
                list = *rc::gen::arbitrary<bool>() ? other : EntryList(list);
            }
        }
    }

    void compare() const {
        RC_ASSERT(list.size() == plain.entries().size());
        const unsigned long last =
            plain.entries().empty() ? 0 : plain.entries().rbegin()->first + 1;
        RC_ASSERT(list.end() >= last);
        for (const auto& [at, entry] : plain.entries()) {
            RC_ASSERT(list.at(at) != nullptr);
            RC_ASSERT(*list.at(at) == entry);
        }
        const unsigned long begin = position();
        const unsigned long end = position();
        RC_ASSERT((list.at(begin) == nullptr) == plain.isVacant(begin));
        std::vector<Entry> copied;
        list.copyTo(copied, begin, end);
        RC_ASSERT(copied == plain.copy(begin, end));
        for (const Entry& entry : _pool) {
            compare(*entry);
        }
    }

    EntryList list;
    Plain plain;

  private:
    void compare(const Item& entry) const {
        const auto same =
            plain.positionsOf([&](const Item& other) { return sameEntry(other, entry); });
        RC_ASSERT(list.positionsOf(entry) == same);
        RC_ASSERT(list.contains(entry) == !same.empty());
        const unsigned long id = entry.id();
        if (id != 0) {
            const auto ofId =
                plain.positionsOf([id](const Item& other) { return other.id() == id; });
            RC_ASSERT(list.firstOfId(id) ==
                      (ofId.empty() ? std::nullopt : std::optional(ofId.front())));
        }
        const std::string name = entry.name();
        const auto namesakes =
            plain.positionsOf([&](const Item& other) { return other.name() == name; });
        RC_ASSERT(list.firstOfName(name) ==
                  (namesakes.empty() ? std::nullopt : std::optional(namesakes.front())));
    }

    void put(unsigned long at, const Entry& entry) {
        if (plain.isVacant(at)) {
            list.reserve(at, at + 1);
            list.put(at, entry);
            plain.put(at, entry);
        }
    }
    void fill(unsigned long begin, unsigned long count) {
        list.reserve(begin, begin + count);
        for (unsigned long at = begin; at < begin + count; at += 37) {
            put(at, any());
        }
    }
    void changeOne() const {
        const auto at = *rc::gen::inRange<std::size_t>(0, _own.size());
        const auto id = *rc::gen::inRange(0UL, 6UL);
        const std::string name = "n" + std::to_string(*rc::gen::inRange(0, 4));
        _own[at]->id(id);
        _own[at]->name(*rc::gen::arbitrary<bool>() ? name : "");
        _foreign[at]->change(*rc::gen::inRange(0UL, 6UL), name);
    }

    static unsigned long position() {
        const unsigned long base = *rc::gen::element(0UL, 0UL, 250UL, 300UL, 1000UL, Far);
        return base + *rc::gen::inRange(0UL, 270UL);
    }
    Entry any() const { return *rc::gen::elementOf(_pool); }

    bool _ofAny;
    std::vector<std::shared_ptr<ObjectInternal>> _own;
    std::vector<std::shared_ptr<ObjectInternal>> _fixed;
    std::vector<std::shared_ptr<Foreign>> _foreign;
    std::vector<Entry> _pool;
};

void editBoth(bool ofAny) {
    Both both(ofAny);
    for (int edits = *rc::gen::inRange(1, 30); edits > 0; --edits) {
        both.edit();
        both.compare();
    }
}

TEST(EntryListTest, HoldsAndFindsWhatAPlainListWould) {
    EXPECT_TRUE(holds("a list of any entries is a map of them by position", 100, 60,
                      [] { editBoth(true); }));
}

TEST(EntryListTest, HoldsAndFindsEntriesThatNeverChangeByItsIndex) {
    EXPECT_TRUE(holds("a list of fixed entries is a map of them by position", 150, 60,
                      [] { editBoth(false); }));
}

TEST(EntryListTest, FarPositionCanBeTakenErasedAndInsertedBefore) {
    EntryList list;
    const Entry near = named(1, "near");
    const Entry far = named(2, "far");
    list.reserve(3, 4);
    list.put(3, near);
    list.reserve(Far, Far + 1);
    list.put(Far, far);
    EXPECT_EQ(list.take(0), nullptr);
    EXPECT_EQ(list.take(Far + 1), nullptr);
    EXPECT_EQ(list.erase(1000), nullptr);
    EXPECT_EQ(list.erase(Far + 1), nullptr);
    EXPECT_THAT(list.positionsOf(*far), ElementsAre(Far - 1));
    list.insert(1000, named(3, "between"));
    EXPECT_THAT(list.positionsOf(*far), ElementsAre(Far));
    EXPECT_EQ(list.end(), Far + 1);
}

TEST(EntryListTest, EntryThatStandsTwiceStaysWhereItWasNotTaken) {
    EntryList list;
    const Entry entry = named(1, "twice");
    for (const unsigned long position : {0UL, Far}) {
        list.reserve(position, position + 1);
        list.put(position, entry);
    }
    EXPECT_EQ(list.take(Far), entry);
    EXPECT_THAT(list.positionsOf(*entry), ElementsAre(0));
    EXPECT_EQ(list.firstOfName("twice"), 0);
    EXPECT_EQ(list.take(0), entry);
    EXPECT_FALSE(list.contains(*entry));
    EXPECT_EQ(list.firstOfName("twice"), std::nullopt);
}

TEST(EntryListTest, TagsOfOneIdAreDifferentEntries) {
    EntryList list;
    const auto one = named(5, "one");
    const auto other = named(5, "other");
    one->type(16);
    other->type(16);
    list.reserve(0, 2);
    list.put(0, one);
    EXPECT_TRUE(list.contains(*one));
    EXPECT_FALSE(list.contains(*other));
    EXPECT_THAT(list.positionsOf(*other), IsEmpty());
    EXPECT_EQ(list.firstOfId(5), 0UL);
}

TEST(EntryListTest, TagAndDocumentOfOneIdAreDifferentEntries) {
    const auto tag = named(5, "tag");
    tag->type(16);
    const auto document = named(5, "document");
    EXPECT_FALSE(sameEntry(*tag, *document));
    EXPECT_FALSE(sameEntry(*document, *tag));
    EXPECT_TRUE(sameEntry(*document, *named(5, "again")));
    EXPECT_FALSE(sameEntry(*named(0, "new"), *named(0, "new")));
}

// The first two are alike in libstdc++, as far as the index looks at their hash; so are the others.
TEST(EntryListTest, NamesOfOneHashAreToldApart) {
    const std::vector<std::string> names{"158492", "240066", "142980", "240463"};
    EntryList list;
    list.reserve(0, names.size());
    for (unsigned long at = 0; at < names.size(); ++at) {
        list.put(at, named(at + 1, names[at]));
    }
    for (unsigned long at = 0; at < names.size(); ++at) {
        EXPECT_EQ(list.firstOfName(names[at]), at);
    }
    list.take(0);
    EXPECT_EQ(list.firstOfName(names[0]), std::nullopt);
    EXPECT_EQ(list.firstOfName(names[1]), 1);
}

// The same of two ids.
TEST(EntryListTest, IdsOfOneHashAreToldApart) {
    constexpr unsigned long One = 1654798507413304125;
    constexpr unsigned long Other = 636567046635579002;
    EntryList list;
    list.reserve(0, 3);
    list.put(0, named(One, "one"));
    EXPECT_EQ(list.firstOfId(Other), std::nullopt);
    EXPECT_FALSE(list.contains(*named(Other, "other")));
    list.put(2, named(Other, "other"));
    EXPECT_EQ(list.firstOfId(One), 0UL);
    EXPECT_EQ(list.firstOfId(Other), 2UL);
}

TEST(EntryListTest, AssignedListIsACopy) {
    EntryList list;
    list.reserve(0, 2);
    list.put(0, named(1, "one"));
    EntryList other;
    other = list;
    list.put(1, named(2, "two"));
    EXPECT_EQ(other.size(), 1U);
    EXPECT_EQ(list.size(), 2U);
    const EntryList& same = list;
    list = same;
    EXPECT_EQ(list.size(), 2U);
    EXPECT_EQ(list.firstOfName("two"), 1);
}

/// A list of so many entries, without vacant positions.
EntryList filled(unsigned long count) {
    EntryList list;
    list.reserve(0, count);
    for (unsigned long at = 0; at < count; ++at) {
        list.put(at, named(at + 1, "n" + std::to_string(at)));
    }
    return list;
}

TEST(EntryListTest, WhatLeavesNeedsNoMemory) {
    EntryList list = filled(1000);
    EntryList copy(list);
    for (EntryList* emptied : {&copy, &list}) {
        emptied->firstOfName("n1");
        const AllocationFaults faults(1);
        emptied->erase(0);
        emptied->vacate(100, 200);
        emptied->take(300);
        emptied->truncate(400);
        EXPECT_EQ(emptied->size(), 299U);
        emptied->truncate(0);
        EXPECT_EQ(emptied->size(), 0U);
        EXPECT_FALSE(faults.struck());
    }
}

TEST(EntryListTest, MoreChangesThanAreRememberedAreFollowed) {
    constexpr unsigned long Count = 4000;
    std::vector<std::shared_ptr<ObjectInternal>> entries;
    EntryList list;
    list.reserve(0, Count);
    for (unsigned long at = 0; at < Count; ++at) {
        entries.push_back(named(at + 1, "n" + std::to_string(at)));
        list.put(at, entries.back());
    }
    EXPECT_EQ(list.firstOfName("n5"), 5);
    for (unsigned long at = 0; at < Count / 2; ++at) {
        entries[at]->id(10'000 + at);
        entries[at]->name("changed" + std::to_string(at));
    }
    for (unsigned long at = 0; at < Count; at += 97) {
        const bool isChanged = at < Count / 2;
        EXPECT_EQ(list.firstOfId(10'000 + at), isChanged ? std::optional(at) : std::nullopt);
        EXPECT_EQ(list.firstOfId(at + 1), isChanged ? std::nullopt : std::optional(at));
        EXPECT_EQ(list.firstOfName(entries[at]->name()), at);
        EXPECT_EQ(list.firstOfName("n" + std::to_string(at)),
                  isChanged ? std::nullopt : std::optional(at));
    }
}

TEST(EntryListTest, EntryThatDoesNotTellOfItsChangesIsFoundWhateverLeaves) {
    EntryList list = filled(5);
    const auto foreign = std::make_shared<Foreign>(50, "foreign");
    list.insert(5, foreign);
    for (int left = 5; left > 0; --left) {
        EXPECT_EQ(list.firstOfId(50), static_cast<unsigned long>(left));
        EXPECT_EQ(list.firstOfName("foreign"), static_cast<unsigned long>(left));
        list.erase(0);
    }
    foreign->change(51, "changed");
    EXPECT_EQ(list.firstOfId(51), 0UL);
    EXPECT_EQ(list.firstOfName("changed"), 0UL);
}

TEST(EntryListTest, SaysWhetherAnEntryStandsAtAPlaceAndNowhereElse) {
    EntryList list = filled(3);
    const Entry one = *list.at(1);
    EXPECT_TRUE(list.standsOnlyAt(1, *one));
    EXPECT_FALSE(list.standsOnlyAt(0, *one));
    EXPECT_FALSE(list.standsOnlyAt(9, *one));
    EXPECT_FALSE(list.standsOnlyAt(1, *named(one->id(), "the same, but another object")));
    list.insert(3, std::make_shared<Foreign>(40, "foreign"));
    list.insert(4, std::make_shared<Foreign>(41, "foreign"));
    EXPECT_TRUE(list.standsOnlyAt(1, *one));
    EXPECT_TRUE(list.standsOnlyAt(3, **list.at(3)));
    list.insert(5, std::make_shared<Foreign>(one->id(), "foreign"));
    EXPECT_FALSE(list.standsOnlyAt(1, *one));
    list.erase(5);
    list.insert(Far, one);
    EXPECT_FALSE(list.standsOnlyAt(1, *one));
    EXPECT_FALSE(list.standsOnlyAt(Far, *one));
}

TEST(EntryListTest, EntryUnderTheHashOfThoseThatDoNotTellStandsOnce) {
    EntryList list;
    list.insert(0, named(0x5bd1e9955bd1e995UL, "one"));
    EXPECT_TRUE(list.standsOnlyAt(0, **list.at(0)));
    list.insert(1, std::make_shared<Foreign>(41, "foreign"));
    EXPECT_TRUE(list.standsOnlyAt(0, **list.at(0)));
    EXPECT_TRUE(list.standsOnlyAt(1, **list.at(1)));
}

TEST(EntryListTest, EndIsWhatIsLeftWhenTheRestIsTakenOut) {
    EntryList list = filled(5);
    list.insert(100, named(200, "far"));
    list.truncate(100);
    EXPECT_EQ(list.end(), 5U);
    list.insert(100, named(200, "far"));
    list.insert(101, named(201, "farther"));
    list.erase(100);
    list.erase(100);
    EXPECT_EQ(list.end(), 5U);
}

TEST(EntryListTest, NothingIsLeftOfWhatWasInsertedFarAndErasedAgain) {
    for (const unsigned long count : {1UL, 129UL, 1000UL}) {
        EntryList list;
        for (unsigned long number = 0; number < count; ++number) {
            list.insert(1000 + number, named(number + 1, "far"));
        }
        while (list.size() > 0) {
            list.erase(1000);
        }
        EXPECT_EQ(list.end(), 0U) << count;
        for (unsigned long number = 0; number < count; ++number) {
            list.insert(1000, named(number + 1, "far"));
        }
        while (list.size() > 0) {
            list.erase(1000);
        }
        EXPECT_EQ(list.end(), 0U) << count;
    }
}

TEST(EntryListTest, RoomForInsertionsIsThereAlsoWhenTheOnlyEntryHasLeft) {
    for (const bool hadOne : {false, true}) {
        EntryList list;
        std::vector<Entry> entries;
        for (unsigned long id = 1; id <= 12; ++id) {
            entries.push_back(named(id, "inserted"));
        }
        if (hadOne) {
            list.insert(0, named(13, "first"));
        }
        list.reserveInsertions(12);
        list.erase(0);
        const AllocationFaults faults(1);
        for (Entry& entry : entries) {
            list.insert(0, std::move(entry));
        }
        EXPECT_FALSE(faults.struck());
        EXPECT_EQ(list.size(), 12U);
    }
}

TEST(EntryListTest, VacantPositionMovesAlongWhenItsChunkBecomesTwo) {
    EntryList list = filled(60);
    list.take(50);
    for (unsigned long id = 1000; id < 1200; ++id) {
        list.insert(20, named(id, "inserted"));
    }
    EXPECT_EQ(list.size(), 259U);
    EXPECT_EQ((*list.at(249))->id(), 50U);
    EXPECT_EQ(list.at(250), nullptr);
    EXPECT_EQ((*list.at(251))->id(), 52U);
}

TEST(EntryListTest, ErasingBehindAnEntryTakesNothing) {
    EntryList list = filled(5);
    list.insert(100, named(100, "far"));
    for (const unsigned long behind : {101UL, 5UL}) {
        EXPECT_EQ(list.erase(behind), nullptr);
        EXPECT_EQ(list.size(), 6U);
        EXPECT_EQ((*list.at(4))->id(), 5U);
    }
    EXPECT_EQ((*list.at(99))->id(), 100U);
}

TEST(EntryListTest, EntryIsInsertedBeforeTheFirstOneBehindAGap) {
    EntryList list = filled(5);
    list.insert(100, named(100, "far"));
    list.insert(100, named(99, "before"));
    EXPECT_EQ(list.at(5), nullptr);
    EXPECT_EQ(list.at(99), nullptr);
    EXPECT_EQ((*list.at(100))->id(), 99U);
    EXPECT_EQ((*list.at(101))->id(), 100U);
}

TEST(EntryListTest, EndIsBehindTheLastEntry) {
    EXPECT_EQ(EntryList().end(), 0U);
    EntryList list = filled(200);
    EXPECT_EQ(list.end(), 200U);
    list.truncate(70);
    EXPECT_EQ(list.end(), 70U);
    list.erase(3);
    EXPECT_EQ(list.end(), 69U);
    list.insert(100, named(1000, "far"));
    EXPECT_EQ(list.end(), 101U);
    list.truncate(0);
    EXPECT_EQ(list.end(), 0U);
}

/// Where an entry stands, by its name and by its id; what stands there, and what should.
using Place = std::array<unsigned long, 4>;

std::vector<Place> contentOf(const EntryList& list) {
    std::vector<Place> content;
    list.forEach([&](const Entry& entry) {
        const unsigned long position = list.firstOfName(entry->name()).value_or(Far);
        const Entry* standing = list.at(position);
        content.push_back({position, list.firstOfId(entry->id()).value_or(Far),
                           standing ? (*standing)->id() : 0, entry->id()});
    });
    return content;
}

TEST(EntryListTest, ManyInsertionsAndRemovalsKeepTheOrder) {
    for (const unsigned long place : {0UL, 40UL, 200UL, 1000UL}) {
        EntryList list;
        std::vector<unsigned long> ids;
        for (unsigned long id = 1; id <= 700; ++id) {
            const unsigned long at = std::min<unsigned long>(place, ids.size());
            list.insert(at, named(id, std::to_string(id)));
            ids.insert(ids.begin() + static_cast<std::ptrdiff_t>(at), id);
        }
        for (std::size_t step = 0; !ids.empty(); ++step) {
            if (step % 50 == 0) {
                const auto content = contentOf(list);
                ASSERT_EQ(content.size(), ids.size());
                for (unsigned long at = 0; at < ids.size(); ++at) {
                    ASSERT_EQ(content[at], (Place{at, at, ids[at], ids[at]}));
                }
            }
            const std::size_t at = step * 7 % ids.size();
            ASSERT_EQ(list.erase(at)->id(), ids[at]);
            ids.erase(ids.begin() + static_cast<std::ptrdiff_t>(at));
        }
        EXPECT_EQ(list.size(), 0U);
        EXPECT_EQ(list.end(), 0U);
    }
}

/// Lists in whose copies every vector is full: chunks of all sizes, with gaps and without.
std::vector<EntryList> listsWithoutRoom() {
    std::vector<EntryList> lists;
    for (const unsigned long count : {0UL, 12UL, 64UL, 140UL}) {
        lists.push_back(filled(count));
        EntryList crowded = filled(count);
        for (unsigned long id = 2000; id < 2064; ++id) {
            crowded.insert(std::min(count, 40UL), named(id, std::to_string(id)));
        }
        lists.push_back(crowded);
        crowded.insert(5000, named(3000, "far"));
        lists.push_back(crowded);
    }
    return lists;
}

/// Lets every allocation of a call fail in turn, on a copy; the call changes nothing then.
template <class Call>
void failOnEveryAllocation(const EntryList& list, Call call) {
    const auto before = contentOf(list);
    EntryList passing(list);
    call(passing);
    const auto after = contentOf(passing);
    bool struck = true;
    for (unsigned long nth = 1; struck; ++nth) {
        EntryList copy(list);
        copy.firstOfName("makes the index");
        bool thrown = false;
        {
            const AllocationFaults faults(nth);
            try {
                call(copy);
            } catch (const std::bad_alloc&) {
                thrown = true;
            }
            struck = faults.struck();
        }
        ASSERT_EQ(contentOf(copy), thrown ? before : after) << nth;
        if (thrown) {
            call(copy);
            ASSERT_EQ(contentOf(copy), after) << nth;
        }
        copy.truncate(0);
        ASSERT_EQ(copy.size(), 0U);
    }
}

TEST(EntryListTest, WithoutMemoryNothingIsInserted) {
    const Entry entry = named(9000, "new");
    for (const EntryList& list : listsWithoutRoom()) {
        for (const unsigned long position : {40UL, 64UL, list.size(), 300UL}) {
            failOnEveryAllocation(list,
                                  [&](EntryList& copy) { copy.insert(position, Entry(entry)); });
        }
    }
}

TEST(EntryListTest, WithoutMemoryNoRoomIsMadeAndNothingChanges) {
    for (const EntryList& list : listsWithoutRoom()) {
        for (const unsigned long position : {40UL, 300UL}) {
            failOnEveryAllocation(
                list, [&](EntryList& copy) { copy.reserve(position, position + 200, 10); });
        }
        failOnEveryAllocation(list, [](EntryList& copy) { copy.reserveInsertions(10); });
    }
}

TEST(EntryListTest, WhereRoomWasMadeNothingFails) {
    constexpr unsigned long More = 200;
    std::vector<Entry> entries;
    for (unsigned long id = 9000; id < 9000 + More; ++id) {
        entries.push_back(named(id, std::to_string(id)));
    }
    for (const EntryList& list : listsWithoutRoom()) {
        for (const unsigned long position : {0UL, 40UL, list.end()}) {
            for (const unsigned long nth : {1UL, 2UL, 3UL, 7UL}) {
                EntryList copy(list);
                const unsigned long at = std::min(position, copy.end());
                copy.reserveInsertions(More);
                {
                    const AllocationFaults faults(nth);
                    for (const Entry& entry : entries) {
                        copy.insert(at, entry);
                    }
                }
                EXPECT_EQ(copy.size(), list.size() + More);
                EXPECT_EQ(copy.at(at)->get(), entries.back().get());
                EXPECT_EQ(copy.at(at + More - 1)->get(), entries.front().get());
            }
        }
        EntryList copy(list);
        copy.reserve(10'000, 10'000 + More);
        copy.reserve(20'000, 20'000, More);
        {
            const AllocationFaults faults(1);
            for (unsigned long at = 0; at < More; ++at) {
                copy.put(10'000 + at, entries[at]);
            }
            EXPECT_FALSE(faults.struck());
        }
        EXPECT_EQ(copy.size(), list.size() + More);
    }
}

}  // namespace
}  // namespace Ormek::Testing
