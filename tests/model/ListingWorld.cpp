#include "tests/model/ListingWorld.h"

#include <algorithm>

#include "tests/support/Fakes.h"

namespace Ormek::Testing {

namespace {

constexpr unsigned long Folder = 7;
constexpr unsigned long Offsets = 6;

}  // namespace

std::ostream& operator<<(std::ostream& out, const ListingStep& step) {
    return out << '{' << step.kind << ", " << step.one << ", " << step.other << '}';
}

ListingWorld::ListingWorld() {
    for (unsigned long number = 0; number < Entries; ++number) {
        if (number % 4 == 0) {
            _entries.push_back(makeContainer(100 + number, Folder, nameOf(number)));
        } else {
            _entries.push_back(makeObject(100 + number, Folder, nameOf(number)));
        }
    }
}

std::string ListingWorld::nameOf(unsigned long number) {
    return "a name that is long enough, number " + std::to_string(number % Names);
}

FilterInternal ListingWorld::filter(const ListingStep& step) const {
    return folderFilter(Folder, static_cast<std::uint32_t>(step.one % Offsets),
                        static_cast<std::uint32_t>(step.other % Offsets));
}

ItemInternal& ListingWorld::internal(unsigned long number) {
    return dynamic_cast<ItemInternal&>(*_entries[number % Entries]);
}

// Of up to five entries one after the other, with an empty pointer and a repetition now and then.
ListingWorld::Delivery ListingWorld::delivery(const ListingStep& step) const {
    Delivery delivered;
    for (unsigned long index = 0; index < step.other % 6; ++index) {
        delivered.push_back(_entries[(step.one + step.other + index) % Entries]);
    }
    if (step.other % 5 == 4) {
        delivered.push_back(nullptr);
        delivered.push_back(delivered.front());
    }
    return delivered;
}

std::string ListingWorld::numberOf(const std::shared_ptr<Item>& entry) const {
    const auto found = std::find(_entries.begin(), _entries.end(), entry);
    return found == _entries.end() ? "none" : std::to_string(found - _entries.begin());
}

std::string ListingWorld::numbersOf(const Delivery& entries) const {
    std::string numbers;
    for (const auto& entry : entries) {
        numbers += ' ' + numberOf(entry);
    }
    return numbers;
}

std::string ListingWorld::take(const ListingStep& step) {
    if (step.kind >= ListingStep::Items && step.kind <= ListingStep::CopyWithFilter) {
        return ask(step);
    }
    if (step.kind == ListingStep::RemoveByName) {
        return _result.removeItemByName(_entries[step.one % Entries]) ? "removed" : "not there";
    }
    change(step);
    return {};
}

void ListingWorld::take(const std::vector<ListingStep>& steps) {
    for (const ListingStep& step : steps) {
        take(step);
    }
}

void ListingWorld::change(const ListingStep& step) {
    const unsigned long offset = step.one % Offsets;
    switch (step.kind) {
        case ListingStep::AddPage:
            return _result.addPage(offset, step.other % Offsets);
        case ListingStep::TotalCount:
            return _result.totalCount(step.one);
        case ListingStep::AddItems:
            return _result.addItems(offset, delivery(step));
        case ListingStep::AddFolders:
            return _result.addItems(offset, delivery(step), PagePart::Folders);
        case ListingStep::AddDocuments:
            return _result.addItems(offset, delivery(step), PagePart::Documents);
        case ListingStep::AddInFront:
            return _result.addItem(_entries[step.one % Entries], true);
        case ListingStep::AddBehind:
            return _result.addItem(_entries[step.one % Entries], false);
        case ListingStep::RemoveItem:
            return _result.removeItem(_entries[step.one % Entries]->id());
        case ListingStep::Invalidate:
            return _result.invalidate();
        case ListingStep::Assign: {
            // Of the base alone, as somebody does who keeps result sets by value.
            QueryResult& target = _result;
            target = QueryResult(_result);
            return;
        }
        case ListingStep::Rename:
            return internal(step.one).name(nameOf(step.other));
        case ListingStep::GiveId:
            return internal(step.one).id(100 + step.other);
        case ListingStep::Restore:
            return _result.restoreItem(_entries[step.one % Entries], step.other % Offsets);
        default:
            return internal(step.one).idLoaded(true);
    }
}

std::string ListingWorld::ask(const ListingStep& step) {
    switch (step.kind) {
        case ListingStep::Items:
            return numbersOf(_result.items());
        case ListingStep::Counts:
            return std::to_string(_result.count()) + ' ' + std::to_string(_result.totalCount());
        case ListingStep::Page:
            return numbersOf(_result.page(step.one % Offsets, step.other % Offsets));
        case ListingStep::ItemByName:
            return numberOf(_result.itemByName(nameOf(step.one)));
        case ListingStep::IsPageLoaded:
            return _result.isPageLoaded(filter(step)) ? "loaded" : "not loaded";
        case ListingStep::IsPageCurrent:
            return _result.isPageCurrent(filter(step)) ? "current" : "not current";
        case ListingStep::Copy:
            return numbersOf(QueryResult(_result).items());
        default:
            return numbersOf(QueryResultInternal(_result).items());
    }
}

std::string ListingWorld::state() const {
    std::string text = std::to_string(_result.count()) + " of " +
                       std::to_string(_result.totalCount()) + ':' + numbersOf(_result.items());
    FilterInternal page;
    for (unsigned long offset = 0; offset < Offsets + 3; ++offset) {
        for (const std::uint32_t count : {1U, 4U}) {
            page.setOffset(static_cast<std::uint32_t>(offset));
            page.setCount(count);
            text += '\n' + std::to_string(offset) + ' ' + std::to_string(count) + ':' +
                    numbersOf(_result.page(offset, count)) +
                    (_result.isPageLoaded(page) ? " loaded" : "") +
                    (_result.isPageCurrent(page) ? " current" : "");
        }
    }
    for (unsigned long number = 0; number < Names; ++number) {
        text += '\n' + nameOf(number) + ": " + numberOf(_result.itemByName(nameOf(number)));
    }
    return text + '\n';
}

}  // namespace Ormek::Testing
