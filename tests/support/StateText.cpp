#include "tests/support/StateText.h"

#include <sstream>

#include "model/Container.h"
#include "model/ItemInternal.h"
#include "model/ObjectInternal.h"
#include "service/DataLoaderOperation.h"
#include "service/FileOperation.h"

namespace Ormek::Testing {

namespace {

void write(std::ostream& out, const KeyValueMap& keyValues) {
    for (const auto& [key, value] : keyValues) {
        out << ' ' << key << "=" << value.first << (value.second ? "!" : "");
    }
}

void write(std::ostream& out, const std::map<unsigned long, std::vector<ShareData>>& shares) {
    for (const auto& [user, rows] : shares) {
        out << " shared with " << user << " x" << rows.size();
    }
}

void write(std::ostream& out, const Object& object) {
    out << " length " << object.length() << " mime " << object.mimeType();
    write(out, object.keyValues());
    if (const auto* internal = dynamic_cast<const ObjectInternal*>(&object)) {
        out << " state " << internal->_state;
    }
}

void write(std::ostream& out, const Item& item) {
    out << item.id() << " in " << item.parentId() << " from " << item.oldParentId() << " \""
        << item.name() << "\" \"" << item.description() << "\" of " << item.ownerId() << " on "
        << item.driveId() << " type " << item.type() << " at " << item.created() << ' '
        << item.updated() << ' ' << item.deleted() << (item.idLoaded() ? " id" : "")
        << (item.dataLoaded() ? " data" : "") << " texts " << item.firstText() << ','
        << item.secondText() << ',' << item.thirdText();
    write(out, item.shares());
    for (const auto& [user, access] : item.ACLMap()) {
        out << " access " << user << ':' << access;
    }
    if (const auto* internal = dynamic_cast<const ItemInternal*>(&item)) {
        out << (internal->objectUpdater() ? " updated" : "");
    }
    if (const auto* object = dynamic_cast<const Object*>(&item)) {
        write(out << " object", *object);
    } else if (dynamic_cast<const Container*>(&item)) {
        out << " container";
    }
}

void write(std::ostream& out, const Nimra::Document& document) {
    out << document.id << " in " << document.parentId << " from " << document.oldParentId << " \""
        << document.name << "\" of " << document.ownerId << " length " << document.length
        << " mime " << document.mimeType;
    write(out, document.keyValues());
}

void write(std::ostream& out, const Nimra::ItemFilter& filter) {
    out << "type " << filter.dataType << " of";
    for (const unsigned long id : filter.dataId) {
        out << ' ' << id;
    }
    out << " at " << filter.offset << " x" << filter.count << " user " << filter.userId << " url "
        << filter.url << " query " << filter.query << " path " << filter.path << " group "
        << filter.group;
    for (const auto& [label, value] : filter.tagLabels) {
        out << ' ' << label << '=' << value;
    }
}

void write(std::ostream& out, const Nimra::Operation& operation) {
    if (const auto* file = dynamic_cast<const Nimra::FileOperation*>(&operation)) {
        write(out << "kind " << file->kind() << ' ', file->document());
        out << (file->service() ? " served" : "") << (file->protocol() ? " answered" : "");
    } else if (const auto* load = dynamic_cast<const Nimra::DataLoaderOperation*>(&operation)) {
        write(out << "load ", load->filter());
        out << (load->service() ? " served" : "") << (load->protocol() ? " answered" : "");
    }
}

/// A few pages that say what of the listing is loaded and held.
void writePages(std::ostream& out, const QueryResultInternal& directory) {
    FilterInternal page;
    for (std::uint32_t offset = 0; offset < 6; ++offset) {
        for (const std::uint32_t count : {0U, 1U, 3U}) {
            page.setOffset(offset);
            page.setCount(count);
            out << (directory.isPageLoaded(page) ? 'L' : '-')
                << (directory.isPageCurrent(page) ? 'C' : '-')
                << directory.page(offset, count).size();
        }
    }
}

}  // namespace

void StateText::line(const std::string& text) { _text += text + '\n'; }

std::string StateText::nameOf(const std::shared_ptr<Item>& item) {
    if (!item) {
        return "none";
    }
    const auto known = _names.find(item.get());
    if (known != _names.end()) {
        return known->second;
    }
    const std::string name = '#' + std::to_string(_names.size());
    _names.emplace(item.get(), name);
    std::ostringstream out;
    write(out, *item);
    return name + " (" + out.str() + ')';
}

void StateText::entry(const std::string& label, const std::shared_ptr<Item>& item) {
    line(label + ": " + nameOf(item));
}

void StateText::directory(const std::string& label, const QueryResultInternal& directory) {
    line(label + ": " + std::to_string(directory.count()) + " of " +
         std::to_string(directory.totalCount()));
    for (const auto& item : directory.items()) {
        entry("  has", item);
    }
    std::ostringstream out;
    writePages(out, directory);
    line("  pages " + out.str());
}

void StateText::operation(const std::string& label, const Nimra::Operation& operation) {
    std::ostringstream out;
    write(out, operation);
    line(label + ": " + out.str());
}

}  // namespace Ormek::Testing
