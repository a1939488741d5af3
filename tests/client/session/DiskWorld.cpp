#include "tests/client/session/DiskWorld.h"

#include <fcntl.h>
#include <sys/xattr.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string_view>

#include "backend/FolderService.h"

namespace Ormek::Testing {

namespace fs = std::filesystem;

namespace {

std::string contentOf(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

Nimra::KeyValues attributesOf(const fs::path& path) {
    constexpr std::string_view Prefix = "user.";
    std::array<char, 4096> list{};
    const ssize_t size = ::listxattr(path.c_str(), list.data(), list.size());
    std::string_view names(list.data(), size < 0 ? 0 : static_cast<std::size_t>(size));
    Nimra::KeyValues values;
    while (!names.empty()) {
        const std::string name(names.substr(0, names.find('\0')));
        names.remove_prefix(name.size() + 1);
        std::array<char, 4096> value{};
        const ssize_t length = ::getxattr(path.c_str(), name.c_str(), value.data(), value.size());
        if (name.starts_with(Prefix) && length >= 0) {
            values[name.substr(Prefix.size())] = {
                std::string(value.data(), static_cast<std::size_t>(length)), false};
        }
    }
    return values;
}

Tree treeOf(const fs::path& folder) {
    Tree tree;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        const std::string name = entry.path().filename().string();
        if (entry.is_directory()) {
            tree.entries[name] = treeOf(entry.path());
            tree.entries[name].keyValues = attributesOf(entry.path());
        } else {
            tree.entries[name] = {false, contentOf(entry.path()), attributesOf(entry.path()), {}};
        }
    }
    return tree;
}

void touch(const fs::path& path) { fs::last_write_time(path, fs::file_time_type::clock::now()); }

}  // namespace

DiskWorld::DiskWorld(Contents& contents) : _contents(contents) {
    _folder.makeFolder("docs");
    write(_folder.path() / "a", _contents.next());
    write(_folder.path() / "docs" / "b", _contents.next());
}

std::unique_ptr<Nimra::StorageService> DiskWorld::service() {
    return std::make_unique<Nimra::FolderService>(_folder.path().string());
}

Tree DiskWorld::tree() const { return treeOf(_folder.path()); }

std::string DiskWorld::change(std::uint32_t what, std::uint32_t where, std::uint32_t how) {
    silent = true;
    const std::vector<Path> all = everything();
    const std::vector<Path> parents = folders();
    const std::string& name = usableNames()[how % usableNames().size()];
    const Path fresh = parents[where % parents.size()] / name;
    if (what % 6 == 0 || all.empty()) {
        write(fresh, _contents.next());
        return "writes " + fresh.string();
    }
    if (what % 6 == 1) {
        std::error_code ignored;
        fs::create_directory(fresh, ignored);
        return "makes the folder " + fresh.string();
    }
    const Path path = all[where % all.size()];
    if (what % 6 == 2) {
        relocate(path, path.parent_path() / name);
        return "renames " + path.string() + " to " + name;
    }
    if (what % 6 == 3) {
        const Path target = parents[how % parents.size()] / path.filename();
        relocate(path, target);
        return "moves " + path.string() + " to " + target.string();
    }
    if (what % 6 == 4 || fs::is_directory(path)) {
        forgetContents(path);
        fs::remove_all(path);
        return "removes " + path.string();
    }
    forgetContents(path);
    fs::remove(path);
    write(path, _contents.next());
    touch(path);
    return "writes anew " + path.string();
}

std::vector<DiskWorld::Path> DiskWorld::everything() const {
    std::vector<Path> all;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(_folder.path())) {
        all.push_back(entry.path());
    }
    std::sort(all.begin(), all.end());
    return all;
}

std::vector<DiskWorld::Path> DiskWorld::folders() const {
    std::vector<Path> all = everything();
    std::erase_if(all, [](const Path& path) { return !fs::is_directory(path); });
    all.insert(all.begin(), _folder.path());
    return all;
}

bool DiskWorld::write(const Path& path, unsigned long number) {
    if (fs::exists(path)) {
        return false;
    }
    std::ofstream file(path, std::ios::binary);
    file << Contents::of(number);
    file.close();
    if (file) {
        _contents.made(number);
    }
    return static_cast<bool>(file);
}

bool DiskWorld::relocate(const Path& from, const Path& to) const {
    return ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0;
}

void DiskWorld::forgetContents(const Path& path) {
    if (!fs::is_directory(path)) {
        if (const auto number = Contents::numberOf(contentOf(path))) {
            _contents.gone(*number);
        }
        return;
    }
    for (const fs::directory_entry& entry : fs::directory_iterator(path)) {
        forgetContents(entry.path());
    }
}

}  // namespace Ormek::Testing
