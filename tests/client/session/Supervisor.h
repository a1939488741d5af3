#pragma once

#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "service/ServiceError.h"

namespace Ormek::Testing {

/// What a service can be called for.
enum class Call { Load, Create, MakeFolder, Move, Remove, Rename, Open, SaveMetaData, Session };

/// Decides when a service may go on and which of its calls fail, and writes down what it has done.
/// So a session is the same whenever it is repeated, although the service works on a thread of its
/// own. Safe to call from any thread.
class Supervisor {
  public:
    /// A call that has taken effect.
    struct Deed {
        Call call;
        unsigned long id;        ///< Of what was made, too.
        unsigned long folderId;  ///< Of a creation or a move.
        std::string name;        ///< Of a creation or a renaming.
    };

    /// Holds every call from now on until it is let pass.
    void close();
    /// Holds none.
    void open();
    void letPassOne();
    /// The next call of that kind for which nothing is planned fails with this, and has no effect.
    void failNext(Call call, Nimra::ServiceError error);

    /// For the service: waits until it may go on, and throws what was planned. Its tree is its own
    /// while it has what this returns.
    std::unique_lock<std::mutex> enter(Call call);
    void note(Deed deed);

    /// The same for somebody else who changes the tree.
    std::unique_lock<std::mutex> interrupt();

    /// What was done so far, in order, but for loads and openings.
    std::vector<Deed> deeds() const;
    /// How many calls of a kind have taken effect.
    unsigned long done(Call call) const;
    /// How many calls were let pass, and how many of them were made to fail.
    unsigned long passed() const;
    unsigned long madeToFail() const;

  private:
    std::mutex _tree;
    mutable std::mutex _mutex;
    std::condition_variable _mayPass;
    bool _open = true;
    unsigned long _tickets = 0;
    std::map<Call, std::deque<Nimra::ServiceError>> _planned;
    std::vector<Deed> _deeds;
    std::map<Call, unsigned long> _done;
    unsigned long _passed = 0;
    unsigned long _failed = 0;
};

}  // namespace Ormek::Testing
