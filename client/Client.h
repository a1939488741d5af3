#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "backend/StorageService.h"
#include "client/Action.h"
#include "client/Answer.h"
#include "client/EventQueue.h"
#include "client/ListOptions.h"
#include "client/Outcome.h"
#include "client/Query.h"
#include "client/Statistics.h"
#include "client/Target.h"
#include "client/WaitingAction.h"

namespace Ormek {

/// The directory cache, ready to use: one object that owns the cache, the service it loads from,
/// the worker that runs the operations and the queue of what has to wait. It merges what arrives,
/// follows ids as the service gives them, and takes back what the service refuses.
///
/// A query returns at once. Its answer is there already when the page is held, else it arrives
/// later: wait for it with a time limit, or call `collect()` whenever `fd()` becomes readable and
/// then poll what is outstanding. With backend/FolderService.h:
///
///     Ormek::Client client(std::make_unique<Nimra::FolderService>("/usr/share"));
///     Ormek::Answer answer = client.wait(client.list(client.rootId()), std::chrono::seconds(5));
///     for (const auto& entry : answer.entries) std::cout << entry->name() << '\n';
///
/// An action returns at once too, and shows at once in every listing. Its outcome arrives later.
/// An action on what the service does not know yet, or while it is off, waits and keeps its place:
/// what follows on the same entries follows it to the service.
///
/// Threads. Every operation may be called from any thread; the calls are serialised. Answers are
/// merged on the thread of whoever looks for one, never behind anybody's back. Entries are shared
/// and live: with several threads calling, look at them inside `read()`. The clock, and whoever
/// waits for operations that were queued under the handler's name by others, are called while the
/// calls are serialised and must not call the client; nor must content that was handed to it, or
/// that it has opened, when it is destroyed.
///
/// Memory. When it runs out, a call throws std::bad_alloc; what it was asked for was not done then,
/// or, of a call that merges answers, goes on. What is under way comes to its outcome or answer in
/// any case, as failed if need be; events may be missing, and what could not be put right is loaded
/// again.
///
/// One client at a time can exist in a process, since the cache finds its operation handler by
/// name; a second one is refused.
///
/// The cache writes its trace to std::cout. A program that does not want it sets that stream's
/// fail bit, or gives it another buffer, before making the client.
class Client {
  public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;
    using Listener = EventQueue::Listener;

    /// Takes the service, asks it for its root folder and starts the worker. Throws
    /// Nimra::ServiceError when the root cannot be had or the system has no descriptor left,
    /// std::system_error when it has no thread, std::logic_error when another client exists,
    /// std::invalid_argument without a service or a clock, or for the user id 0. `userId` says
    /// whose listings these are; `clock` is what answers are timed with.
    explicit Client(std::unique_ptr<Nimra::StorageService> service, unsigned long userId = 1,
                    Clock clock = std::chrono::steady_clock::now);
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    /// Waits for the operation that is running; what is still queued or waiting fails as not
    /// reachable, and subscribers are told. Not to be called by one of them; what they ask for
    /// meanwhile is refused, or answered as offline, and so is what the running operation asks for.
    /// All other calls must have ended before: a change feed is stopped first, unless it reports
    /// from within the service's own calls. The service is destroyed with the client.
    ~Client();

    /// The id of the root folder.
    unsigned long rootId() const;

    // --- Questions. A folder that the cache does not know fails as not found. ----------------

    /// One page of a folder, or of a search in it. A page that is held but no longer current is
    /// loaded again; one that is not held but being loaded already is waited for. Offline, a page
    /// that was ever loaded is answered as it is held, and any other one fails as not reachable,
    /// with what is held of it. One whose load the service had not begun when it was switched
    /// off stays pending until it is on again.
    Query list(unsigned long folderId, const ListOptions& options = {});
    /// One page of the tags of a folder's entries, as the service has them: one that is held is no
    /// longer current once an action on one of the entries was asked for, and again when it is
    /// done. `kind` plays no part.
    Query tags(unsigned long folderId, const ListOptions& options = {});
    /// The entry at a path, such as "a/b", from the root or from a folder. Empty parts and "."
    /// are skipped, ".." is the folder above, the root its own; an empty path is where it starts.
    /// An entry that is held is found even where its folder's listing is in doubt; one that is not
    /// held is loaded by name, without loading the listing; absence is always the service's word.
    /// `Freshness::Reload` loads the last part of the path.
    Query find(const std::string& path, Freshness freshness = Freshness::Cached);
    Query find(unsigned long folderId, const std::string& path,
               Freshness freshness = Freshness::Cached);

    // --- Answers ---------------------------------------------------------------------------

    /// The answer as it stands.
    Answer poll(const Query& query);
    /// The answer, or how it stands when the time is over.
    Answer wait(const Query& query, std::chrono::milliseconds limit);
    /// Merges what has arrived and returns how many answers that were.
    unsigned long collect();
    /// A descriptor that is readable, see poll(2), from when an answer arrives until `collect()` is
    /// called, also when another call has merged it meanwhile.
    int fd() const;

    // --- Actions. --------------------------------------------------------------------------
    // What cannot be right is refused at once: a target that is not held or was removed, the root,
    // a name that is empty, "." or "..", or has a slash or a NUL in it, a folder that is none, a
    // move into the entry itself. Such an action has the operation id 0 and has failed already.
    // Everything else is for the service to judge. Names are bytes.

    /// Makes a document. Its content is asked for its size by this call, and read once, on the
    /// worker's thread; without one the document is empty.
    Action createDocument(const Target& folder, const std::string& name,
                          std::unique_ptr<Nimra::ContentSource> content = nullptr,
                          const Nimra::KeyValues& keyValues = {});
    Action createFolder(const Target& folder, const std::string& name);
    Action rename(const Target& entry, const std::string& newName);
    /// Under the name it has. Refused for the folder that it lies in already.
    Action move(const Target& entry, const Target& folder);
    /// A folder only if it is empty, as the service judges it.
    Action remove(const Target& entry);
    /// Gives the entry these key values; those under other keys stay as the service has them, also
    /// the ones that are not held here.
    Action saveMetaData(const Target& entry, const Nimra::KeyValues& keyValues);
    /// Opens a document's content: `Outcome::stream`.
    Action open(const Target& document);
    /// Opens a session on a document: `Outcome::session`.
    Action openSession(const Target& document);
    /// Ends a session, by a call of the service on this thread, also while it is switched off. A
    /// session that the service does not know does nothing; when it fails otherwise, throws
    /// Nimra::ServiceError.
    void releaseSession(const Nimra::DocumentSession& session);

    /// The outcome as it stands.
    Outcome poll(const Action& action);
    /// The outcome, or how it stands when the time is over.
    Outcome wait(const Action& action, std::chrono::milliseconds limit);
    /// Cancels an action that the service has not begun: it fails as refused, and what needs the
    /// entry that it would have made fails with it. False when it has begun or is not known.
    bool cancel(unsigned long operationId);
    /// The actions that wait for something, in the order they were asked for.
    std::vector<WaitingAction> waiting();
    /// Waits until nothing is under way; what waits offline or for another action does not count.
    /// False when the time was over first.
    bool waitUntilIdle(std::chrono::milliseconds limit);

    /// Switches the service off, and on again. Off, nothing is sent: actions wait, in order, and so
    /// do loads that were asked for before.
    void setOnline(bool online);
    bool online();

    // --- Changes made elsewhere, as a service's change feed reports them. ---------------------
    // Actions under way are kept, and pages that were asked for before take nothing back. What lies
    // in folders that are not held is left out. A record without a server id throws
    // std::invalid_argument, and so does the root's.

    /// The service has a document, or a folder, that is new, renamed, moved or changed otherwise.
    void onRemoteChange(const Nimra::Document& document);
    void onRemoteChange(const Nimra::Folder& folder);
    /// The service no longer has the entry of that id, nor what was in it.
    void onRemoteRemoval(unsigned long id);
    /// Something in a folder has changed, nobody knows what: its listings are loaded again before
    /// they are shown again.
    void onRemoteDoubt(unsigned long folderId);

    // --- Events ----------------------------------------------------------------------------

    /// Has a listener told of every later event, in order, on the thread of whichever call here
    /// brought it about or is telling others already; under no lock, so that it may call the
    /// client. What it throws passes out of that call in the place of its result, be it the handle
    /// of an action that is under way; the others are told by the next one, and `fd()` is readable
    /// until then. An empty listener throws std::bad_function_call when there is something to tell.
    /// Returns an id, never 0.
    unsigned long subscribe(Listener listener);
    /// No later event is told to it. Another thread may be telling it of one still.
    void unsubscribe(unsigned long subscription);

    // --- Looking ---------------------------------------------------------------------------

    /// The entry of that id, or an empty pointer. One that is being removed is still there; it goes
    /// when the service has removed it, when it has moved to where nothing is held, or when a
    /// listing that is known from end to end no longer has it.
    std::shared_ptr<Item> item(unsigned long id);
    /// The path of an entry from the root, "/" for the root itself; empty for an unknown id, and
    /// where a folder above it is not held.
    std::string pathOf(unsigned long id);
    /// Calls `look` while no other thread can change an entry. It must not call the client.
    void read(const std::function<void()>& look);
    Statistics statistics();

  private:
    class Engine;

    template <class Use>
    auto call(Use use);
    void tell();
    template <class IsDone>
    bool waitUntil(std::chrono::milliseconds limit, IsDone isDone);

    std::unique_ptr<Engine> _engine;
};

}  // namespace Ormek
