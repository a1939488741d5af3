#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "backend/StorageService.h"
#include "client/Answer.h"
#include "client/ListOptions.h"
#include "client/Query.h"
#include "client/Statistics.h"

namespace Ormek {

/// The directory cache, ready to use: one object that owns the cache, the service it loads from,
/// the worker that runs the loads and the queue of what has to wait, and merges what arrives.
///
/// A query returns at once. Its answer is there already when the page is held, else it arrives
/// later: wait for it with a time limit, or call `collect()` whenever `fd()` becomes readable and
/// then poll what is outstanding. With backend/FolderService.h:
///
///     Ormek::Client client(std::make_unique<Nimra::FolderService>("/usr/share"));
///     Ormek::Answer answer = client.wait(client.list(client.rootId()), std::chrono::seconds(5));
///     for (const auto& entry : answer.entries) std::cout << entry->name() << '\n';
///
/// Threads. Every operation may be called from any thread; the calls are serialised. Answers are
/// merged on the thread of whoever looks for one, never behind anybody's back. Entries are shared
/// and live: with several threads calling, look at them inside `read()`. The clock, and whoever
/// waits for operations that were queued under the handler's name by others, are called while the
/// calls are serialised and must not call the client.
///
/// One client at a time can exist in a process, since the cache finds its operation handler by
/// name; a second one is refused.
///
/// The cache writes its trace to std::cout. A program that does not want it sets that stream's
/// fail bit, or gives it another buffer, before making the client.
class Client {
  public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    /// Takes the service, asks it for its root folder and starts the worker. Throws
    /// Nimra::ServiceError when the root cannot be had, std::logic_error when another client
    /// exists, std::invalid_argument without a service or a clock. `userId` says whose listings
    /// these are; `clock` is what answers are timed with.
    explicit Client(std::unique_ptr<Nimra::StorageService> service, unsigned long userId = 1,
                    Clock clock = std::chrono::steady_clock::now);
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    /// Waits for the operation that is running; what is still queued fails as not reachable.
    ~Client();

    /// The id of the root folder.
    unsigned long rootId() const;

    // --- Questions. A folder that the cache does not know fails as not found. ----------------

    /// One page of a folder, or of a search in it. A page that is held but no longer current is
    /// loaded again; one that is not held but being loaded already is waited for.
    Query list(unsigned long folderId, const ListOptions& options = {});
    /// One page of the tags of a folder's entries; `kind` plays no part.
    Query tags(unsigned long folderId, const ListOptions& options = {});
    /// The entry at a path, such as "a/b", from the root or from a folder. Empty parts and "."
    /// are skipped, ".." is the folder above, the root its own; an empty path is where it starts.
    /// An entry that is not held is loaded by name, without loading the listing; absence is always
    /// the service's word. `Freshness::Reload` loads the last part of the path.
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

    // --- Looking ---------------------------------------------------------------------------

    /// The entry of that id, or an empty pointer.
    std::shared_ptr<Item> item(unsigned long id);
    /// The path of an entry from the root, "/" for the root itself; empty for an unknown id.
    std::string pathOf(unsigned long id);
    /// Calls `look` while no other thread can change an entry. It must not call the client.
    void read(const std::function<void()>& look);
    Statistics statistics();

  private:
    class Engine;

    std::unique_ptr<Engine> _engine;
};

}  // namespace Ormek
