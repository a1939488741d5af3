#pragma once

#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "backend/FileDescriptor.h"
#include "backend/StorageService.h"
#include "backend/Worker.h"
#include "cache/DirectoryCache.h"
#include "client/ActionState.h"
#include "client/Client.h"
#include "client/Edits.h"
#include "client/EventQueue.h"
#include "client/Listings.h"
#include "client/QueryState.h"

namespace Ormek {

/// What a `Client` is made of. Nothing here locks: the client holds `mutex` around every call, and
/// the worker's answers are collected under it too. Only `events` has a lock of its own.
///
/// The worker takes one operation at a time, in order, and reports in that order. So a page that
/// arrives while an action has no outcome is how things were before that action, and an outcome
/// says how things are after all actions before it.
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
    /// Makes `fd()` readable.
    void wake() noexcept;
    int fd() const { return _readable.get(); }

    /// Takes the content, unless it refuses.
    Action createDocument(const Target& folder, const std::string& name,
                          std::unique_ptr<Nimra::ContentSource>& content, unsigned long length,
                          const Nimra::KeyValues& keyValues);
    Action createFolder(const Target& folder, const std::string& name);
    Action rename(const Target& target, const std::string& newName);
    Action move(const Target& target, const Target& folder);
    Action remove(const Target& target);
    Action saveMetaData(const Target& target, const Nimra::KeyValues& keyValues);
    Action open(const Target& target);
    Action openSession(const Target& target);
    void releaseSession(const Nimra::DocumentSession& session);
    bool cancel(unsigned long operationId);
    std::vector<WaitingAction> waiting();
    void setOnline(bool online);
    bool online() const { return !_ended && !_worker.paused(); }
    /// From now on nothing can be undertaken, and questions are answered as offline.
    void end() { _ended = true; }
    /// Concludes whatever has no outcome. The worker must have been stopped.
    void concludeAll() noexcept;

    void onRemoteChange(Nimra::Document document);
    void onRemoteChange(Nimra::Folder folder);
    void onRemoteRemoval(unsigned long id);
    void onRemoteDoubt(unsigned long folderId);

    std::shared_ptr<Item> item(unsigned long id);
    std::string pathOf(unsigned long id);
    Statistics statistics();

    std::mutex mutex;
    EventQueue events;

  private:
    using Directory = std::shared_ptr<QueryResult>;
    using Values = std::optional<EntryValues>;
    using Shown = std::optional<Edits::State>;

    enum class LoadKind { Listing, Tags, LookUp };

    using Waiter = std::weak_ptr<Query::State>;

    struct Load {
        LoadKind kind;
        FilterInternal filter;
        Directory directory;
        std::vector<Waiter> waiters;
        unsigned long newsBefore = 0;  // As many changes were told when it was asked for.
        bool doubted = false;          // What it brings may be how things were before a change.
    };

    // An action without an outcome.
    struct Undertaking {
        ActionKind kind;
        unsigned long entryId;
        std::weak_ptr<Action::State> state;
        EventQueue::Room room;  // For its outcome.
    };
    using Undertakings = std::map<unsigned long, Undertaking>;  // By operation id.

    // What an outcome carries besides success.
    struct Result {
        std::optional<Nimra::ServiceError> error;
        std::shared_ptr<Nimra::DocumentStream> stream;
        std::optional<Nimra::DocumentSession> session;
    };

    // Folders whose listings, but the one that is being merged, are no longer right.
    using Outdated = std::set<unsigned long>;

    // What was shown of entries before something happened to them.
    using Before = std::vector<std::pair<unsigned long, Values>>;

    // Refuses a second client for as long as the first one lives.
    class OnlyOne {
      public:
        OnlyOne();
        OnlyOne(const OnlyOne&) = delete;
        OnlyOne& operator=(const OnlyOne&) = delete;
        ~OnlyOne();
    };

    // --- Answers of the worker -------------------------------------------------------------

    void pageLoaded(unsigned long operationId, const Nimra::ItemFilter& filter,
                    Nimra::Page& page) override;
    void finished(unsigned long operationId, const Nimra::Document& document) override;
    void streamsOpened(unsigned long operationId, const Nimra::Document& document,
                       std::shared_ptr<Nimra::DocumentStream> stream) override;
    void sessionOpened(unsigned long operationId, const Nimra::DocumentSession& session) override;
    void failed(unsigned long operationId, const Nimra::ServiceError& error) override;
    void progress(unsigned long operationId, unsigned long done, unsigned long total) override;

    bool concludeFirstParked();

    // --- Questions (Engine.cpp) ------------------------------------------------------------

    State ask();
    bool isFolder(unsigned long id);
    FilterInternal filterFor(unsigned long folderId) const;
    FilterInternal filterFor(unsigned long folderId, const ListOptions& options) const;
    bool isWhole(const FilterInternal& filter) const;
    void noteWhole(const FilterInternal& filter, const Directory& directory);
    void answerLocally(const State& state, const FilterInternal& filter);
    void hideRemoved(unsigned long folderId);
    void answerOffline(const State& state, const Directory& directory,
                       const FilterInternal& filter);

    void walk(const State& state);
    static std::deque<std::string> partsOf(const std::string& path);
    std::shared_ptr<Item> heldEntry(unsigned long folderId, const std::string& name);
    void lookUp(const State& state, unsigned long folderId, const std::string& name);
    void lookedUp(const State& state, const Directory& directory);
    void doubtListing(unsigned long folderId, const std::string& name);

    void answer(const State& state, const QueryResult& directory, const FilterInternal& filter);
    static void fill(Answer& answer, const QueryResult& directory, const FilterInternal& filter);
    void answer(const State& state, const std::shared_ptr<Item>& entry);
    void finish(const State& state, AnswerState outcome);
    void fail(const State& state, const Nimra::ServiceError& error);
    static void failWithoutWords(Query::State& state) noexcept;

    // --- Loads and what they bring (EngineLoads.cpp) ----------------------------------------

    static QueryResultInternal& internalOf(const Load& load);
    static bool isCurrent(const Directory& directory, const FilterInternal& filter);
    static bool isComplete(const Directory& directory);
    bool join(const State& state, const FilterInternal& filter);
    template <class Conclude>
    void concludeEach(const Load& load, Conclude conclude);
    void await(const State& state, LoadKind kind, const FilterInternal& filter,
               const Directory& directory, unsigned long operationId);
    void reload(const State& state, LoadKind kind, FilterInternal filter, Directory directory);
    Load takeLoad(unsigned long operationId);
    void loadFailed(const Load& load, const Nimra::ServiceError& error);

    void receivePage(const Load& load, Nimra::Page& page);
    bool isOutdated(const Load& load, const Nimra::Page& page) const;
    bool isNews(unsigned long id, const Load& load) const;
    void keepNews(const Load& load, Nimra::Page& page);
    template <class Record>
    void keepNews(const Load& load, std::vector<Record>& records);
    template <class Record>
    bool update(Record& record, unsigned long folderId);
    void keepArrivals(const Load& load);

    void mergePage(const Load& load, Nimra::Page& page, Outdated& outdated);
    void mergeEntries(const Load& load, Nimra::Page& page, Outdated& outdated);
    void addToCache(const Load& load, Nimra::Page& page);
    template <class Record>
    void receive(Record& record, Outdated& outdated);
    void setArrivalsAside(const Load& load);
    void keepEdits(const Load& load, const std::vector<unsigned long>& delivered);
    static std::vector<std::shared_ptr<Item>> standing(const Load& load, unsigned long total);
    bool doubtDelivered(const Load& load, const std::vector<unsigned long>& delivered);
    static std::optional<unsigned long> heldOutside(const Load& load, unsigned long total);
    void tellUnexplained(const Load& load, Outdated& outdated);
    static bool stillHeld(const Load& load, std::optional<unsigned long> id);
    void doubtVanished(const Load& load, const std::vector<std::shared_ptr<Item>>& stood);
    void doubt(unsigned long folderId, unsigned long id);
    void dropVanished(const Load& load);
    void believe(unsigned long folderId, unsigned long id) noexcept;
    void forgetFound(unsigned long folderId, unsigned long id = 0) noexcept;
    void refreshFolder(const Nimra::Folder& folder);
    void refreshTags(const std::vector<Nimra::Tag>& tags);
    static void refreshObject(ObjectInternal& object, const Nimra::Document& record);

    // --- Changes made elsewhere (EngineChanges.cpp) -----------------------------------------

    template <class Record>
    void changeElsewhere(Record record);
    void loseElsewhere(unsigned long id);
    void noteNews(unsigned long id);
    void doubtLoads(unsigned long folderId);
    void doubtPages(unsigned long folderId);
    void doubtTags(unsigned long folderId, unsigned long id) noexcept;
    void doubtLookUps(const Item& item);
    std::shared_ptr<Item> bringIn(Nimra::Document& document);
    std::shared_ptr<Item> bringIn(Nimra::Folder& folder);

    // --- Actions and outcomes (EngineActions.cpp) -------------------------------------------

    std::shared_ptr<Item> held(const Target& target);
    std::shared_ptr<Item> heldByPath(const std::string& path);
    std::shared_ptr<Item> heldIn(unsigned long folderId, const std::string& name);
    std::shared_ptr<Item> actedOn(const Target& target);
    std::shared_ptr<Item> folderFor(const Target& target);
    bool isWithin(unsigned long id, unsigned long folderId);

    template <class Attempt>
    Action attempt(ActionKind kind, Attempt attempt);
    template <class Send>
    Action undertake(ActionKind kind, const std::shared_ptr<Item>& item, const Edits::State& to,
                     Send send);
    unsigned long sendCreation(const Nimra::Document& record);
    void takeBack(unsigned long id, unsigned long operationId) noexcept;
    void giveUp(unsigned long id, unsigned long operationId) noexcept;
    unsigned long userFor(const std::vector<unsigned long>& ids) const;
    void release() noexcept;
    void send(std::unique_ptr<Nimra::Operation> operation) noexcept;

    Undertakings takeUndertaking(unsigned long operationId) noexcept;
    void forgetId(unsigned long id);
    bool applyTwice(const Undertaking& undertaking, unsigned long operationId,
                    const Nimra::Document& record) noexcept;
    void applySuccess(const Undertaking& undertaking, unsigned long operationId,
                      const Nimra::Document& record);
    void refreshFrom(unsigned long id, Nimra::Document record, const Edits::State& shown);
    void giveServerId(unsigned long localId, unsigned long serverId);
    void failAction(unsigned long operationId, Undertakings failing,
                    const Nimra::ServiceError& error) noexcept;
    static Nimra::ServiceError reasonFor(const Nimra::ServiceError& error) noexcept;
    void addWaitingFor(const Undertaking& undertaking, Undertakings& failing) noexcept;
    void dropContent(const Undertaking& undertaking);
    void undo(const Undertakings& failing, Nimra::Reason reason) noexcept;
    void undo(const Undertaking& undertaking, unsigned long operationId,
              Nimra::Reason reason) noexcept;
    void conclude(Undertaking& undertaking, unsigned long operationId, Result result) noexcept;
    static void keep(const Outcome& outcome, Outcome& kept) noexcept;

    // --- What is shown of entries (EngineView.cpp) ------------------------------------------

    /// The id that an entry has by now.
    unsigned long current(unsigned long id) const { return _parked.serverId(id); }
    bool isHidden(unsigned long id) const;
    Shown shownOf(unsigned long id);
    Shown servedOf(unsigned long id);
    Values valuesOf(unsigned long id);
    void show(unsigned long id, const Shown& was, const Shown& now);
    void showFolder(const std::shared_ptr<Item>& item, bool wasShown, unsigned long folderId);
    void leave(const Item& item, unsigned long folderId);
    void lose(unsigned long id);
    void drop(unsigned long id) noexcept;
    void loseWhatIsIn(unsigned long folderId);
    bool isFolderHeld(unsigned long id);
    void invalidate(unsigned long folderId, const QueryResult* except = nullptr) noexcept;
    Before before(const std::vector<unsigned long>& ids);
    void tell(const Before& before, bool ofArrivals = true) noexcept;
    void tellOf(unsigned long id, const Values& was, bool ofArrivals);

    OnlyOne _onlyOne;
    // Made beforehand, to be told without memory.
    const Nimra::ServiceError _outOfMemory{Nimra::Reason::Internal, "out of memory"};
    const Nimra::ServiceError _noIdGiven{Nimra::Reason::Internal,
                                         "the service gave no id to what it made"};
    const Nimra::ServiceError _cancelled{Nimra::Reason::Refused, "cancelled before it was started"};
    const Nimra::ServiceError _shutDown{Nimra::Reason::NotReachable,
                                        "the service was shut down before this was started"};
    std::unique_ptr<Nimra::StorageService> _service;
    unsigned long _userId;
    Clock _clock;
    std::map<int, Nimra::DataService*> _services;
    ObjectUpdater _updater;
    QueuedOperationsManager _parked;
    DirectoryCache _cache;
    Listings _listings{_cache};
    Edits _edits;
    unsigned long _rootId = 0;
    std::map<unsigned long, Load> _loads;  // By operation id.
    // The entries that were told of while a load was under way, and by which of all changes.
    std::map<unsigned long, unsigned long> _news;
    unsigned long _newsCount = 0;
    Undertakings _undertakings;
    // Where an entry was found last. It may have moved or gone since: look before trusting it.
    std::map<std::pair<unsigned long, std::string>, unsigned long> _found;
    // By folder. They are in the cache, but the service may not have them there any more.
    std::map<unsigned long, std::set<unsigned long>> _doubtful;
    Statistics _statistics;
    bool _ended = false;
    bool _releasing = false;
    Nimra::Worker _worker;
    Nimra::FileDescriptor _merged;    // An eventfd(2): answers were merged by another call.
    Nimra::FileDescriptor _readable;  // An epoll(7) over the worker's descriptor and this one.
};

}  // namespace Ormek
