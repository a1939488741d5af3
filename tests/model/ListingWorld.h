#pragma once

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "model/ContainerInternal.h"
#include "model/ObjectInternal.h"
#include "model/QueryResultInternal.h"

namespace Ormek::Testing {

/// One call of a result set, or a change of one of its entries; two numbers say which and where.
struct ListingStep {
    enum Kind {
        AddPage,
        TotalCount,
        AddItems,
        AddFolders,
        AddDocuments,
        AddInFront,
        AddBehind,
        RemoveItem,
        RemoveByName,
        Invalidate,
        Items,
        Counts,
        Page,
        ItemByName,
        IsPageLoaded,
        IsPageCurrent,
        Copy,
        CopyWithFilter,
        Assign,
        Rename,
        GiveId,
        Restore,
        MarkLoaded,
        Last = MarkLoaded
    };
    Kind kind;
    unsigned long one;
    unsigned long other;
};

std::ostream& operator<<(std::ostream& out, const ListingStep& step);

/// A result set and the entries that are put into it. Every name is too long to be copied without
/// an allocation.
class ListingWorld {
  public:
    static constexpr unsigned long Entries = 10;
    static constexpr unsigned long Names = 4;

    ListingWorld();

    /// Does what the step says and gives back the answer.
    std::string take(const ListingStep& step);
    void take(const std::vector<ListingStep>& steps);
    /// All that the result set says.
    std::string state() const;

  private:
    using Delivery = std::vector<std::shared_ptr<Item>>;

    static std::string nameOf(unsigned long number);
    FilterInternal filter(const ListingStep& step) const;
    ItemInternal& internal(unsigned long number);
    Delivery delivery(const ListingStep& step) const;
    std::string numberOf(const std::shared_ptr<Item>& entry) const;
    std::string numbersOf(const Delivery& entries) const;
    void change(const ListingStep& step);
    std::string ask(const ListingStep& step);

    std::vector<std::shared_ptr<Item>> _entries;
    QueryResultInternal _result{FilterInternal()};
};

}  // namespace Ormek::Testing
