#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "model/ChangeLog.h"
#include "model/Item.h"
#include "model/ShareData.h"

namespace Ormek {

class ObjectUpdater;

/// The write side of an entry: its data, and a setter for each getter of `Item`.
///
/// Every setter is a plain assignment; those of id and name leave a note for whoever has the entry
/// in an index. Nothing here guards the entry; the cache says which of its operations write under
/// which of its mutexes.
class ItemInternal : public virtual Item {
  public:
    explicit ItemInternal(ObjectUpdater* updater);
    /// Copies everything that `source` answers, flags and access rows included.
    ItemInternal(const Item& source, ObjectUpdater* updater);
    ItemInternal(unsigned long id, std::string name, ObjectUpdater* updater);
    ItemInternal(const ItemInternal&) = delete;
    ItemInternal& operator=(const ItemInternal&) = delete;
    ~ItemInternal() override;

    std::map<unsigned long, std::vector<ShareData>> shares() const override;
    bool isShared() const override;
    int accessLevel() const override;
    std::string firstText() const override;
    std::string secondText() const override;
    unsigned long id() const override;
    unsigned long parentId() const override;
    unsigned long oldParentId() const override;
    std::string name() const override;
    std::string description() const override;
    unsigned long ownerId() const override;
    unsigned long driveId() const override;
    std::string thirdText() const override;
    bool idLoaded() const override;
    bool dataLoaded() const override;
    unsigned long created() const override;
    unsigned long updated() const override;
    unsigned long deleted() const override;
    int type() const override;
    bool isDeleted() const override;

    void shares(std::map<unsigned long, std::vector<ShareData>> shares);
    void firstText(std::string text);
    void secondText(std::string text);
    void id(unsigned long id);
    void parentId(unsigned long id);
    void oldParentId(unsigned long id);
    void name(std::string name);
    void description(std::string text);
    void ownerId(unsigned long id);
    void driveId(unsigned long id);
    void thirdText(std::string text);
    void idLoaded(bool loaded);
    void dataLoaded(bool loaded);
    void created(unsigned long stamp);
    void updated(unsigned long stamp);
    void deleted(unsigned long stamp);
    void type(int type);
    /// Sets one row of the access map.
    void setACLMap(unsigned long userId, int access);

    /// The name without a copy; valid until it is changed.
    const std::string& nameView() const { return _name; }

    /// What an index by id and by name has to follow, each with the hash below of what the entry
    /// had before. Entries under construction and copies make no changes.
    static ChangeLog& idChanges() noexcept;
    static ChangeLog& nameChanges() noexcept;
    /// An entry without an id is told from others by where it is.
    static std::uint64_t idHash(const Item& item, unsigned long id) noexcept {
        return id != 0 ? id : reinterpret_cast<std::uintptr_t>(&item);
    }
    static std::uint64_t nameHash(std::string_view name) noexcept {
        return std::hash<std::string_view>()(name);
    }

    /// What the entry was built with; not owned.
    ObjectUpdater* objectUpdater() const;

  private:
    friend class Item;

    std::string _name;
    std::string _description;
    unsigned long _id = 0;
    unsigned long _parentId = 0;
    unsigned long _oldParentId = 0;
    unsigned long _ownerId = 0;
    unsigned long _driveId = 0;
    unsigned long _created = 0;
    unsigned long _updated = 0;
    unsigned long _deleted = 0;
    int _type = 0;
    bool _dataLoaded = false;
    bool _idLoaded = false;
    std::string _firstText;
    std::string _secondText;
    std::string _thirdText;

  public:
    /// The share map, which the cache replaces whole.
    std::map<unsigned long, std::vector<ShareData>> _shares;

  private:
    ObjectUpdater* _objectUpdater;
    std::map<unsigned long, int> _aclMap;
};

}  // namespace Ormek
