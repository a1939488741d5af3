#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "model/ObjectInternal.h"
#include "service/Document.h"

namespace Ormek::Bench {

/// The least that could do the work: a map by id, and for each folder a vector in the order of
/// names. No paging, no edits between pages, no lock, no trace.
class FloorStore {
  public:
    using Entry = std::shared_ptr<ObjectInternal>;
    using Folder = std::vector<Entry>;

    /// Stores one page, refreshing what is known, and places it. The record is taken by value, as
    /// the cache takes it.
    void merge(unsigned long folderId, std::size_t offset, std::vector<Nimra::Document> records) {
        Folder& folder = _folders[folderId];
        std::vector<Entry> page;
        page.reserve(records.size());
        for (const Nimra::Document& record : records) {
            auto fresh = std::make_shared<ObjectInternal>(record, nullptr);
            const auto [stored, isNew] = _items.try_emplace(record.id, fresh);
            if (!isNew) {
                refresh(*stored->second, record);
                replace(folder, stored->second);
            }
            stored->second->idLoaded(true);
            page.push_back(stored->second);
        }
        if (folder.size() < offset + page.size()) {
            folder.resize(offset + page.size());
        }
        std::copy(page.begin(), page.end(), folder.begin() + static_cast<std::ptrdiff_t>(offset));
    }

    void clear(unsigned long folderId) {
        for (const Entry& entry : _folders[folderId]) {
            _items.erase(entry->id());
        }
        _folders.erase(folderId);
    }

  private:
    static void refresh(ObjectInternal& entry, const Nimra::Document& record) {
        entry._state = record.state;
        entry.parentId(record.parentId);
        entry.name(record.name);
        entry.ownerId(record.ownerId);
        entry.created(record.created);
        entry.updated(record.updated);
        entry.deleted(record.deleted);
        entry.length(record.length);
        entry.type(4);
        entry.setKeyValues(record.keyValues());
        entry.setMimeType(record.mimeType);
        entry.dataLoaded(true);
        entry._shares = record.shares;
        entry.setACLMap(record.ownerId, record.aclMode);
        entry.description(record.description);
    }

    // Puts the entry where one of its name stands.
    static void replace(Folder& folder, const Entry& entry) {
        const auto place = std::lower_bound(
            folder.begin(), folder.end(), entry->nameView(),
            [](const Entry& a, const std::string& name) { return a && a->nameView() < name; });
        if (place != folder.end()) {
            *place = entry;
        }
    }

    std::unordered_map<unsigned long, Entry> _items;
    std::unordered_map<unsigned long, Folder> _folders;
};

}  // namespace Ormek::Bench
