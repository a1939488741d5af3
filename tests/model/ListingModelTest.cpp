#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "model/ContainerInternal.h"
#include "model/ObjectInternal.h"
#include "model/QueryResultInternal.h"
#include "tests/model/ListingWorld.h"
#include "tests/support/Fakes.h"
#include "tests/support/FixedCases.h"
#include "tests/support/ListingModel.h"

namespace Ormek::Testing {
namespace {

using Kind = ListingStep::Kind;

constexpr unsigned long Folder = 7;
constexpr unsigned long Entries = 9;

/// A result set and its model, to which the same is done.
class ListingTwins {
  public:
    ListingTwins() {
        for (unsigned long number = 0; number < Entries; ++number) {
            const auto model = std::make_shared<ModelEntry>();
            model->isFolder = number % 3 == 0;
            if (model->isFolder) {
                _entries.push_back(makeContainer(0, Folder, ""));
            } else {
                _entries.push_back(makeObject(0, Folder, ""));
            }
            model->type = number == 1 || number == 2 ? 16 : _entries.back()->type();
            _model.push_back(model);
            internal(number).type(model->type);
            giveId(number, 1 + number / 2 * 2);  // Two of each id.
            rename(number, number % 4);
            if (number % 4 != 0) {
                markLoaded(number);
            }
        }
    }

    void take(const ListingStep& step);
    std::string real() const;
    std::string model() const;

  private:
    ItemInternal& internal(unsigned long number) {
        return dynamic_cast<ItemInternal&>(*_entries[number]);
    }
    void giveId(unsigned long number, unsigned long id) {
        internal(number).id(id);
        _model[number]->id = id;
    }
    void rename(unsigned long number, unsigned long name) {
        internal(number).name(std::string(name, 'n'));
        _model[number]->name = std::string(name, 'n');
    }
    void markLoaded(unsigned long number) {
        internal(number).idLoaded(true);
        _model[number]->idLoaded = true;
    }
    void add(const ListingStep& step, PagePart part, ModelPart modelPart);
    void report(const ListingStep& step);
    void removeByName(unsigned long number);

    template <class Entry>
    static std::string numbers(const std::vector<Entry>& entries, const std::vector<Entry>& all) {
        std::string text;
        for (const Entry& entry : entries) {
            text += ' ' + std::to_string(std::find(all.begin(), all.end(), entry) - all.begin());
        }
        return text;
    }

    std::vector<std::shared_ptr<Item>> _entries;
    std::vector<ModelEntryPtr> _model;
    QueryResultInternal _realListing{FilterInternal()};
    ListingModel _modelListing;
    bool _realAnswer = false;
    bool _modelAnswer = false;
};

void ListingTwins::add(const ListingStep& step, PagePart part, ModelPart modelPart) {
    std::vector<std::shared_ptr<Item>> real;
    std::vector<ModelEntryPtr> model;
    for (unsigned long index = 0; index < step.other % 5; ++index) {
        // Of any two deliveries some entries are the same.
        const unsigned long number = (step.one * 5 + step.other * (index + 1)) % (Entries + 1);
        real.push_back(number == Entries ? nullptr : _entries[number]);
        model.push_back(number == Entries ? nullptr : _model[number]);
    }
    _realListing.addItems(step.one % 6, real, part);
    _modelListing.addItems(step.one % 6, model, modelPart);
}

// Mostly a total that local edits may explain.
void ListingTwins::report(const ListingStep& step) {
    const unsigned long near = std::max(_modelListing.total() + step.one % 3, 1ul) - 1;
    const unsigned long total = step.other % 3 == 0 ? step.one % 10 : near;
    _realListing.totalCount(total);
    _modelListing.totalCount(total);
}

void ListingTwins::removeByName(unsigned long number) {
    _realAnswer = _realListing.removeItemByName(_entries[number]);
    _modelAnswer = _modelListing.removeItemByName(_model[number]);
}

void ListingTwins::take(const ListingStep& step) {
    const unsigned long number = step.one % Entries;
    switch (step.kind) {
        case Kind::AddPage:
            _realListing.addPage(step.one % 6, step.other % 5);
            return _modelListing.addPage(step.one % 6, step.other % 5);
        case Kind::TotalCount:
            return report(step);
        case Kind::AddItems:
            return add(step, PagePart::Whole, ModelPart::Whole);
        case Kind::AddFolders:
            return add(step, PagePart::Folders, ModelPart::Folders);
        case Kind::AddDocuments:
            return add(step, PagePart::Documents, ModelPart::Documents);
        case Kind::AddInFront:
        case Kind::AddBehind:
            _realListing.addItem(_entries[number], step.kind == Kind::AddInFront);
            return _modelListing.addItem(_model[number], step.kind == Kind::AddInFront);
        case Kind::RemoveItem:
            _realListing.removeItem(step.one % 10);
            return _modelListing.removeItem(step.one % 10);
        case Kind::RemoveByName:
            return removeByName(number);
        case Kind::Rename:
            return rename(number, step.other % 4);
        case Kind::GiveId:
            return giveId(number, step.other % 10);
        default:
            return markLoaded(number);
    }
}

std::string ListingTwins::real() const {
    std::string text = _realAnswer ? "removed " : "not there ";
    text += std::to_string(_realListing.count()) + " of " +
            std::to_string(_realListing.totalCount()) + numbers(_realListing.items(), _entries);
    FilterInternal page;
    for (unsigned int offset = 0; offset < 10; ++offset) {
        for (const unsigned int count : {0U, 1U, 4U}) {
            page.setOffset(offset);
            page.setCount(count);
            text += _realListing.isPageLoaded(page) ? " L" : " -";
            text += _realListing.isPageCurrent(page) ? 'C' : '-';
        }
    }
    return text;
}

std::string ListingTwins::model() const {
    std::string text = _modelAnswer ? "removed " : "not there ";
    text += std::to_string(_modelListing.count()) + " of " + std::to_string(_modelListing.total()) +
            numbers(_modelListing.items(), _model);
    for (unsigned int offset = 0; offset < 10; ++offset) {
        for (const unsigned int count : {0U, 1U, 4U}) {
            text += _modelListing.isPageLoaded(offset, count) ? " L" : " -";
            text += _modelListing.isPageCurrent(offset, count) ? 'C' : '-';
        }
    }
    return text;
}

rc::Gen<unsigned long> number(unsigned long end) {
    return rc::gen::resize(rc::kNominalSize, rc::gen::inRange(0ul, end));
}

rc::Gen<ListingStep> steps() {
    const auto kind = rc::gen::element(
        Kind::AddPage, Kind::TotalCount, Kind::AddItems, Kind::AddItems, Kind::AddFolders,
        Kind::AddDocuments, Kind::AddInFront, Kind::AddInFront, Kind::AddBehind, Kind::RemoveItem,
        Kind::RemoveByName, Kind::RemoveByName, Kind::Rename, Kind::GiveId, Kind::MarkLoaded);
    return rc::gen::build<ListingStep>(rc::gen::set(&ListingStep::kind, kind),
                                       rc::gen::set(&ListingStep::one, number(60)),
                                       rc::gen::set(&ListingStep::other, number(60)));
}

constexpr int Cases = 4000;
constexpr int Steps = 40;

TEST(ListingModelTest, AResultSetFollowsTheRules) {
    EXPECT_TRUE(holds("follows the rules", Cases, Steps, [] {
        ListingTwins twins;
        for (const ListingStep& step : *rc::gen::container<std::vector<ListingStep>>(steps())) {
            twins.take(step);
            RC_ASSERT(twins.real() == twins.model());
        }
    }));
}

}  // namespace
}  // namespace Ormek::Testing
