#pragma once

#include <sys/types.h>

#include <list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "backend/FileDescriptor.h"
#include "backend/FolderSnapshot.h"
#include "backend/NodeTable.h"
#include "backend/OpenFolder.h"
#include "backend/SessionTable.h"
#include "backend/StorageService.h"

namespace Nimra {

/// Serves a folder of this machine as if it were a remote tree.
///
/// It owns a descriptor of that folder and never leaves it: every folder below is opened from that
/// descriptor without following symbolic links, which are listed as documents. What others do to
/// the tree meanwhile shows in the next answer. One call at a time, from any thread; a worker's is
/// the usual one. Only `releaseSession()` may be called beside another call.
///
/// Ids: the root has 1. An entry gets the next number when it is first delivered and keeps it,
/// while this service lives, until it was seen to be gone from its folder or to have turned from a
/// folder into something else or back. No number is given twice. Renamed or moved by this service,
/// it keeps its id, as does everything below it; removed by it, it loses it at once.
///
/// Records: times are milliseconds since the epoch, 0 for unknown (`created`, on file systems that
/// do not keep it) or earlier ones. `length` is 0 for all but regular files. Access levels, a
/// folder's `accessLevel` and a document's `aclMode`, are 2 for what this process may write by its
/// user and groups at the service's construction and the mode bits, 1 for the rest, and 0 where the
/// system will not tell anything about an entry but its name. A document's key values are its
/// extended attributes in the user. namespace, without that prefix, the flag false.
///
/// Actions: what they concern is known by its id alone; the folder and the name that a record says
/// it has now are not looked at. Nothing that stands anywhere is ever overwritten, also not by an
/// action of somebody else at the same moment: a taken name fails with Reason::Exists. A file
/// system that cannot promise that refuses to rename and to move, and without hard links to create.
/// A full disk fails with Reason::NoSpace and keeps what it had.
///
/// Names ".ormek-<32 hexadecimal digits>.part" are kept for files that are being written, on file
/// systems where these must have a name (see FileWriter.h); such files are neither listed nor
/// given. What a killed process left of them does not keep a folder from being removed, and is
/// swept when the folder is listed a day later.
///
/// Durability: what an action has done is brought to the disk before it is answered, so that it
/// survives a power cut. Content that the disk refuses fails its creation, which leaves nothing.
/// Where the disk refuses anything later, the action has taken effect, for everybody who shares the
/// folder, and could not be taken back without getting in their way: it is answered as done.
class FolderService : public StorageService {
  public:
    /// `userId` becomes the owner of all entries. Throws ServiceError when the folder cannot be
    /// opened for reading, or the system lacks openat2(2) or proc(5).
    explicit FolderService(std::string folder, unsigned long userId = 1);
    ~FolderService() override;

    /// A page of a folder, by `dataId` (exactly one), `dataType` (0 all, 4 documents, 8 folders),
    /// `query` (part of the name, byte by byte), `containerFirst` and `ascending` (byte order of
    /// the names). With `path`, the listing is that of the one entry of this name in the folder,
    /// or of none. With data type 16 it has a tag for each entry that has user attributes, by name
    /// and without regard to `containerFirst`. `userId`, `deleted`, `serviceFlag` and `cursor`
    /// change nothing; what else a filter can ask for is refused.
    Page load(const ItemFilter& filter) override;

    Folder root() override;

    /// The document appears whole, with its key values as attributes, or not at all, also when the
    /// process is killed. Reads the content in pieces of one size, with progress after each. The
    /// owner, the type and everything else that a record can say is the file system's to tell.
    /// A folder that others move or exchange during the upload fails it. That is looked at last
    /// thing before the document gets its name; what they do in the instant between goes unseen.
    Document create(const Document& document, ContentSource* content,
                    const Progress& progress) override;
    /// Refused for the root, into the entry itself or what lies below it, and across a mount.
    Document move(const Document& document) override;
    /// Refused for the root and for a folder that is not empty. A symbolic link is removed itself.
    void remove(const Document& document) override;
    Document rename(const Document& document) override;
    /// Only for regular files. Waits for nothing but a lease, see fcntl(2), to be given back.
    OpenedDocument openStreams(const Document& document) override;
    /// The key values become user attributes of the entry; those that they do not name stay as they
    /// are, whoever wrote them. The record has all that the entry has then. The length and the type
    /// stay what the content and the name make them. Refused where the file system keeps no
    /// attributes. There is no call that changes several at once: others may see some of the new
    /// ones beside some of the old, and a process that is killed meanwhile leaves it so.
    Document saveMetaData(const Document& document) override;
    /// For everything but folders. A session keeps other sessions away, not actions; it ends when
    /// the id of its document does.
    DocumentSession openSession(unsigned long folderId, unsigned long documentId,
                                unsigned long userId) override;
    void releaseSession(const DocumentSession& session) override;
    Folder makeFolder(const Folder& record) override;

    /// How often the names in a folder were read so far. Paging through a folder that does not
    /// change reads it once, as long as not too many others are listed in between.
    unsigned long foldersRead() const { return _foldersRead; }

  private:
    /// Whom the mode bits are about.
    struct Identity {
        uid_t user;
        gid_t group;
        std::vector<gid_t> groups;

        Identity();
        int accessLevel(const struct statx& status) const;
    };

    /// An entry that an action is about, and its folder held open.
    struct Entry {
        unsigned long id;
        unsigned long parentId;
        std::string name;
        struct statx status;
        OpenFolder folder;

        std::string text() const { return folder.text(name); }
        KeyValues keyValues() const;
    };

    unsigned long folderOf(const ItemFilter& filter) const;
    unsigned long knownFolder(unsigned long id) const;
    Entry entryOf(unsigned long id);
    Document relocate(const Entry& entry, const OpenFolder& folder, unsigned long folderId,
                      const std::string& name);
    void checkIsInPlace(const OpenFolder& folder, unsigned long folderId);
    void removeFolder(const Entry& entry);
    Document recordOf(const Entry& entry, unsigned long folderId, const std::string& name) const;
    OpenFolder open(unsigned long folderId, OpenFolder::Purpose purpose);
    FolderSnapshot& snapshotOf(unsigned long folderId, const OpenFolder& folder);
    void dropSnapshot(unsigned long folderId);

    Page list(unsigned long folderId, const ItemFilter& filter);
    Page lookUp(unsigned long folderId, const ItemFilter& filter);
    bool fill(Page& page, const OpenFolder& folder, unsigned long folderId,
              FolderSnapshot& snapshot, const ItemFilter& filter);
    bool fillTags(Page& page, const OpenFolder& folder, unsigned long folderId,
                  FolderSnapshot& snapshot, const ItemFilter& filter);

    bool add(Page& page, const OpenFolder& folder, unsigned long folderId, const FolderEntry& entry,
             bool asTag);
    Folder folderRecord(unsigned long id, unsigned long parentId, std::string_view name,
                        const struct statx& status) const;
    void setStatus(Folder& folder, const struct statx& status) const;
    Document documentRecord(unsigned long id, unsigned long parentId, std::string_view name,
                            const struct statx& status) const;
    Tag tagRecord(unsigned long id, unsigned long parentId, std::string_view name,
                  const struct statx& status) const;

    struct Snapshot {
        Snapshot(unsigned long folder, const OpenFolder& opened)
            : folderId(folder), names(opened) {}

        unsigned long folderId;
        FolderSnapshot names;
    };

    FileDescriptor _root;
    std::string _rootName;
    unsigned long _userId;
    Identity _identity;
    SessionTable _sessions;
    NodeTable _nodes{[this](unsigned long id) { _sessions.forget(id); }};
    std::list<Snapshot> _snapshots;  ///< The one used last in front.
    unsigned long _foldersRead = 0;
};

}  // namespace Nimra
