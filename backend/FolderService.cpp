#include "backend/FolderService.h"

#include <fcntl.h>
#include <gio/gio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <filesystem>
#include <memory>
#include <system_error>
#include <utility>

#include "backend/EntryName.h"
#include "backend/FileWriter.h"
#include "backend/SystemError.h"
#include "backend/Uninterrupted.h"

namespace Nimra {

namespace {

enum DataType : std::int32_t { All = 0, Documents = 4, Folders = 8, Tags = 16 };

/// Readings of a folder, for one answer, before it is given up as changing too fast.
constexpr int Attempts = 8;
/// Folders whose names are kept at the same time.
constexpr std::size_t SnapshotsKept = 4;

FileDescriptor openRoot(const std::string& folder) {
    if (folder.find('\0') != std::string::npos) {
        throw ServiceError(Reason::Refused, quotedName(folder) + " is not the path of a folder");
    }
    FileDescriptor root(
        uninterrupted([&] { return ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    if (!root) {
        throw systemError(errno, "cannot open the folder " + quotedName(folder));
    }
    return root;
}

/// Fails at once where every later call would.
void checkUsable(const FileDescriptor& root, const std::string& folder) {
    const std::string link = "/proc/self/fd/" + std::to_string(root.get());
    if (access(link.c_str(), F_OK) != 0) {
        if (isGone(errno)) {
            throw ServiceError(Reason::NotReachable, "/proc is not mounted");
        }
        throw systemError(errno, "cannot use /proc");
    }
    try {
        OpenFolder(root, "", OpenFolder::Purpose::Reading);
    } catch (const ServiceError& error) {
        throw ServiceError(error.reason(), quotedName(folder) + ": " + error.what());
    }
}

std::string nameOf(const FileDescriptor& root) {
    std::error_code error;
    const std::string link = "/proc/self/fd/" + std::to_string(root.get());
    const std::string path = std::filesystem::read_symlink(link, error).string();
    if (error) {
        throw systemError(error.value(), "cannot read the link " + link);
    }
    const std::string name = path.substr(path.rfind('/') + 1);
    return name.empty() ? "/" : name;
}

void refuse(const std::string& text) { throw ServiceError(Reason::Refused, text); }

void refuseUnsupported(const ItemFilter& filter) {
    const std::int32_t type = filter.dataType;
    if (type != All && type != Documents && type != Folders && type != Tags) {
        refuse("a folder has no entries of data type " + std::to_string(type));
    }
    if (!filter.url.empty()) {
        refuse("a folder cannot be listed by url");
    }
    if (!filter.group.empty()) {
        refuse("a folder cannot be listed by group");
    }
    if (!filter.tagLabels.empty()) {
        refuse("a folder cannot be listed by tag labels");
    }
    if (!filter.order().empty()) {
        refuse("a folder can be listed by name only, not by " + quotedName(filter.order()));
    }
}

Listing listingOf(const ItemFilter& filter) {
    return {.folders = filter.dataType != Documents,
            .documents = filter.dataType != Folders,
            .query = filter.query,
            .order = {.ascending = filter.ascending,
                      .foldersFirst = filter.containerFirst && filter.dataType != Tags}};
}

unsigned long milliseconds(const statx_timestamp& time) {
    constexpr unsigned long PerSecond = 1000;
    constexpr unsigned long Nanoseconds = 1'000'000;
    if (time.tv_sec < 0) {
        return 0;
    }
    return static_cast<unsigned long>(time.tv_sec) * PerSecond + time.tv_nsec / Nanoseconds;
}

unsigned long creationTime(const struct statx& status) {
    return (status.stx_mask & STATX_BTIME) != 0 ? milliseconds(status.stx_btime) : 0;
}

/// By the name alone, from the shared MIME-info database.
std::string guessedType(std::string_view name) {
    const auto length = static_cast<gssize>(name.size());
    const std::unique_ptr<char, decltype(&g_free)> text(g_utf8_make_valid(name.data(), length),
                                                        g_free);
    const std::unique_ptr<char, decltype(&g_free)> type(
        g_content_type_guess(text.get(), nullptr, 0, nullptr), g_free);
    return type.get();
}

std::string mimeType(std::string_view name, const struct statx& status) {
    switch (status.stx_mode & S_IFMT) {
        case S_IFDIR:
            return "inode/directory";
        case S_IFLNK:
            return "inode/symlink";
        case S_IFIFO:
            return "inode/fifo";
        case S_IFSOCK:
            return "inode/socket";
        case S_IFBLK:
            return "inode/blockdevice";
        case S_IFCHR:
            return "inode/chardevice";
        default:
            return guessedType(name);
    }
}

/// Whether this error of looking for an entry says that its file system has no such names.
bool isImpossible(int error) { return error == ENAMETOOLONG || error == EINVAL || error == EILSEQ; }

/// Nobody asked for it, so nobody hears of it when it cannot be done.
void sweep(const OpenFolder& folder) {
    constexpr std::time_t Day = 24L * 60 * 60;
    try {
        removeAbandonedFiles(folder, std::time(nullptr) - Day);
    } catch (const ServiceError&) {
    }
}

}  // namespace

FolderService::Identity::Identity() : user(geteuid()), group(getegid()) {
    const int count = getgroups(0, nullptr);
    groups.resize(static_cast<std::size_t>(std::max(count, 0)));
    const int filled = getgroups(static_cast<int>(groups.size()), groups.data());
    groups.resize(static_cast<std::size_t>(std::max(filled, 0)));
}

int FolderService::Identity::accessLevel(const struct statx& status) const {
    constexpr int Unknown = 0;
    constexpr int ReadOnly = 1;
    constexpr int Writable = 2;
    if (status.stx_mask == 0) {
        return Unknown;
    }
    const bool inGroup = status.stx_gid == group ||
                         std::find(groups.begin(), groups.end(), status.stx_gid) != groups.end();
    const unsigned bit = status.stx_uid == user ? S_IWUSR : inGroup ? S_IWGRP : S_IWOTH;
    return user == 0 || (status.stx_mode & bit) != 0 ? Writable : ReadOnly;
}

FolderService::FolderService(std::string folder, unsigned long userId)
    : _root(openRoot(folder)), _userId(userId) {
    checkUsable(_root, folder);
    _rootName = nameOf(_root);
}

FolderService::~FolderService() = default;

Folder FolderService::root() {
    const OpenFolder folder(_root, "", OpenFolder::Purpose::LookingUp);
    return folderRecord(NodeTable::RootId, 0, _rootName, folder.status());
}

Page FolderService::load(const ItemFilter& filter) {
    refuseUnsupported(filter);
    const unsigned long folderId = folderOf(filter);
    return filter.path.empty() ? list(folderId, filter) : lookUp(folderId, filter);
}

unsigned long FolderService::folderOf(const ItemFilter& filter) const {
    if (filter.dataId.size() != 1) {
        refuse("a listing is of one folder, not of " + std::to_string(filter.dataId.size()));
    }
    return knownFolder(filter.dataId.front());
}

unsigned long FolderService::knownFolder(unsigned long id) const {
    const NodeTable::Node* node = _nodes.find(id);
    if (!node) {
        throw ServiceError(Reason::NotFound, "there is no folder with id " + std::to_string(id));
    }
    if (node->kind != EntryKind::Folder) {
        refuse(quotedName(_nodes.path(id)) + " is not a folder");
    }
    return id;
}

OpenFolder FolderService::open(unsigned long folderId, OpenFolder::Purpose purpose) {
    try {
        return {_root, _nodes.path(folderId), purpose};
    } catch (const ServiceError& error) {
        if (error.reason() == Reason::NotFound) {
            _nodes.forget(folderId);
            dropSnapshot(folderId);
        }
        throw;
    }
}

FolderSnapshot& FolderService::snapshotOf(unsigned long folderId, const OpenFolder& folder) {
    const auto kept = std::find_if(_snapshots.begin(), _snapshots.end(),
                                   [=](const Snapshot& s) { return s.folderId == folderId; });
    if (kept != _snapshots.end() && kept->names.isCurrent(folder.status())) {
        _snapshots.splice(_snapshots.begin(), _snapshots, kept);
        return kept->names;
    }
    dropSnapshot(folderId);
    ++_foldersRead;
    std::list<Snapshot> fresh;
    fresh.emplace_front(folderId, folder);
    _nodes.retain(folderId, fresh.front().names.entries());
    if (fresh.front().names.hidesFiles()) {
        sweep(folder);
    }
    _snapshots.splice(_snapshots.begin(), fresh);
    if (_snapshots.size() > SnapshotsKept) {
        _snapshots.pop_back();
    }
    return _snapshots.front().names;
}

void FolderService::dropSnapshot(unsigned long folderId) {
    _snapshots.remove_if([=](const Snapshot& s) { return s.folderId == folderId; });
}

Page FolderService::list(unsigned long folderId, const ItemFilter& filter) {
    for (int attempt = 1;; ++attempt) {
        const OpenFolder folder = open(folderId, OpenFolder::Purpose::Reading);
        FolderSnapshot& snapshot = snapshotOf(folderId, folder);
        snapshot.select(listingOf(filter));
        Page page;
        const bool complete = filter.dataType == Tags
                                  ? fillTags(page, folder, folderId, snapshot, filter)
                                  : fill(page, folder, folderId, snapshot, filter);
        if (complete) {
            return page;
        }
        dropSnapshot(folderId);
        if (attempt == Attempts) {
            throw ServiceError(Reason::Internal, "the folder " + folder.text() +
                                                     " changes faster than it can be listed");
        }
    }
}

/// False when the snapshot turns out to be outdated.
bool FolderService::fill(Page& page, const OpenFolder& folder, unsigned long folderId,
                         FolderSnapshot& snapshot, const ItemFilter& filter) {
    page.totalCount = snapshot.selected().size();
    const auto entries = snapshot.page(filter.offset, filter.count);
    return std::all_of(entries.begin(), entries.end(), [&](const FolderEntry& entry) {
        return add(page, folder, folderId, entry, false);
    });
}

/// The same for tags. Attributes come and go without a trace in the folder, so every entry is
/// asked each time.
bool FolderService::fillTags(Page& page, const OpenFolder& folder, unsigned long folderId,
                             FolderSnapshot& snapshot, const ItemFilter& filter) {
    std::vector<FolderEntry> tagged;
    for (const FolderEntry& entry : snapshot.selected()) {
        const auto has = folder.hasAttributes(entry.name);
        if (!has) {
            return false;
        }
        if (*has) {
            tagged.push_back(entry);
        }
    }
    std::sort(tagged.begin(), tagged.end(), listingOf(filter).order);
    page.totalCount = tagged.size();
    const std::size_t begin = std::min<std::size_t>(filter.offset, tagged.size());
    const std::size_t count = std::min<std::size_t>(filter.count, tagged.size() - begin);
    const auto entries = std::span<const FolderEntry>(tagged).subspan(begin, count);
    return std::all_of(entries.begin(), entries.end(), [&](const FolderEntry& entry) {
        return add(page, folder, folderId, entry, true);
    });
}

Page FolderService::lookUp(unsigned long folderId, const ItemFilter& filter) {
    const std::string& name = filter.path;
    checkName(name);
    const OpenFolder folder = open(folderId, OpenFolder::Purpose::LookingUp);
    struct statx status {};
    const int error = folder.status(name.c_str(), status);
    if (isGone(error) || isImpossible(error)) {
        _nodes.forget(folderId, name);
        return {};
    }
    if (error != 0) {
        throw systemError(error, "cannot look at " + folder.text(name));
    }
    if (isTemporaryName(name) && S_ISREG(status.stx_mode)) {
        return {};
    }
    const FolderEntry entry{name.c_str(), static_cast<unsigned short>(name.size()), kindOf(status)};
    const bool asTag = filter.dataType == Tags;
    if (!listingOf(filter).shows(entry) ||
        (asTag && !folder.hasAttributes(entry.name).value_or(false))) {
        return {};
    }
    Page page;
    page.totalCount = 1;
    const bool asked = filter.offset == 0 && filter.count > 0;
    if (asked && !add(page, folder, folderId, entry, asTag)) {
        return {};
    }
    return page;
}

/// Adds the record of an entry to the page; false when the entry is no longer there, or is not of
/// this kind any more.
bool FolderService::add(Page& page, const OpenFolder& folder, unsigned long folderId,
                        const FolderEntry& entry, bool asTag) {
    struct statx status {};
    const int error = folder.status(entry.name, status);
    if (isUntold(error)) {
        status = {};
    } else if (isGone(error) || (error == 0 && kindOf(status) != entry.kind)) {
        return false;
    } else if (error != 0) {
        throw systemError(error, "cannot look at " + folder.text(entry.view()));
    }
    std::optional<KeyValues> values = KeyValues();
    if (asTag || S_ISREG(status.stx_mode)) {
        values = folder.attributes(entry.name);
    }
    if (!values) {
        return false;
    }
    const unsigned long id = _nodes.idOf(folderId, entry.view(), entry.kind);
    if (asTag) {
        page.tags.push_back(tagRecord(id, folderId, entry.view(), status));
        page.tags.back()._keyValues = std::move(*values);
    } else if (entry.kind == EntryKind::Folder) {
        page.folders.push_back(folderRecord(id, folderId, entry.view(), status));
    } else {
        page.documents.push_back(documentRecord(id, folderId, entry.view(), status));
        page.documents.back()._keyValues = std::move(*values);
    }
    return true;
}

Folder FolderService::folderRecord(unsigned long id, unsigned long parentId, std::string_view name,
                                   const struct statx& status) const {
    Folder folder(id, parentId, _userId, std::string(name));
    setStatus(folder, status);
    return folder;
}

void FolderService::setStatus(Folder& folder, const struct statx& status) const {
    folder.created = creationTime(status);
    folder.updated = milliseconds(status.stx_mtime);
    folder.accessLevel = _identity.accessLevel(status);
}

Document FolderService::documentRecord(unsigned long id, unsigned long parentId,
                                       std::string_view name, const struct statx& status) const {
    Document document(id, parentId, _userId, std::string(name));
    document.created = creationTime(status);
    document.updated = milliseconds(status.stx_mtime);
    document.aclMode = _identity.accessLevel(status);
    document.mimeType = mimeType(name, status);
    if (S_ISREG(status.stx_mode)) {
        document.length = status.stx_size;
    }
    return document;
}

Tag FolderService::tagRecord(unsigned long id, unsigned long parentId, std::string_view name,
                             const struct statx& status) const {
    Tag tag;
    tag.id = id;
    tag.parentId = parentId;
    tag.ownerId = _userId;
    tag.name = name;
    tag.tagKey = std::to_string(id);
    tag.created = creationTime(status);
    tag.updated = milliseconds(status.stx_mtime);
    return tag;
}

}  // namespace Nimra
