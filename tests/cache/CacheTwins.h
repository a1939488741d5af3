#pragma once

#include <array>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/CacheModel.h"
#include "tests/support/Fakes.h"
#include "tests/support/TraceCapture.h"

namespace Ormek::Testing {

/// One call of the cache. The number says what it is given, as far as there is a choice.
struct CacheStep {
    unsigned long operation;
    unsigned long number;
};

std::ostream& operator<<(std::ostream& out, const CacheStep& step);

/// The cache and its model, to which the same is done. After every call they are compared: answer,
/// trace, store, directories, operations.
class CacheTwins {
  public:
    CacheTwins();

    /// How many operations there are to choose from. Those that fill the cache come first.
    static unsigned long operations();
    static unsigned long fillingOperations();
    static const char* nameOf(unsigned long operation);

    /// Does one thing to both. A call whose preconditions nothing fulfils does not take place.
    void take(const CacheStep& step);
    /// What the two do not agree on; empty when they do.
    const std::string& difference() const { return _difference; }

  private:
    /// Small numbers drawn from a large one.
    class Draw {
      public:
        explicit Draw(unsigned long seed) : _state(seed) { below(2); }
        unsigned long below(unsigned long end);
        bool oneIn(unsigned long n) { return below(n) == 0; }

      private:
        unsigned long _state;
    };

    /// An object or container that the caller holds, on both sides.
    struct Given {
        std::shared_ptr<ObjectInternal> object;
        std::shared_ptr<ContainerInternal> container;
        ModelEntryPtr model;
    };
    /// A variable of the caller's for a directory, on both sides.
    struct Result {
        std::shared_ptr<QueryResult> real;
        ModelDirectoryPtr model;
    };

    using Call = void (CacheTwins::*)(Draw&);
    struct Operation {
        const char* name;
        Call call;
    };
    static const std::vector<Operation>& table();

    // What calls are given.
    unsigned long anyId(Draw& draw) const { return 1 + draw.below(8); }
    unsigned long anyFolder(Draw& draw) const { return 1 + draw.below(3); }
    unsigned long anyUser(Draw& draw) const { return draw.oneIn(3) ? 0 : 5 + draw.below(2); }
    std::string anyName(Draw& draw) const;
    unsigned long anyLiveId(Draw& draw) const;  // 0 when there is none.
    std::map<std::string, std::pair<std::string, bool>> anyKeyValues(Draw& draw) const;
    ModelFilter anyFilter(Draw& draw) const;
    ModelFilter anyPageOf(Draw& draw, const ModelDirectory& directory) const;
    ModelRecord anyRecord(Draw& draw) const;
    ModelRecord anyTag(Draw& draw) const;
    ModelRecords anyRecords(Draw& draw) const;
    ModelRecords anyTags(Draw& draw) const;
    unsigned long anyTotal(Draw& draw, const ModelFilter& page, unsigned long records) const;
    Given& anyObject(Draw& draw) { return _objects[draw.below(_objects.size())]; }
    Given& anyContainer(Draw& draw) { return _containers[draw.below(_containers.size())]; }
    Result& anyResult(Draw& draw) { return _results[draw.below(_results.size())]; }
    Result anyDirectory(Draw& draw) const;  // Empty when there is none.
    Nimra::ItemEventProtocol* anyListener(Draw& draw);
    std::string nameOf(const Nimra::ItemEventProtocol* listener) const;
    std::string nameOf(const Nimra::DataService* service) const;

    Given makeObject(Draw& draw) const;
    Given makeContainer(Draw& draw) const;

    // The calls.
    void giveObject(Draw& draw);
    void giveContainer(Draw& draw);
    void changeServices(Draw& draw);
    void setServices(Draw& draw);
    void setObjectUpdater(Draw& draw);
    void setOpWithoutIdsQueue(Draw& draw);
    void getItem(Draw& draw);
    void getItemInternal(Draw& draw);
    void itemInCache(Draw& draw);
    void itemInCacheByName(Draw& draw);
    void itemHasChild(Draw& draw);
    void itemCount(Draw& draw);
    void itemsSize(Draw& draw);
    void getChildren(Draw& draw);
    void getDirectoryById(Draw& draw);
    void printAllItems(Draw& draw);
    void castContainer(Draw& draw);
    void castObject(Draw& draw);
    void cacheObject(Draw& draw);
    void cacheObjectPtr(Draw& draw);
    void addObject(Draw& draw);
    void addObjectPtr(Draw& draw);
    void addOrReplaceObjectPtr(Draw& draw);
    void addDocument(Draw& draw);
    void updateObject(Draw& draw);
    void updateObjectMetaData(Draw& draw);
    void getObject(Draw& draw);
    void getObjectFromTag(Draw& draw);
    void cacheKeyValue(Draw& draw);
    void cacheKeyValuePtr(Draw& draw);
    void cacheContainer(Draw& draw);
    void cacheContainerPtr(Draw& draw);
    void cacheItemPtr(Draw& draw);
    void addContainer(Draw& draw);
    void addContainerPtr(Draw& draw);
    void addFolder(Draw& draw);
    void getContainer(Draw& draw);
    void replaceContainer(Draw& draw);
    void itemToFolder(Draw& draw);
    void removeItemFromCache(Draw& draw);
    void removeItem(Draw& draw);
    void removeFolder(Draw& draw);
    void removeContainer(Draw& draw);
    void removeItemFromDirectories(Draw& draw);
    void updateItemId(Draw& draw);
    void updateItemParentIds(Draw& draw);
    void get(Draw& draw);
    void getWithListener(Draw& draw);
    void getKeyValues(Draw& draw);
    void getKeyValuesWithListener(Draw& draw);
    void getDirectory(Draw& draw);
    void getKeyValueDirectory(Draw& draw);
    void add(Draw& draw);
    void loadDirectory(Draw& draw);
    void loadFromService(Draw& draw);
    void filterConverter(Draw& draw);
    void addItems(Draw& draw);
    void addItemsOfFolders(Draw& draw);
    void addItemsOfDocuments(Draw& draw);
    void addKeyValues(Draw& draw);
    void renameItem(Draw& draw);
    void renameDocument(Draw& draw);
    void renameObject(Draw& draw);
    void moveItem(Draw& draw);
    void moveObject(Draw& draw);
    void removeObject(Draw& draw);
    void createObject(Draw& draw);
    void getStreams(Draw& draw);
    void saveMetaData(Draw& draw);
    void getObjectSession(Draw& draw);
    void objectEvent(Draw& draw);
    void onRemoteObjectMoved(Draw& draw);

    // What they answer.
    void answer(const std::string& real, const std::string& model);
    void answer(unsigned long real, unsigned long model);
    void answerEntry(const std::shared_ptr<Item>& real, const ModelEntryPtr& model);
    void answerDirectory(const std::shared_ptr<QueryResult>& real, const ModelDirectoryPtr& model);

    // How the two are compared.
    void compare(const CacheStep& step, const std::string& what, const std::string& real,
                 const std::string& model);
    std::string realState() const;
    std::string modelState() const;
    std::string describe(const Nimra::Operation& operation) const;

    RecordingHandler _handler;
    std::array<QueuedOperationsManager, 2> _queues;
    std::array<std::map<int, Nimra::DataService*>, 2> _services;
    Nimra::DataService _plainService;
    Nimra::DocumentServiceNetwork _network;
    ObjectUpdater _updater;
    std::array<Nimra::ItemEventProtocol, 2> _listeners;
    DirectoryCache _cache;
    DirectoryCacheProbe _probe{_cache};

    std::array<std::vector<ModelOperation>, 2> _modelQueues;
    std::array<ModelServices, 2> _modelServices;
    CacheModel _model;

    std::vector<Given> _objects;
    std::vector<Given> _containers;
    std::vector<Result> _results;

    std::string _realAnswer;
    std::string _modelAnswer;
    std::vector<std::shared_ptr<Item>> _realEntries;
    std::vector<ModelEntryPtr> _modelEntries;
    Result _answered;
    std::string _difference;
};

}  // namespace Ormek::Testing
