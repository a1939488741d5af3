// What a user does to the entries of a folder tree.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "backend/Attributes.h"
#include "backend/Durability.h"
#include "backend/EntryName.h"
#include "backend/FileStream.h"
#include "backend/FileWriter.h"
#include "backend/FolderService.h"
#include "backend/SystemError.h"
#include "backend/Uninterrupted.h"

namespace Nimra {

namespace {

/// How much of an upload is in memory at a time.
constexpr std::size_t PieceSize = 1024UL * 1024;
constexpr unsigned char FolderType = 8;
constexpr mode_t FolderMode = 0777;

[[noreturn]] void refuse(const std::string& text) { throw ServiceError(Reason::Refused, text); }

[[noreturn]] void refuseSize(const std::string& text, unsigned long size, unsigned long promised) {
    refuse("cannot create " + text + ": its content has " + std::to_string(size) +
           " bytes and not " + std::to_string(promised));
}

void checkIsFree(const OpenFolder& folder, const std::string& name) {
    struct statx status {};
    const int error = folder.status(name.c_str(), status);
    if (error == 0) {
        throw systemError(EEXIST, "cannot create " + folder.text(name));
    }
    if (!isGone(error)) {
        throw namingError(error, "cannot create " + folder.text(name));
    }
}

void copy(ContentSource& content, FileWriter& file, const std::string& text,
          const DocumentService::Progress& progress) {
    const unsigned long promised = content.size();
    std::vector<char> piece(PieceSize);
    unsigned long done = 0;
    while (const std::size_t size = content.read(piece.data(), piece.size())) {
        if (size > piece.size()) {
            throw ServiceError(Reason::Internal, "cannot create " + text +
                                                     ": its source says that it gave more than "
                                                     "was asked for");
        }
        done += size;
        if (promised != 0 && done > promised) {
            refuseSize(text, done, promised);
        }
        file.write(piece.data(), size);
        if (progress) {
            progress(done, promised);
        }
    }
    if (promised != 0 && done != promised) {
        refuseSize(text, done, promised);
    }
    // Now it is known.
    if (progress && promised == 0 && done != 0) {
        progress(done, done);
    }
}

/// Key values as they are read from the attributes that are made of them.
KeyValues withoutFlags(KeyValues values) {
    for (auto& [key, value] : values) {
        value.second = false;
    }
    return values;
}

/// The entry, if it can have metadata.
FileDescriptor pinned(const OpenFolder& folder, const std::string& name) {
    FileDescriptor fd = folder.pin(name);
    struct stat status {};
    if (fstat(fd.get(), &status) != 0) {
        throw systemError(errno, "cannot look at " + folder.text(name));
    }
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
        refuse(folder.text(name) + " is neither a regular file nor a folder: it has no metadata");
    }
    return fd;
}

/// The id of an entry that is about to be made: what can fail about it has succeeded before. Taken
/// back unless the entry is made.
class NewId {
  public:
    NewId(NodeTable& nodes, unsigned long folderId, std::string name, EntryKind kind)
        : _nodes(nodes),
          _folderId(folderId),
          _name(std::move(name)),
          // Under a name that no entry has, for this one may still turn out to be taken.
          _id(nodes.idOf(folderId, "", kind)) {
        nodes.reserve(folderId);
    }
    NewId(const NewId&) = delete;
    NewId& operator=(const NewId&) = delete;
    ~NewId() {
        if (!_made) {
            _nodes.takeBack(_id);
        }
    }

    unsigned long get() const { return _id; }
    /// What had this name before is no longer there.
    void made() {
        _nodes.move(_id, _folderId, std::move(_name));
        _made = true;
    }

  private:
    NodeTable& _nodes;
    unsigned long _folderId;
    std::string _name;
    unsigned long _id;
    bool _made = false;
};

}  // namespace

KeyValues FolderService::Entry::keyValues() const {
    if (!S_ISDIR(status.stx_mode) && !S_ISREG(status.stx_mode)) {
        return {};
    }
    return folder.attributes(name.c_str()).value_or(KeyValues());
}

FolderService::Entry FolderService::entryOf(unsigned long id) {
    const NodeTable::Node* node = _nodes.find(id);
    if (!node) {
        throw ServiceError(Reason::NotFound, "there is no entry with id " + std::to_string(id));
    }
    if (id == NodeTable::RootId) {
        refuse("this cannot be done to the root folder");
    }
    const EntryKind kind = node->kind;
    const unsigned long parentId = node->parentId;
    Entry entry{id, parentId, node->name, {}, open(parentId, OpenFolder::Purpose::LookingUp)};
    const int error = entry.folder.status(entry.name.c_str(), entry.status);
    if (isGone(error) || (error == 0 && kindOf(entry.status) != kind)) {
        _nodes.forget(id);
        dropSnapshot(parentId);
        throw ServiceError(Reason::NotFound, entry.text() + " is no longer there");
    }
    if (error != 0) {
        throw systemError(error, "cannot look at " + entry.text());
    }
    return entry;
}

/// The record of an entry of either kind, without key values, once it lies in that folder under
/// that name. Actions make their records beforehand: nothing may fail once they have taken effect,
/// not even for want of memory.
Document FolderService::recordOf(const Entry& entry, unsigned long folderId,
                                 const std::string& name) const {
    Document record = documentRecord(entry.id, folderId, name, entry.status);
    if (S_ISDIR(entry.status.stx_mode)) {
        record.type = FolderType;
    }
    return record;
}

// --- Creating ------------------------------------------------------------------------------

Document FolderService::create(const Document& document, ContentSource* content,
                               const Progress& progress) {
    const std::string& name = document.name;
    checkNewName(name);
    const unsigned long folderId = knownFolder(document.parentId);
    const OpenFolder folder = open(folderId, OpenFolder::Purpose::LookingUp);
    checkIsFree(folder, name);
    FileWriter file(folder, name);
    // First: what cannot be kept is to fail before a long upload, not after it.
    if (const KeyValues values = document.keyValues(); !values.empty()) {
        file.setAttributes(values);
    }
    if (content) {
        copy(*content, file, folder.text(name), progress);
    }
    checkIsInPlace(folder, folderId);
    NewId id(_nodes, folderId, name, EntryKind::Document);
    Document record = documentRecord(id.get(), folderId, name, file.status());
    record._keyValues = withoutFlags(document.keyValues());
    file.publish();
    id.made();
    dropSnapshot(folderId);
    return record;
}

/// Fails unless this is still the folder of that id: during a long upload somebody may have put it
/// elsewhere, even outside the root.
void FolderService::checkIsInPlace(const OpenFolder& folder, unsigned long folderId) {
    if (open(folderId, OpenFolder::Purpose::LookingUp).isSameAs(folder)) {
        return;
    }
    _nodes.forget(folderId);
    dropSnapshot(folderId);
    throw ServiceError(Reason::NotFound, "the folder " + folder.text() + " is no longer there");
}

Folder FolderService::makeFolder(const Folder& record) {
    const std::string& name = record.name;
    checkNewName(name);
    const unsigned long folderId = knownFolder(record.parentId);
    const OpenFolder folder = open(folderId, OpenFolder::Purpose::LookingUp);
    NewId id(_nodes, folderId, name, EntryKind::Folder);
    Folder made = folderRecord(id.get(), folderId, name, {});
    if (mkdirat(folder.fd(), name.c_str(), FolderMode) != 0) {
        throw namingError(errno, "cannot make the folder " + folder.text(name));
    }
    id.made();
    dropSnapshot(folderId);
    makeDurable(folder.fd(), _root.get());
    // It is made, whether more can be told about it or not.
    struct statx status {};
    if (folder.status(name.c_str(), status) == 0) {
        setStatus(made, status);
    }
    return made;
}

// --- Moving and renaming -------------------------------------------------------------------

Document FolderService::move(const Document& document) {
    const unsigned long folderId = knownFolder(document.parentId);
    const Entry entry = entryOf(document.id);
    // Looking for the entry may have shown that the folder is gone.
    if (!_nodes.find(folderId)) {
        throw ServiceError(Reason::NotFound,
                           "there is no folder with id " + std::to_string(folderId));
    }
    if (_nodes.isWithin(folderId, entry.id)) {
        refuse("cannot move " + entry.text() + " into itself");
    }
    const OpenFolder folder = open(folderId, OpenFolder::Purpose::LookingUp);
    return relocate(entry, folder, folderId, entry.name);
}

Document FolderService::rename(const Document& document) {
    checkNewName(document.name);
    const Entry entry = entryOf(document.id);
    return relocate(entry, entry.folder, entry.parentId, document.name);
}

Document FolderService::relocate(const Entry& entry, const OpenFolder& folder,
                                 unsigned long folderId, const std::string& name) {
    Document record = recordOf(entry, folderId, name);
    record._keyValues = entry.keyValues();
    if (folderId == entry.parentId && name == entry.name) {
        return record;
    }
    std::string newName = name;
    _nodes.reserve(folderId);
    if (renameat2(entry.folder.fd(), entry.name.c_str(), folder.fd(), name.c_str(),
                  RENAME_NOREPLACE) != 0) {
        throw namingError(errno, "cannot move " + entry.text() + " to " + folder.text(name));
    }
    _nodes.move(entry.id, folderId, std::move(newName));
    dropSnapshot(entry.parentId);
    dropSnapshot(folderId);
    // The new place first: rather in both than in none.
    makeDurable(folder.fd(), _root.get());
    if (folderId != entry.parentId) {
        makeDurable(entry.folder.fd(), _root.get());
    }
    return record;
}

// --- Removing ------------------------------------------------------------------------------

void FolderService::remove(const Document& document) {
    const Entry entry = entryOf(document.id);
    if (kindOf(entry.status) == EntryKind::Folder) {
        removeFolder(entry);
    } else if (unlinkat(entry.folder.fd(), entry.name.c_str(), 0) != 0) {
        throw systemError(errno, "cannot remove " + entry.text());
    }
    _nodes.forget(entry.id);
    dropSnapshot(entry.parentId);
    makeDurable(entry.folder.fd(), _root.get());
}

void FolderService::removeFolder(const Entry& entry) {
    const auto remove = [&entry] {
        const int result = unlinkat(entry.folder.fd(), entry.name.c_str(), AT_REMOVEDIR);
        return result == 0 ? 0 : errno;
    };
    int error = remove();
    if (reasonOf(error) == Reason::Exists) {
        removeAbandonedFiles(open(entry.id, OpenFolder::Purpose::LookingUp));
        error = remove();
    }
    if (reasonOf(error) == Reason::Exists) {
        refuse("cannot remove the folder " + entry.text() + ": it is not empty");
    }
    if (error != 0) {
        throw systemError(error, "cannot remove the folder " + entry.text());
    }
    dropSnapshot(entry.id);
}

// --- Content, metadata, sessions -----------------------------------------------------------

OpenedDocument FolderService::openStreams(const Document& document) {
    Entry entry = entryOf(document.id);
    auto stream = std::make_shared<FileStream>(entry.folder, entry.name);
    // Another file may have taken its place just now.
    entry.status = stream->status();
    Document record = recordOf(entry, entry.parentId, entry.name);
    record._keyValues = stream->keyValues();
    return {std::move(record), std::move(stream)};
}

Document FolderService::saveMetaData(const Document& document) {
    const Entry entry = entryOf(document.id);
    const FileDescriptor fd = pinned(entry.folder, entry.name);
    Document record = recordOf(entry, entry.parentId, entry.name);
    record._keyValues = writeAttributes(fd.get(), document.keyValues(), entry.text());
    makeDurable(fd.get(), _root.get());
    return record;
}

DocumentSession FolderService::openSession(unsigned long, unsigned long documentId,
                                           unsigned long userId) {
    const Entry entry = entryOf(documentId);
    if (kindOf(entry.status) == EntryKind::Folder) {
        refuse(entry.text() + " is a folder: sessions are for documents");
    }
    return _sessions.open(entry.parentId, documentId, userId);
}

void FolderService::releaseSession(const DocumentSession& session) { _sessions.release(session); }

}  // namespace Nimra
