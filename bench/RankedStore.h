#pragma once

#include <boost/multi_index/composite_key.hpp>
#include <boost/multi_index/hashed_index.hpp>
#include <boost/multi_index/member.hpp>
#include <boost/multi_index/ranked_index.hpp>
#include <boost/multi_index_container.hpp>
#include <memory>
#include <string>
#include <vector>

#include "model/Item.h"

namespace Ormek::Bench {

/// What somebody builds from Boost.MultiIndex: entries hashed by id, and ranked by parent and name
/// so that a page is found by its offset.
class RankedStore {
  public:
    struct Record {
        unsigned long id;
        unsigned long parentId;
        std::string name;
        std::shared_ptr<Item> item;
    };

    void insert(Record record) { _records.insert(std::move(record)); }
    void erase(unsigned long id) { _records.get<ById>().erase(id); }
    Record take(unsigned long id) {
        auto& records = _records.get<ById>();
        return std::move(records.extract(records.find(id)).value());
    }

    std::shared_ptr<Item> find(unsigned long id) const {
        const auto found = _records.get<ById>().find(id);
        return found == _records.get<ById>().end() ? nullptr : found->item;
    }

    std::vector<std::shared_ptr<Item>> page(unsigned long parentId, std::size_t offset,
                                            std::size_t count) const {
        const auto& ranked = _records.get<ByName>();
        std::vector<std::shared_ptr<Item>> entries;
        entries.reserve(count);
        auto at = ranked.nth(ranked.lower_bound_rank(parentId) + offset);
        for (; entries.size() < count && at != ranked.end() && at->parentId == parentId; ++at) {
            entries.push_back(at->item);
        }
        return entries;
    }

    void rename(unsigned long id, const std::string& name) {
        modify(id, [&](Record& record) { record.name = name; });
    }
    void move(unsigned long id, unsigned long parentId) {
        modify(id, [=](Record& record) { record.parentId = parentId; });
    }

  private:
    struct ById {};
    struct ByName {};

    template <class Change>
    void modify(unsigned long id, Change change) {
        auto& records = _records.get<ById>();
        records.modify(records.find(id), change);
    }

    using Name = boost::multi_index::composite_key<
        Record, boost::multi_index::member<Record, unsigned long, &Record::parentId>,
        boost::multi_index::member<Record, std::string, &Record::name>,
        boost::multi_index::member<Record, unsigned long, &Record::id>>;

    boost::multi_index_container<
        Record, boost::multi_index::indexed_by<
                    boost::multi_index::hashed_unique<
                        boost::multi_index::tag<ById>,
                        boost::multi_index::member<Record, unsigned long, &Record::id>>,
                    boost::multi_index::ranked_unique<boost::multi_index::tag<ByName>, Name>>>
        _records;
};

}  // namespace Ormek::Bench
