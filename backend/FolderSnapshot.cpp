#include "backend/FolderSnapshot.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include "backend/EntryName.h"
#include "backend/SystemError.h"

namespace Nimra {

namespace {

/// One call of getdents64(2) fills up to this many bytes.
constexpr std::size_t BlockSize = 256UL * 1024;

timespec timeOfDay() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now;
}

bool isSelfOrParent(const char* name) {
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

/// Empty when the entry is gone, DT_UNKNOWN when nothing can be told about it.
std::optional<unsigned char> lookedUpType(const OpenFolder& folder, const char* name) {
    struct statx status {};
    const int error = folder.status(name, status);
    if (isGone(error)) {
        return std::nullopt;
    }
    if (error != 0 && !isUntold(error)) {
        throw systemError(error, "cannot look at " + folder.text(name));
    }
    return error == 0 ? IFTODT(status.stx_mode) : DT_UNKNOWN;
}

}  // namespace

bool ListingOrder::operator()(const FolderEntry& a, const FolderEntry& b) const {
    if (foldersFirst && a.kind != b.kind) {
        return a.kind == EntryKind::Folder;
    }
    return ascending ? a.view() < b.view() : b.view() < a.view();
}

bool Listing::shows(const FolderEntry& entry) const {
    return (entry.kind == EntryKind::Folder ? folders : documents) &&
           entry.view().find(query) != std::string_view::npos;
}

FolderSnapshot::Stamp::Stamp(const struct statx& status)
    : deviceMajor(status.stx_dev_major),
      deviceMinor(status.stx_dev_minor),
      inode(status.stx_ino),
      modified(status.stx_mtime.tv_sec),
      changed(status.stx_ctime.tv_sec),
      modifiedNs(status.stx_mtime.tv_nsec),
      changedNs(status.stx_ctime.tv_nsec) {}

FolderSnapshot::FolderSnapshot(const OpenFolder& folder) : FolderSnapshot(folder, timeOfDay()) {}

/// `now` must have been taken before: what happens between the two clocks is to look recent.
FolderSnapshot::FolderSnapshot(const OpenFolder& folder, const timespec& now)
    : _stamp(folder.status()), _settled(isSettled(_stamp, now)) {
    read(folder);
    // While a folder changes, reading it may give an entry twice.
    if (_stamp != Stamp(folder.status())) {
        removeRepetitions();
    }
    select({});
}

/// Whether any later change is bound to leave another stamp. One that falls into the same tick of
/// the clock as the change before it does not, so the stamp must be older than a tick: 10 ms at
/// most in the kernel, but up to two seconds on file systems that store whole ones. The time of
/// change is looked at alone: unlike the other, nobody can set it at will.
bool FolderSnapshot::isSettled(const Stamp& stamp, const timespec& now) {
    constexpr std::int64_t Second = 1'000'000'000;
    const bool wholeSeconds = stamp.changedNs == 0 && stamp.modifiedNs == 0;
    const std::int64_t margin = wholeSeconds ? 2 * Second : Second / 50;
    const std::int64_t seconds = std::clamp<std::int64_t>(now.tv_sec - stamp.changed, -10, 10);
    return seconds * Second + now.tv_nsec - stamp.changedNs > margin;
}

bool FolderSnapshot::isCurrent(const struct statx& folder) const {
    return _settled && _stamp == Stamp(folder);
}

void FolderSnapshot::read(const OpenFolder& folder) {
    std::vector<char> block(BlockSize);
    for (;;) {
        const ssize_t size = getdents64(folder.fd(), block.data(), block.size());
        if (size < 0) {
            throw systemError(errno, "cannot read the folder " + folder.text());
        }
        if (size == 0) {
            return;
        }
        for (ssize_t at = 0; at < size;) {
            const auto* record = reinterpret_cast<const dirent64*>(block.data() + at);
            add(folder, record->d_name, record->d_type);
            at += record->d_reclen;
        }
    }
}

void FolderSnapshot::add(const OpenFolder& folder, const char* name, unsigned char type) {
    if (isSelfOrParent(name)) {
        return;
    }
    const std::optional<unsigned char> known =
        type == DT_UNKNOWN ? lookedUpType(folder, name) : type;
    if (!known) {
        return;
    }
    if (isTemporaryName(name) && (known == DT_REG || known == DT_UNKNOWN)) {
        _hidesFiles = true;
        return;
    }
    const std::size_t length = std::strlen(name);
    auto* copy = static_cast<char*>(_names.allocate(length + 1, 1));
    std::memcpy(copy, name, length + 1);
    _entries.push_back({copy, static_cast<unsigned short>(length),
                        known == DT_DIR ? EntryKind::Folder : EntryKind::Document});
}

void FolderSnapshot::removeRepetitions() {
    std::sort(_entries.begin(), _entries.end(),
              ListingOrder{.ascending = true, .foldersFirst = false});
    const auto sameName = [](const FolderEntry& a, const FolderEntry& b) {
        return a.view() == b.view();
    };
    _entries.erase(std::unique(_entries.begin(), _entries.end(), sameName), _entries.end());
}

void FolderSnapshot::select(Listing listing) {
    if (_selected > 0 && listing == _listing) {
        return;
    }
    _listing = std::move(listing);
    _sorted = 0;
    const auto end =
        std::partition(_entries.begin(), _entries.end(),
                       [this](const FolderEntry& entry) { return _listing.shows(entry); });
    _selected = static_cast<std::size_t>(end - _entries.begin());
}

std::span<const FolderEntry> FolderSnapshot::page(std::size_t offset, std::size_t count) {
    const std::size_t begin = std::min(offset, _selected);
    const std::size_t length = std::min(count, _selected - begin);
    if (length > 0) {
        sortUpTo(begin + length);
    }
    return entries().subspan(begin, length);
}

/// Sorts at least twice as much as the last time, so that paging through the whole listing costs
/// no more than a few times what sorting it at once does, and its first page a fraction of that.
void FolderSnapshot::sortUpTo(std::size_t end) {
    if (end <= _sorted) {
        return;
    }
    const std::size_t target = std::min(std::max(end, 2 * _sorted), _selected);
    const auto at = [this](std::size_t index) {
        return _entries.begin() + static_cast<std::ptrdiff_t>(index);
    };
    if (target < _selected) {
        std::nth_element(at(_sorted), at(target), at(_selected), _listing.order);
    }
    std::sort(at(_sorted), at(target), _listing.order);
    _sorted = target;
}

}  // namespace Nimra
