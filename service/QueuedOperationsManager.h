#pragma once

#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "service/Operation.h"

namespace Ormek {

/// Where operations are parked, in order, while an item they need has no server id or the user is
/// not known. Ids inside them are put right as they become known; what is ready then leaves.
///
/// Its owner tells it what has become known and hands on what leaves: it calls nobody itself. Safe
/// to call from any thread. When a call throws, nothing has left and nothing parked is lost.
class QueuedOperationsManager {
  public:
    using Operations = std::list<std::unique_ptr<Nimra::Operation>>;

    enum class Kind {
        Create,
        Move,
        Remove,
        Rename,
        Streams,
        SaveMetaData,
        Load,
        Session,
        Other,
    };

    /// A parked operation and what it waits for.
    struct Waiting {
        unsigned long operationId = 0;
        Kind kind = Kind::Other;
        std::vector<unsigned long> localIds;  ///< Each once: items whose server ids it needs.
        bool forUser = false;
        /// It has no id at all where it needs one, the folder of a creation or what a load is to
        /// list: nothing that becomes known helps, it can only be cancelled.
        bool forLackingId = false;
        /// An earlier operation that names an item it names too still waits.
        bool forEarlier = false;

        bool ready() const { return localIds.empty() && !forUser && !forLackingId && !forEarlier; }
    };

    QueuedOperationsManager() = default;
    QueuedOperationsManager(const QueuedOperationsManager&) = delete;
    QueuedOperationsManager& operator=(const QueuedOperationsManager&) = delete;
    virtual ~QueuedOperationsManager();

    /// Takes ownership of the operation, which must not be null, from the first instruction on:
    /// when this throws, the operation is gone. What is known already is put right in it, too. A
    /// creation is parked before what needs the document that it creates. The cache still reads the
    /// operation's id when this has returned: whoever takes it keeps it until the cache's call is
    /// over, too.
    virtual void push(Nimra::Operation* operation);
    /// Number of parked operations.
    virtual unsigned long size() const;

    /// What is parked, in order, to look at; each is valid while it stays parked, and its ids may
    /// change while another thread tells what has become known.
    std::vector<Nimra::Operation*> operations() const;
    /// What is parked, in order, with what each waits for.
    std::vector<Waiting> waiting() const;

    /// An item has its server id. Throws std::invalid_argument when `localId` is no local id, or
    /// `serverId` is one or is 0.
    void idKnown(unsigned long localId, unsigned long serverId);
    /// An item is gone for good: its local id, if it had one, no longer stands for this one.
    void idGone(unsigned long serverId);
    /// The user is known, and takes the place of the user id 0. Throws std::invalid_argument for 0.
    void userKnown(unsigned long userId);

    /// The server id that has become known for a local one; any other id as it is.
    unsigned long serverId(unsigned long id) const;
    /// Whether a parked operation names one of these items: none that names it too may overtake it.
    bool names(const std::vector<unsigned long>& ids) const;

    /// Whatever is ready, in order. None overtakes an earlier one that names an item it names too:
    /// a document, a folder, either folder of a move, what a load lists. To be asked for after
    /// every other call that changes something here.
    Operations takeReady();
    /// For when `localId` will never be known: whatever needs it, in order, and whatever needs a
    /// document that one of these would have created. Needs no memory: what was not made comes to
    /// an end in any case.
    Operations takeWaitingFor(unsigned long localId);
    /// The first one, whatever it waits for; empty when nothing is parked. Needs no memory either.
    std::unique_ptr<Nimra::Operation> takeFirst();
    /// The operation of that id; empty when it is not parked. What needs the document that it would
    /// have created stays. What is parked behind a move, on the same item, looks for it where it
    /// stays.
    std::unique_ptr<Nimra::Operation> cancel(unsigned long operationId);

  private:
    void putRight(Nimra::Operation& operation) const noexcept;
    void putAllRight() noexcept;
    unsigned long known(unsigned long id) const noexcept;
    std::vector<Waiting> assess() const;
    bool isLost(const Nimra::Operation& operation, unsigned long localId,
                unsigned long links) const noexcept;
    void putRightBehind(Operations::iterator cancelled);
    std::unique_ptr<Nimra::Operation> extract(Operations::iterator operation) noexcept;

    mutable std::mutex _mutex;
    Operations _operations;
    bool _anyReady = false;  // False when certainly none is: looking would be in vain.
    std::map<unsigned long, unsigned long> _serverIds;  // By local id.
    std::map<unsigned long, unsigned long> _localIds;   // By server id.
    unsigned long _userId = 0;
};

}  // namespace Ormek
