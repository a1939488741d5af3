#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "backend/FileDescriptor.h"
#include "backend/StorageService.h"
#include "backend/Worker.h"
#include "cache/DirectoryCache.h"
#include "client/Client.h"
#include "client/QueryState.h"

namespace Ormek {

/// What a `Client` is made of. Nothing here locks: the client holds `mutex` around every call, and
/// the worker's answers are collected under it too.
class Client::Engine : private Nimra::ItemEventProtocol {
  public:
    using State = std::shared_ptr<Query::State>;

    Engine(std::unique_ptr<Nimra::StorageService> service, unsigned long userId, Clock clock);
    ~Engine() override;

    unsigned long rootId() const { return _rootId; }
    Nimra::Worker& worker() { return _worker; }

    State list(unsigned long folderId, const ListOptions& options);
    State tags(unsigned long folderId, const ListOptions& options);
    State find(unsigned long folderId, const std::string& path, Freshness freshness);
    /// Merges what has arrived.
    unsigned long merge();
    /// The same, for whoever is told by `fd()`, which is not readable afterwards.
    unsigned long collect();
    int fd() const { return _readable.get(); }

    std::shared_ptr<Item> item(unsigned long id);
    std::string pathOf(unsigned long id);
    Statistics statistics();

    std::mutex mutex;

  private:
    using Directory = std::shared_ptr<QueryResult>;

    enum class LoadKind { Listing, Tags, LookUp };

    using Waiter = std::weak_ptr<Query::State>;

    struct Load {
        LoadKind kind;
        FilterInternal filter;
        Directory directory;
        std::vector<Waiter> waiters;
    };

    // Refuses a second client for as long as the first one lives.
    class OnlyOne {
      public:
        OnlyOne();
        OnlyOne(const OnlyOne&) = delete;
        OnlyOne& operator=(const OnlyOne&) = delete;
        ~OnlyOne();
    };

    void pageLoaded(unsigned long operationId, const Nimra::ItemFilter& filter,
                    Nimra::Page& page) override;
    void failed(unsigned long operationId, const Nimra::ServiceError& error) override;

    State ask();
    bool isFolder(unsigned long id);
    FilterInternal filterFor(unsigned long folderId) const;
    FilterInternal filterFor(unsigned long folderId, const ListOptions& options) const;

    bool join(const State& state, const FilterInternal& filter);
    template <class Conclude>
    void concludeEach(const Load& load, Conclude conclude);
    void await(const State& state, LoadKind kind, const FilterInternal& filter,
               const Directory& directory, unsigned long operationId);
    void reload(const State& state, LoadKind kind, FilterInternal filter, Directory directory);
    Load takeLoad(unsigned long operationId);

    void mergePage(const Load& load, Nimra::Page& page);
    void refreshFolders(const std::vector<Nimra::Folder>& folders);
    void refreshTags(const std::vector<Nimra::Tag>& tags);

    void walk(const State& state);
    std::shared_ptr<Item> heldEntry(unsigned long folderId, const std::string& name);
    void lookUp(const State& state, unsigned long folderId, const std::string& name);
    void lookedUp(const State& state, const Directory& directory);

    void doubtListing(unsigned long folderId, const std::string& name);

    void answer(const State& state, const QueryResult& directory, const FilterInternal& filter);
    void answer(const State& state, const std::shared_ptr<Item>& entry);
    void finish(const State& state, AnswerState outcome);
    void fail(const State& state, const Nimra::ServiceError& error);
    static void failWithoutWords(Query::State& state) noexcept;

    OnlyOne _onlyOne;
    std::unique_ptr<Nimra::StorageService> _service;
    unsigned long _userId;
    Clock _clock;
    std::map<int, Nimra::DataService*> _services;
    ObjectUpdater _updater;
    QueuedOperationsManager _parked;
    DirectoryCache _cache;
    unsigned long _rootId = 0;
    std::map<unsigned long, Load> _loads;                    // By operation id.
    std::unordered_map<unsigned long, Directory> _listings;  // Whole folders, by folder id.
    // Where an entry was found last. It may have moved or gone since: look before trusting it.
    std::map<std::pair<unsigned long, std::string>, unsigned long> _found;
    Statistics _statistics;
    Nimra::Worker _worker;
    Nimra::FileDescriptor _merged;    // An eventfd(2): answers were merged by another call.
    Nimra::FileDescriptor _readable;  // An epoll(7) over the worker's descriptor and this one.
};

}  // namespace Ormek
