#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "client/Client.h"
#include "tests/client/session/Supervisor.h"

namespace Ormek::Testing {

/// What was asked of a client and what became of it. Throws Broken when an action has no outcome or
/// several, or an outcome no action, and when the service has done anything else than the outcomes
/// say, or in another order than was asked.
class ActionBook {
  public:
    struct Asked {
        ActionKind kind = ActionKind::Open;
        unsigned long entryId = 0;
        unsigned long folderId = 0;       ///< Of a creation or a move.
        std::string name = {};            ///< Of a creation or a renaming.
        Nimra::KeyValues keyValues = {};  ///< Of metadata.
        unsigned long content = 0;        ///< Of a creation; 0 for none.
        std::optional<Action> handle = {};
        std::optional<Outcome> outcome = {};  ///< As it was told.
    };

    /// What is to be shown of an entry because of actions without an outcome; empty members for
    /// what these do not concern.
    struct Wanted {
        bool removed = false;
        std::optional<std::string> name;
        std::optional<unsigned long> folderId;
        Nimra::KeyValues keyValues;  ///< Not all that it has.
        unsigned long moves = 0;
        bool created = false;
    };

    /// Actions that were refused at once are left out.
    void ask(const Action& action, Asked asked);
    void take(const Outcome& outcome);
    void take(const EntryIdChanged& event);

    const std::map<unsigned long, Asked>& all() const { return _all; }
    unsigned long current(unsigned long id) const;
    std::vector<unsigned long> pending() const;
    /// By current id, for the entries with actions that have no outcome.
    std::map<unsigned long, Wanted> wanted() const;
    void dropHandles();

    void checkAllHaveOutcomes() const;
    void checkAgainst(const Supervisor& supervisor) const;

  private:
    void checkOrder(const std::vector<Supervisor::Deed>& deeds) const;
    bool fits(const Asked& asked, const Supervisor::Deed& deed) const;

    std::map<unsigned long, Asked> _all;  // By operation id, which is the order of asking.
    std::map<unsigned long, unsigned long> _serverIds;
};

std::string toText(const Outcome& outcome);

}  // namespace Ormek::Testing
