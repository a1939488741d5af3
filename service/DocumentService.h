#pragma once

#include <functional>

#include "service/ContentSource.h"
#include "service/DataService.h"
#include "service/Document.h"
#include "service/DocumentSession.h"
#include "service/DocumentStream.h"

namespace Nimra {

/// A service that also carries out what a user does to a document.
///
/// Functions throw ServiceError when they cannot do what they were asked, and then nothing of it
/// has taken effect; what is not overridden refuses. Records that are returned are as the server
/// has them now. A folder can be moved, renamed, removed and given metadata like a document; its
/// record then has type 8.
class DocumentService : public DataService {
  public:
    /// Told how many bytes are done, out of how many in all (0 when that is not known); on the
    /// thread of the call that it was handed to.
    using Progress = std::function<void(unsigned long done, unsigned long total)>;

    ~DocumentService() override;

    /// Makes a document of that name and those key values in the folder `parentId`, under an id of
    /// the server's own. `content` may be null, for none; `progress` may be empty. Not for folders.
    virtual Document create(const Document& document, ContentSource* content,
                            const Progress& progress);
    /// Moves what has that id into the folder `parentId`.
    virtual Document move(const Document& document);
    /// Removes what has that id; a folder only if it is empty.
    virtual void remove(const Document& document);
    /// Gives what has that id the name of the record.
    virtual Document rename(const Document& document);
    /// Opens the content of what has that id.
    virtual OpenedDocument openStreams(const Document& document);
    /// Saves the record's key values; those that it does not name stay as the server has them. The
    /// record that is returned has all of them.
    virtual Document saveMetaData(const Document& document);

    /// Gives a session for a document; refused while there is one.
    virtual DocumentSession openSession(unsigned long folderId, unsigned long documentId,
                                        unsigned long userId);
    /// Ends a session. Unlike all other functions it may be called from any thread, at any time.
    virtual void releaseSession(const DocumentSession& session);
};

}  // namespace Nimra
