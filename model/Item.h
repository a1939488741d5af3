#pragma once

#include <map>
#include <string>
#include <vector>

#include "model/ShareData.h"

namespace Ormek {

static_assert(sizeof(unsigned long) == 8, "ids are unsigned 64-bit numbers");

/// The read side of every cached entry: a folder (`Container`), a document or a key-value entry
/// (`Object`).
///
/// Entries are held as `std::shared_ptr<Item>` and live as long as any holder: the cache's store,
/// a result set, a caller. They have no lock of their own; whoever reads one while another thread
/// works on the cache serialises the two.
///
/// Ids, time stamps and counts are unsigned 64-bit numbers, 0 means that there is none; time stamps
/// are in whatever unit the service uses. The order of the virtual operations is fixed.
///
/// An `Item` itself holds nothing: copy an `Object` or a `Container` to keep what an entry says.
class Item {
  public:
    Item() = default;
    Item(const Item&) = default;
    Item& operator=(const Item&) = default;

    /// Share records, grouped by the user id they were given to.
    virtual std::map<unsigned long, std::vector<ShareData>> shares() const;
    /// Whether `shares()` has any row.
    virtual bool isShared() const;
    /// The owner's row of `ACLMap()`; 0 when there is none.
    virtual int accessLevel() const;
    virtual std::string firstText() const;
    virtual std::string secondText() const;
    /// A locally made id until the server has given one; `idLoaded()` tells which.
    virtual unsigned long id() const;
    /// Id of the containing folder.
    virtual unsigned long parentId() const;
    /// Id of the folder that held the entry before its last move.
    virtual unsigned long oldParentId() const;
    /// Display name: any bytes.
    virtual std::string name() const;
    virtual std::string description() const;
    virtual unsigned long ownerId() const;
    virtual unsigned long driveId() const;
    virtual std::string thirdText() const;
    /// True once the id is a server id.
    virtual bool idLoaded() const;
    /// True once the entry was filled from a service record.
    virtual bool dataLoaded() const;
    virtual unsigned long created() const;
    virtual unsigned long updated() const;
    virtual unsigned long deleted() const;
    /// 4 document, 8 folder, 16 key-value entry; 0 when not said.
    virtual int type() const;
    /// Whether a deletion time stamp is set.
    virtual bool isDeleted() const;
    virtual ~Item();

    /// Access level by user id. Not the share map.
    std::map<unsigned long, int> ACLMap() const;

  private:
    // What a plain value remembers of the entry it was copied from; null when it remembers none.
    const Item* snapshot() const;
};

}  // namespace Ormek
