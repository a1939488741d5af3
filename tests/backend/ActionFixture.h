#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <string>
#include <utility>

#include "service/ContentSource.h"
#include "tests/backend/FolderFixture.h"
#include "tests/support/TextSource.h"

namespace Nimra {

using Ormek::Testing::TextSource;

/// Content that is made while it is read: any size, no memory.
class PatternSource : public ContentSource {
  public:
    explicit PatternSource(unsigned long length, unsigned long promised)
        : _length(length), _promised(promised) {}
    explicit PatternSource(unsigned long length) : PatternSource(length, length) {}

    static char at(unsigned long position) { return static_cast<char>(position % 251); }

    unsigned long size() const override { return _promised; }
    std::size_t read(char* buffer, std::size_t size) override {
        if (before) {
            before(_read);
        }
        largestPiece = std::max(largestPiece, size);
        const std::size_t count = std::min(size, _length - _read);
        for (std::size_t i = 0; i < count; ++i) {
            buffer[i] = at(_read + i);
        }
        _read += count;
        return count;
    }

    std::function<void(unsigned long position)> before;  ///< Called ahead of each piece.
    std::size_t largestPiece = 0;

  private:
    unsigned long _length;
    unsigned long _promised;
    unsigned long _read = 0;
};

/// Whether the rest of a file is the pattern from its beginning.
inline bool isPattern(const std::string& path, unsigned long length) {
    std::ifstream file(path, std::ios::binary);
    std::string piece(1024UL * 1024, '\0');
    unsigned long position = 0;
    while (file) {
        file.read(piece.data(), static_cast<std::streamsize>(piece.size()));
        const auto count = static_cast<std::size_t>(file.gcount());
        for (std::size_t i = 0; i < count; ++i) {
            if (piece[i] != PatternSource::at(position + i)) {
                return false;
            }
        }
        position += count;
    }
    return position == length;
}

/// What a user does to the entries of a temporary folder, in a line each.
class ActionFixture : public FolderFixture {
  protected:
    static Document record(unsigned long id, unsigned long parentId, const std::string& name) {
        return {id, parentId, 1, name};
    }
    Document create(const std::string& name, const std::string& content = "",
                    unsigned long parentId = 1) {
        TextSource source(content);
        return service.create(record(9'000'000, parentId, name), &source, {});
    }
    Document rename(unsigned long id, const std::string& name) {
        return service.rename(record(id, 1, name));
    }
    Document move(unsigned long id, unsigned long parentId) {
        return service.move(record(id, parentId, ""));
    }
    void remove(unsigned long id) { service.remove(record(id, 1, "")); }
    Folder makeFolder(const std::string& name, unsigned long parentId = 1) {
        Folder folderRecord;
        folderRecord.name = name;
        folderRecord.parentId = parentId;
        return service.makeFolder(folderRecord);
    }
    Document save(unsigned long id, const std::map<std::string, std::string>& values) {
        Document document = record(id, 1, "");
        for (const auto& [key, value] : values) {
            document.setKeyValue(key, {value, true});
        }
        return service.saveMetaData(document);
    }

    std::string content(const std::string& name) const {
        std::ifstream file(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    bool exists(const std::string& name) const {
        struct stat status {};
        return lstat(path(name).c_str(), &status) == 0;
    }
    /// Everything that a folder on the disk has, hidden or not.
    std::set<std::string> onDisk(const std::string& name = ".") const {
        std::set<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(path(name))) {
            found.insert(entry.path().filename().string());
        }
        return found;
    }

    template <class Action>
    static void expectRefusal(Action action, Reason reason, const std::string& part) {
        try {
            action();
            ADD_FAILURE() << "expected a failure about " << part;
        } catch (const ServiceError& error) {
            EXPECT_EQ(error.reason(), reason) << error.what();
            EXPECT_NE(std::string(error.what()).find(part), std::string::npos) << error.what();
        }
    }
};

}  // namespace Nimra
