#pragma once

#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <utility>

#include "tests/support/ScriptedService.h"

namespace Ormek::Testing {

/// A scripted service whose tree a client can change too. It writes down what it is asked, a line
/// each, as soon as it begins with it. Ids that it gives start at 1000.
class ScriptedActions : public ScriptedService {
  public:
    static constexpr unsigned long FirstGivenId = 1000;

    /// Fails the next `count` calls whose line begins with `verb`.
    void failNext(const std::string& verb, Nimra::Reason reason, int count = 1) {
        const std::lock_guard lock(_mutex);
        _failures.insert_or_assign(verb, Failure{reason, count});
    }
    /// The next creation answers with this entry, which is in the tree already.
    void createAs(unsigned long id) {
        const std::lock_guard lock(_mutex);
        _createdAs = id;
    }
    std::vector<std::string> log() const {
        const std::lock_guard lock(_mutex);
        return _log;
    }
    /// What was asked for without the loads.
    std::vector<std::string> actions() const {
        std::vector<std::string> lines = log();
        std::erase_if(lines, [](const std::string& line) { return line.starts_with("load"); });
        return lines;
    }
    void forgetLog() {
        const std::lock_guard lock(_mutex);
        _log.clear();
    }
    std::string contentOf(unsigned long id) const {
        const std::lock_guard lock(_mutex);
        const auto found = _contents.find(id);
        return found == _contents.end() ? "" : found->second;
    }
    /// What is in a folder, by name.
    std::vector<std::string> namesIn(unsigned long folderId) const {
        const std::lock_guard lock(_mutex);
        std::vector<std::string> folders;
        std::vector<std::string> documents;
        for (const auto& folder : _folders) {
            if (folder.parentId == folderId) {
                folders.push_back(folder.name);
            }
        }
        for (const auto& document : _documents) {
            if (document.parentId == folderId) {
                documents.push_back(document.name);
            }
        }
        std::sort(folders.begin(), folders.end());
        std::sort(documents.begin(), documents.end());
        folders.insert(folders.end(), documents.begin(), documents.end());
        return folders;
    }

    Nimra::Page load(const Nimra::ItemFilter& filter) override {
        {
            const std::lock_guard lock(_mutex);
            _log.push_back("load " + std::to_string(filter.dataId.at(0)) +
                           (filter.path.empty() ? "" : "/" + filter.path));
        }
        return ScriptedService::load(filter);
    }

    Nimra::Document create(const Nimra::Document& document, Nimra::ContentSource* content,
                           const Progress& progress) override {
        begin(line("create", document.name, "in", document.parentId, "by", document.ownerId) +
              textOf(document));
        const std::string read = content ? readAll(*content, progress) : "";
        const std::lock_guard lock(_mutex);
        if (const auto known = std::exchange(_createdAs, std::nullopt)) {
            return *documentOf(*known);
        }
        requireFolder(document.parentId);
        refuseIfThere(document.parentId, document.name);
        Nimra::Document made = document;
        made.id = _nextId++;
        made.length = read.size();
        made.created = made.updated = made.id;
        _contents[made.id] = read;
        _documents.push_back(made);
        return made;
    }

    Nimra::Folder makeFolder(const Nimra::Folder& folder) override {
        begin(line("makeFolder", folder.name, "in", folder.parentId, "by", folder.ownerId));
        const std::lock_guard lock(_mutex);
        if (const auto known = std::exchange(_createdAs, std::nullopt)) {
            return *folderOf(*known);
        }
        requireFolder(folder.parentId);
        refuseIfThere(folder.parentId, folder.name);
        Nimra::Folder made = folder;
        made.id = _nextId++;
        made.created = made.updated = made.id;
        _folders.push_back(made);
        return made;
    }

    Nimra::Document move(const Nimra::Document& document) override {
        begin(line("move", document.id, document.name, "from", document.oldParentId, "to",
                   document.parentId, "by", document.ownerId));
        return change(document.id, [&](auto& entry) {
            requireFolder(document.parentId);
            refuseIfThere(document.parentId, entry.name);
            entry.parentId = document.parentId;
        });
    }

    void remove(const Nimra::Document& document) override {
        begin(line("remove", document.id, "in", document.parentId, "by", document.ownerId));
        const auto lies = [&](const auto& entry) { return entry.parentId == document.id; };
        change(document.id, [&](const auto&) {
            if (std::any_of(_folders.begin(), _folders.end(), lies) ||
                std::any_of(_documents.begin(), _documents.end(), lies)) {
                throw Nimra::ServiceError(Nimra::Reason::Refused, "the folder is not empty");
            }
        });
        drop(document.id);
    }

    Nimra::Document rename(const Nimra::Document& document) override {
        begin(line("rename", document.id, "in", document.parentId, "to", document.name, "by",
                   document.ownerId));
        return change(document.id, [&](auto& entry) {
            refuseIfThere(entry.parentId, document.name);
            entry.name = document.name;
        });
    }

    Nimra::OpenedDocument openStreams(const Nimra::Document& document) override {
        begin(line("open", document.id, document.name, "in", document.parentId, "by",
                   document.ownerId));
        const Nimra::Document opened = change(document.id, [](const auto&) {});
        return {opened, std::make_shared<Content>(contentOf(document.id))};
    }

    Nimra::Document saveMetaData(const Nimra::Document& document) override {
        begin(line("save", document.id, document.name, "in", document.parentId, "by",
                   document.ownerId, "length", document.length, "type", document.mimeType) +
              textOf(document));
        return change(document.id, [&](auto& entry) { keep(entry, document._keyValues); });
    }

    Nimra::DocumentSession openSession(unsigned long folderId, unsigned long documentId,
                                       unsigned long userId) override {
        begin(line("session", documentId, "in", folderId, "by", userId));
        const std::lock_guard lock(_mutex);
        const std::string token = "token " + std::to_string(documentId);
        if (!_sessions.emplace(documentId, token).second) {
            throw Nimra::ServiceError(Nimra::Reason::Refused, "somebody has a session");
        }
        return {folderId, documentId, userId, token};
    }
    void releaseSession(const Nimra::DocumentSession& session) override {
        const std::lock_guard lock(_mutex);
        _log.push_back(line("release", session.documentId));
        const auto found = _sessions.find(session.documentId);
        if (found != _sessions.end() && found->second == session.token) {
            _sessions.erase(found);
        }
    }

  private:
    struct Failure {
        Nimra::Reason reason;
        int count;
    };

    class Content : public Nimra::DocumentStream {
      public:
        explicit Content(std::string text) : _text(std::move(text)) {}
        unsigned long size() const override { return _text.size(); }
        std::size_t read(unsigned long offset, char* buffer, std::size_t size) const override {
            return offset < _text.size() ? _text.copy(buffer, size, offset) : 0;
        }

      private:
        std::string _text;
    };

    template <class... Words>
    static std::string line(const std::string& verb, const Words&... words) {
        std::ostringstream all;
        all << verb;
        ((all << ' ' << words), ...);
        return all.str();
    }
    static std::string textOf(const Nimra::Document& document) {
        std::string all;
        for (const auto& [key, value] : document.keyValues()) {
            all += " " + key + "=" + value.first;
        }
        return all;
    }

    // Every call starts here: it is written down, waits, and fails if it is to.
    void begin(const std::string& line) {
        std::unique_lock lock(_mutex);
        _log.push_back(line);
        waitWhileHeld(lock);
        for (auto& [verb, failure] : _failures) {
            if (line.starts_with(verb) && failure.count > 0) {
                --failure.count;
                throw Nimra::ServiceError(failure.reason, "scripted failure of " + verb);
            }
        }
    }

    static std::string readAll(Nimra::ContentSource& content, const Progress& progress) {
        std::string all;
        char buffer[4];
        while (const std::size_t count = content.read(buffer, sizeof buffer)) {
            all.append(buffer, count);
            progress(all.size(), content.size());
        }
        return all;
    }

    template <class Record>
    static Record* find(std::vector<Record>& records, unsigned long id) {
        const auto found = std::find_if(records.begin(), records.end(),
                                        [id](const Record& record) { return record.id == id; });
        return found == records.end() ? nullptr : &*found;
    }
    Nimra::Document* documentOf(unsigned long id) { return find(_documents, id); }
    Nimra::Folder* folderOf(unsigned long id) { return find(_folders, id); }

    void requireFolder(unsigned long id) {
        if (id != RootId && !folderOf(id)) {
            throw Nimra::ServiceError(Nimra::Reason::NotFound, "no such folder");
        }
    }

    void refuseIfThere(unsigned long folderId, const std::string& name) const {
        const auto isIt = [&](const auto& entry) {
            return entry.parentId == folderId && entry.name == name;
        };
        if (std::any_of(_folders.begin(), _folders.end(), isIt) ||
            std::any_of(_documents.begin(), _documents.end(), isIt)) {
            throw Nimra::ServiceError(Nimra::Reason::Exists, "the name is taken");
        }
    }

    static void keep(Nimra::Document& document, const Nimra::KeyValues& keyValues) {
        for (const auto& [key, value] : keyValues) {
            document._keyValues[key] = value;
        }
    }
    static void keep(Nimra::Folder&, const Nimra::KeyValues&) {}

    // The record after the change, as a service reports it.
    template <class Change>
    Nimra::Document change(unsigned long id, Change change) {
        const std::lock_guard lock(_mutex);
        if (Nimra::Document* document = documentOf(id)) {
            change(*document);
            return *document;
        }
        Nimra::Folder* folder = folderOf(id);
        if (!folder) {
            throw Nimra::ServiceError(Nimra::Reason::NotFound, "no such entry");
        }
        change(*folder);
        Nimra::Document record(folder->id, folder->parentId, folder->ownerId, folder->name);
        record.type = 8;
        record.created = folder->created;
        record.updated = folder->updated;
        return record;
    }

    std::vector<std::string> _log;
    std::map<std::string, Failure> _failures;
    std::map<unsigned long, std::string> _contents;
    std::map<unsigned long, std::string> _sessions;
    unsigned long _nextId = FirstGivenId;
    std::optional<unsigned long> _createdAs;
};

}  // namespace Ormek::Testing
