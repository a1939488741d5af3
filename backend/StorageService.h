#pragma once

#include "service/DocumentServiceNetwork.h"
#include "service/Folder.h"
#include "service/ServiceError.h"

namespace Nimra {

/// A service layer as an embedder owns it: listings, document operations, and where its tree
/// starts. Called by one thread at a time.
///
/// An embedding client relies on this: ids of folders and documents are not 0 and stay with an
/// entry; a filter with a `path` names the one entry of that name in the folder, not a listing; and
/// the `tagKey` of a tag is unique in the whole service.
class StorageService : public DocumentServiceNetwork {
  public:
    ~StorageService() override;

    /// The folder in which everything else lies. Throws ServiceError when it cannot be told; what
    /// is not overridden refuses.
    virtual Folder root();

    /// Makes a folder of that name in the folder `parentId`, under an id of the server's own, and
    /// returns it as the server has it now. A worker calls it for the creation of a document whose
    /// record has type 8. Throws ServiceError; what is not overridden refuses.
    virtual Folder makeFolder(const Folder& folder);
};

}  // namespace Nimra
