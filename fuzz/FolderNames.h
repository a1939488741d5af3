#pragma once

#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "backend/FolderService.h"
#include "fuzz/Input.h"
#include "tests/support/TemporaryFolder.h"

namespace Ormek::Fuzzing {

/// Names of any bytes, given to a service on a folder in every way that takes one. What the service
/// says has happened has happened on disk; what lies beside its root stays as it was.
class FolderNames {
  public:
    explicit FolderNames(Input input) : _input(input) {
        std::filesystem::create_directory(_outside / "root");
        std::filesystem::create_directory(_outside / "beside");
        _outside.writeFile("beside/secret", "secret");
        _outside.writeFile("root/file", "file");
        std::filesystem::create_directory(_outside / "root/folder");
        std::filesystem::create_symlink("../beside", _outside / "root/link");
        std::filesystem::create_symlink("..", _outside / "root/folder/up");
        _service = std::make_unique<Nimra::FolderService>((_outside / "root").string());
        _folders = {_service->root().id};
    }

    void run() {
        for (int operations = 0; operations < MostOperations && !_input.isEmpty(); ++operations) {
            operate();
        }
        lookOutside();
    }

  private:
    static constexpr int MostOperations = 24;
    static constexpr std::size_t LongestName = 255;

    /// Content of a few bytes.
    class Bytes : public Nimra::ContentSource {
      public:
        explicit Bytes(std::string bytes) : _bytes(std::move(bytes)) {}
        unsigned long size() const override { return 0; }
        std::size_t read(char* buffer, std::size_t size) override {
            const std::size_t count = _bytes.copy(buffer, size);
            _bytes.erase(0, count);
            return count;
        }

      private:
        std::string _bytes;
    };

    std::string name() {
        switch (_input.below(6)) {
            case 0: {
                static const std::vector<std::string> known{"file", "folder", "link", "up", "..",
                                                            ".",    "",       "a/b",  "/"};
                return known[_input.below(static_cast<unsigned>(known.size()))];
            }
            case 1: {
                std::string text = _input.text(40);
                text.resize(text.size() + _input.byte() + (_input.flag() ? 20U : 0U), 'n');
                return text;
            }
            case 2:
                return "../" + _input.text(20);
            case 3:
                return ".ormek-" + std::string(32, static_cast<char>('0' + _input.below(20))) +
                       ".part";
            default:
                return _input.text(60);
        }
    }
    unsigned long folderId() { return _folders[_input.byte() % _folders.size()]; }
    unsigned long anyId() {
        const unsigned chosen = _input.byte();
        if (chosen % 8 == 0 || _known.empty()) {
            return chosen / 8;
        }
        return std::next(_known.begin(), static_cast<std::ptrdiff_t>(chosen % _known.size()))
            ->first;
    }

    static bool canExist(const std::string& name) {
        return !name.empty() && name != "." && name != ".." && name.size() <= LongestName &&
               name.find('/') == std::string::npos && name.find('\0') == std::string::npos;
    }

    // Nothing when the service refuses, which it may; any other exception is a finding.
    template <class Action>
    static auto attempt(Action action) -> std::optional<decltype(action())> {
        try {
            return action();
        } catch (const Nimra::ServiceError& error) {
            check(*error.what() != '\0', "a refusal without a word");
            return std::nullopt;
        }
    }

    void operate() {
        switch (_input.below(8)) {
            case 0:
            case 1:
                return create();
            case 2:
                return makeFolder();
            case 3:
                return rename();
            case 4:
                return move();
            case 5:
                return remove();
            case 6:
                return find();
            default:
                return list();
        }
    }

    void create() {
        Nimra::Document record(0, folderId(), 1, name());
        if (_input.below(4) == 0) {
            record.setKeyValue(_input.text(12), {_input.text(12), false});
        }
        Bytes content(_input.text(8));
        const auto made = attempt(
            [&] { return _service->create(record, _input.flag() ? &content : nullptr, {}); });
        if (made) {
            lookAtNew(record.name, *made);
        }
    }

    void makeFolder() {
        const Nimra::Folder record(0, folderId(), 1, name());
        const auto made = attempt([&] { return _service->makeFolder(record); });
        if (made) {
            lookAtNew(record.name, *made);
            _folders.push_back(made->id);
        }
    }

    template <class Record>
    void lookAtNew(const std::string& wanted, const Record& made) {
        check(canExist(wanted), "an entry was made under a name that none can have");
        check(made.name == wanted, "an entry has another name than was asked for");
        const auto found = attempt([&] { return lookUp(made.parentId, wanted); });
        check(found && *found == made.id, "what was made is not found under its name");
        _known[made.id] = wanted;
    }

    void rename() {
        const Nimra::Document record(anyId(), 0, 1, name());
        const auto renamed = attempt([&] { return _service->rename(record); });
        if (renamed) {
            check(canExist(record.name), "an entry was given a name that none can have");
            check(renamed->name == record.name && renamed->id == record.id, "another entry");
            _known[record.id] = record.name;
        }
    }

    void move() {
        const Nimra::Document record(anyId(), folderId(), 1, "");
        const auto moved = attempt([&] { return _service->move(record); });
        check(!moved || (moved->id == record.id && moved->parentId == record.parentId),
              "an entry was moved elsewhere");
    }

    void remove() {
        const Nimra::Document record(anyId(), 0, 1, name());
        if (attempt([&] {
                _service->remove(record);
                return true;
            })) {
            _known.erase(record.id);
        }
    }

    // The id of the entry of that name; 0 for none.
    unsigned long lookUp(unsigned long folder, const std::string& wanted) {
        Nimra::ItemFilter filter;
        filter.dataId = {folder};
        filter.path = wanted;
        filter.count = 2;
        const Nimra::Page page = _service->load(filter);
        check(page.folders.size() + page.documents.size() <= 1, "two entries of one name");
        if (!page.folders.empty()) {
            check(page.folders.front().name == wanted, "a folder of another name");
            return page.folders.front().id;
        }
        if (!page.documents.empty()) {
            check(page.documents.front().name == wanted, "a document of another name");
            return page.documents.front().id;
        }
        return 0;
    }

    void find() {
        const std::string wanted = name();
        if (wanted.empty()) {
            return;  // No look-up, but a listing.
        }
        const unsigned long folder = folderId();
        const auto id = attempt([&] { return lookUp(folder, wanted); });
        if (id && *id != 0) {
            check(canExist(wanted), "an entry was found under a name that none can have");
            _known[*id] = wanted;
        }
    }

    void list() {
        Nimra::ItemFilter filter;
        filter.dataId = {folderId()};
        filter.query = _input.text(4);
        filter.offset = _input.below(4);
        filter.count = 100;
        filter.dataType = static_cast<std::int32_t>(_input.below(4)) * 4;
        filter.containerFirst = _input.flag();
        filter.ascending = _input.flag();
        const auto page = attempt([&] { return _service->load(filter); });
        if (!page) {
            return;
        }
        for (const auto& record : page->folders) {
            lookAtListed(record, filter);
            if (std::find(_folders.begin(), _folders.end(), record.id) == _folders.end()) {
                _folders.push_back(record.id);
            }
        }
        for (const auto& record : page->documents) {
            lookAtListed(record, filter);
        }
    }

    template <class Record>
    void lookAtListed(const Record& record, const Nimra::ItemFilter& filter) {
        check(canExist(record.name), "a name that none can have is listed");
        check(record.name.find(filter.query) != std::string::npos, "what was not searched for");
        check(record.id != 0 && record.parentId == filter.dataId.front(), "another folder's entry");
        _known[record.id] = record.name;
    }

    static std::vector<std::string> namesIn(const std::filesystem::path& folder) {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    void lookOutside() const {
        check(namesIn(_outside.path()) == std::vector<std::string>({"beside", "root"}),
              "something was made or removed beside the root");
        check(namesIn(_outside / "beside") == std::vector<std::string>({"secret"}),
              "something was made or removed behind a link");
        check(std::filesystem::file_size(_outside / "beside/secret") == 6,
              "something was written behind a link");
    }

    Input _input;
    Testing::TemporaryFolder _outside;
    std::unique_ptr<Nimra::FolderService> _service;
    std::vector<unsigned long> _folders;
    std::map<unsigned long, std::string> _known;
};

inline void folderNames(Input input) { FolderNames(input).run(); }

}  // namespace Ormek::Fuzzing
