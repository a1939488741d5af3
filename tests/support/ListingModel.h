#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Ormek::Testing {

/// An entry as plain data.
struct ModelEntry {
    bool isFolder = false;
    unsigned long id = 0;
    unsigned long parentId = 0;
    unsigned long oldParentId = 0;
    unsigned long ownerId = 0;
    unsigned long driveId = 0;
    unsigned long created = 0;
    unsigned long updated = 0;
    unsigned long deleted = 0;
    int type = 0;
    bool idLoaded = false;
    bool dataLoaded = false;
    bool hasUpdater = false;
    std::string name;
    std::string description;
    std::string firstText;
    std::string secondText;
    std::string thirdText;
    std::map<unsigned long, unsigned long> shares;  // How many rows, by user.
    std::map<unsigned long, int> access;
    // Of a document or key-value entry.
    unsigned long length = 0;
    int state = 0;
    std::string mimeType;
    std::map<std::string, std::pair<std::string, bool>> keyValues;
};

using ModelEntryPtr = std::shared_ptr<ModelEntry>;

/// Which entries of a delivery a page loses when they are not delivered again.
enum class ModelPart { Whole, Folders, Documents };

/// One listing as the rules for result sets state them, for a few dozen positions: every position
/// is a key, and every question a walk.
class ListingModel {
  public:
    std::vector<ModelEntryPtr> items() const;
    unsigned long count() const { return items().size(); }
    unsigned long total() const { return _total; }
    bool isPageLoaded(unsigned long offset, unsigned long count) const;
    bool isPageCurrent(unsigned long offset, unsigned long count) const;

    void addPage(unsigned long offset, unsigned long count);
    void totalCount(unsigned long total);
    void addItems(unsigned long offset, std::vector<ModelEntryPtr> delivered, ModelPart part);
    void addItem(const ModelEntryPtr& entry, bool front);
    void removeItem(unsigned long id);
    bool removeItemByName(const ModelEntryPtr& entry);

  private:
    /// Without a position in the service's listing.
    struct Addition {
        ModelEntryPtr entry;
        bool counted = false;  // By the last total.
    };
    using Additions = std::vector<Addition>;

    /// From where an entry was taken by name: one end's additions, or a position.
    struct Place {
        Additions ListingModel::*additions = nullptr;  // Null for a position.
        unsigned long index = 0;
        bool held = false;
        bool counted = false;
        ModelEntryPtr entry;
    };

    bool standsAtAPosition(const ModelEntry& entry) const;
    bool contains(const ModelEntry& entry) const;
    std::optional<Place> findByName(const ModelEntryPtr& entry) const;
    bool fillVacancy(const ModelEntryPtr& entry);
    void takeOut(unsigned long position);
    void makeRoom(unsigned long position);
    void shiftEvicted(unsigned long position, unsigned long by);
    void judgeTotal(unsigned long offset, const std::vector<ModelEntryPtr>& delivered);
    void place(unsigned long begin, unsigned long end, std::vector<ModelEntryPtr> delivered);
    void forgetAdditions(const ModelEntry& entry);
    void bringBackEvicted(unsigned long begin, unsigned long end);
    void dropWhatIsBehindTheTotal();

    std::map<unsigned long, ModelEntryPtr> _at;
    std::set<unsigned long> _held;
    std::set<unsigned long> _loaded;
    std::set<unsigned long> _emptyPages;
    Additions _front;
    Additions _back;
    unsigned long _total = 0;
    std::optional<unsigned long> _lastBelieved;
    bool _isBelieved = false;
    bool _isNew = false;       // No delivery has come with the total yet.
    bool _isExplained = true;  // By local edits since the last one.
    unsigned long _removals = 0;
    std::optional<std::pair<unsigned long, unsigned long>> _announced;
    bool _merging = false;
    std::vector<Place> _evicted;
    std::optional<Place> _vacancy;
};

}  // namespace Ormek::Testing
