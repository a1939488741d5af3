#pragma once

#include <variant>

#include "client/EntryValues.h"
#include "client/Outcome.h"

namespace Ormek {

/// An entry has come into a folder. Neither the first delivery of a page nor a look-up tells of
/// what it brings; where a listing of the folder that was known from end to end lacks it,
/// `ListingInvalidated` is told.
struct EntryAdded {
    unsigned long id = 0;
    EntryValues now;
};

/// An entry is no longer in any folder.
struct EntryRemoved {
    unsigned long id = 0;
    EntryValues was;
};

/// An entry says something else than before; also that it lies in another folder.
struct EntryChanged {
    unsigned long id = 0;
    EntryValues was;
    EntryValues now;
};

/// An entry that was made here has got its id from the service. The client goes on taking the old
/// one for it, and the entries in a folder say the new one from now on, without a further word.
/// Where the new id was told of before, since a page or a change made elsewhere came ahead of the
/// answer, the two are one from now on.
struct EntryIdChanged {
    unsigned long oldId = 0;
    unsigned long newId = 0;
};

/// What is held of a folder's listings may no longer be how the service would list them: its
/// entries' order, or which entries there are. Asking for a page loads it again.
struct ListingInvalidated {
    unsigned long folderId = 0;
};

/// How far an upload is. A total of 0 is not known.
struct ActionProgress {
    unsigned long operationId = 0;
    unsigned long done = 0;   ///< In bytes.
    unsigned long total = 0;  ///< In bytes.
};

/// What a subscriber of a `Client` is told. An `Outcome` comes once for each action, after the
/// changes that it brought with it; not for one that was refused at once.
using Event = std::variant<EntryAdded, EntryRemoved, EntryChanged, EntryIdChanged,
                           ListingInvalidated, ActionProgress, Outcome>;

}  // namespace Ormek
