#include "tests/client/session/Picture.h"

#include "model/Container.h"
#include "model/Object.h"
#include "tests/client/session/Broken.h"

namespace Ormek::Testing {

void Picture::take(const EntryAdded& event) {
    expect(!valuesOf(event.id), "added is " + toText(event.now) + ", id " +
                                    std::to_string(event.id) + ", which is there already");
    _entries[event.id] = event.now;
}

void Picture::take(const EntryRemoved& event) {
    expectSame(event.id, event.was, "removed");
    _entries[event.id] = std::nullopt;
    _doubted.erase(event.id);
}

void Picture::take(const EntryChanged& event) {
    expect(event.was != event.now, "changed is " + toText(event.was) + " into itself");
    expectSame(event.id, event.was, "changed");
    _entries[event.id] = event.now;
}

void Picture::take(const EntryIdChanged& event) {
    const auto old = _entries.find(event.oldId);
    if (old != _entries.end()) {
        // When a page came before the answer, the entry is there under its new id already.
        if (!valuesOf(event.newId)) {
            _entries[event.newId] = old->second;
        }
        _entries.erase(event.oldId);
    }
    for (auto& [id, values] : _entries) {
        if (values && values->folderId == event.oldId) {
            values->folderId = event.newId;
        }
    }
}

void Picture::expectSame(unsigned long id, const EntryValues& was, const char* event) const {
    const auto known = _entries.find(id);
    if (known == _entries.end() || mayBeBack(id)) {
        return;
    }
    const std::string text =
        std::string(event) + " is " + toText(was) + ", id " + std::to_string(id) + ", which ";
    expect(known->second.has_value(), text + "is gone");
    expect(*known->second == was, text + "was " + toText(*known->second));
}

void Picture::see(unsigned long id, const EntryValues& values) {
    const auto known = _entries.find(id);
    if (known == _entries.end() || mayBeBack(id)) {
        _entries[id] = values;
        return;
    }
    const std::string text = "shown is " + toText(values) + ", id " + std::to_string(id);
    expect(known->second.has_value(), text + ", which is gone as far as was told");
    expect(*known->second == values,
           text + ", which is " + toText(*known->second) + " as far as was told");
}

void Picture::doubtAbsence() {
    for (const auto& [id, values] : _entries) {
        if (!values) {
            _doubted.insert(id);
        }
    }
}

bool Picture::isGone(unsigned long id) const {
    const auto known = _entries.find(id);
    return known != _entries.end() && !known->second;
}

bool Picture::mayBeBack(unsigned long id) const { return isGone(id) && _doubted.count(id) != 0; }

std::map<unsigned long, EntryValues> Picture::present() const {
    std::map<unsigned long, EntryValues> all;
    for (const auto& [id, values] : _entries) {
        if (values) {
            all.emplace(id, *values);
        }
    }
    return all;
}

std::optional<EntryValues> Picture::valuesOf(unsigned long id) const {
    const auto known = _entries.find(id);
    return known == _entries.end() ? std::nullopt : known->second;
}

EntryValues valuesOf(const Item& item) {
    const auto* object = dynamic_cast<const Object*>(&item);
    EntryValues values;
    values.folderId = item.parentId();
    values.name = item.name();
    values.isFolder = object == nullptr;
    values.updated = item.updated();
    if (object) {
        values.length = object->length();
        values.mimeType = object->mimeType();
        values.keyValues = object->keyValues();
    }
    return values;
}

std::string toText(const EntryValues& values) {
    std::string text = std::string(values.isFolder ? "folder" : "document") + " \"" + values.name +
                       "\" in " + std::to_string(values.folderId) + " (" +
                       std::to_string(values.length) + " bytes, updated " +
                       std::to_string(values.updated) + ", \"" + values.mimeType + "\"";
    for (const auto& [key, value] : values.keyValues) {
        text += ", " + key + "=" + value.first + (value.second ? "!" : "");
    }
    return text + ")";
}

}  // namespace Ormek::Testing
