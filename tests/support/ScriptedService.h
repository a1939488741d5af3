#pragma once

#include <algorithm>
#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "backend/StorageService.h"

namespace Ormek::Testing {

/// A service layer in memory whose tree a test edits, whose answers it can hold back, and which it
/// can make fail. Safe to edit from the test's thread while the worker loads.
class ScriptedService : public Nimra::StorageService {
  public:
    static constexpr unsigned long RootId = 1;

    Nimra::Folder root() override {
        const std::lock_guard lock(_mutex);
        throwIfFailing();
        return {RootId, 0, 1, ""};
    }

    void addFolder(unsigned long id, unsigned long parentId, const std::string& name) {
        const std::lock_guard lock(_mutex);
        _folders.emplace_back(id, parentId, 1, name);
    }
    void addDocument(unsigned long id, unsigned long parentId, const std::string& name) {
        const std::lock_guard lock(_mutex);
        _documents.emplace_back(id, parentId, 1, name);
    }
    void addTag(unsigned long id, unsigned long parentId, const std::string& key,
                const std::string& value) {
        const std::lock_guard lock(_mutex);
        Nimra::Tag tag;
        tag.id = id;
        tag.parentId = parentId;
        tag.tagKey = std::to_string(id);
        tag.name = "tag " + std::to_string(id);
        tag.setKeyValue(key, {value, false});
        _tags.push_back(tag);
    }
    void drop(unsigned long id) {
        const std::lock_guard lock(_mutex);
        const auto hasId = [id](const auto& record) { return record.id == id; };
        std::erase_if(_folders, hasId);
        std::erase_if(_documents, hasId);
        std::erase_if(_tags, hasId);
    }
    template <class Change>
    void editDocument(unsigned long id, Change change) {
        const std::lock_guard lock(_mutex);
        change(*std::find_if(_documents.begin(), _documents.end(),
                             [id](const auto& record) { return record.id == id; }));
    }
    template <class Change>
    void editFolder(unsigned long id, Change change) {
        const std::lock_guard lock(_mutex);
        change(*std::find_if(_folders.begin(), _folders.end(),
                             [id](const auto& record) { return record.id == id; }));
    }
    template <class Change>
    void editTag(unsigned long id, Change change) {
        const std::lock_guard lock(_mutex);
        change(*std::find_if(_tags.begin(), _tags.end(),
                             [id](const auto& record) { return record.id == id; }));
    }

    /// Every load fails with this until it is told otherwise.
    void failWith(std::optional<Nimra::ServiceError> error) {
        const std::lock_guard lock(_mutex);
        _error = std::move(error);
    }
    /// Loads wait until release() is called.
    void hold() {
        const std::lock_guard lock(_mutex);
        _held = true;
    }
    void release() {
        const std::lock_guard lock(_mutex);
        _held = false;
        _changed.notify_all();
    }
    /// Lets one go that waits, or else the next one.
    void releaseOne() {
        const std::lock_guard lock(_mutex);
        ++_passes;
        _changed.notify_all();
    }
    /// What was asked for so far.
    std::vector<Nimra::ItemFilter> asked() const {
        const std::lock_guard lock(_mutex);
        return _asked;
    }

    Nimra::Page load(const Nimra::ItemFilter& filter) override {
        std::unique_lock lock(_mutex);
        _asked.push_back(filter);
        waitWhileHeld(lock);
        throwIfFailing();
        return pageOf(filter);
    }

  protected:
    void waitWhileHeld(std::unique_lock<std::mutex>& lock) {
        _changed.wait(lock, [this] { return !_held || _passes != 0; });
        _passes -= _held ? 1 : 0;
    }

    mutable std::mutex _mutex;
    std::vector<Nimra::Folder> _folders;
    std::vector<Nimra::Document> _documents;

  private:
    void throwIfFailing() const {
        if (_error) {
            throw *_error;
        }
    }

    template <class Record>
    static std::vector<Record> matching(std::vector<Record> records,
                                        const Nimra::ItemFilter& filter) {
        std::erase_if(records, [&](const Record& record) {
            return record.parentId != filter.dataId.at(0) ||
                   record.name.find(filter.query) == std::string::npos ||
                   (!filter.path.empty() && record.name != filter.path);
        });
        std::sort(records.begin(), records.end(), [&](const Record& a, const Record& b) {
            return filter.ascending ? a.name < b.name : b.name < a.name;
        });
        return records;
    }

    Nimra::Page pageOf(const Nimra::ItemFilter& filter) const {
        Nimra::Page page;
        if (filter.dataType == 16) {
            cut(matching(_tags, filter), filter, page.totalCount, page.tags);
            return page;
        }
        if (filter.dataType != 4) {
            cut(matching(_folders, filter), filter, page.totalCount, page.folders);
        }
        if (filter.dataType != 8) {
            cut(matching(_documents, filter), filter, page.totalCount, page.documents);
        }
        return page;
    }

    // Appends the part of `records` that lies in the page, with `total` records before them.
    template <class Record>
    static void cut(const std::vector<Record>& records, const Nimra::ItemFilter& filter,
                    unsigned long& total, std::vector<Record>& page) {
        for (const Record& record : records) {
            const unsigned long position = total++;
            if (position >= filter.offset && position - filter.offset < filter.count) {
                page.push_back(record);
            }
        }
    }

    std::condition_variable _changed;
    std::vector<Nimra::Tag> _tags;
    std::vector<Nimra::ItemFilter> _asked;
    std::optional<Nimra::ServiceError> _error;
    bool _held = false;
    unsigned long _passes = 0;
};

}  // namespace Ormek::Testing
