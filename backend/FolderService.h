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
#include "backend/StorageService.h"

namespace Nimra {

/// Serves a folder of this machine as if it were a remote tree.
///
/// It owns a descriptor of that folder and never leaves it: every folder below is opened from that
/// descriptor without following symbolic links, which are listed as documents. What others do to
/// the tree meanwhile shows in the next answer. One call at a time, from any thread; a worker's is
/// the usual one.
///
/// Ids: the root has 1. An entry gets the next number when it is first delivered and keeps it,
/// while this service lives, until it was seen to be gone from its folder or to have turned from a
/// folder into something else or back. No number is given twice.
///
/// Records: times are milliseconds since the epoch, 0 for unknown (`created`, on file systems that
/// do not keep it) or earlier ones. `length` is 0 for all but regular files. Access levels, a
/// folder's `accessLevel` and a document's `aclMode`, are 2 for what this process may write by its
/// user and groups at the service's construction and the mode bits, 1 for the rest, and 0 where the
/// system will not tell anything about an entry but its name. A document's key values are its
/// extended attributes in the user. namespace, without that prefix, the flag false.
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

    unsigned long folderOf(const ItemFilter& filter) const;
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
    NodeTable _nodes;
    std::list<Snapshot> _snapshots;  ///< The one used last in front.
    unsigned long _foldersRead = 0;
};

}  // namespace Nimra
