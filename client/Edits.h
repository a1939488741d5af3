#pragma once

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "client/Outcome.h"
#include "service/KeyValues.h"

namespace Ormek {

/// The actions that the service has not answered yet, entry by entry, over what the service says of
/// the entry: what is to be shown is the one with the other applied to it.
///
/// That is what makes a failed action easy to take back under whatever was done since: its step is
/// left out, and the rest applied as before. It is also what a page that was asked for before an
/// action cannot undo.
class Edits {
  public:
    /// What an action can change of an entry.
    struct State {
        unsigned long folderId = 0;
        std::string name;
        Nimra::KeyValues keyValues;

        bool operator==(const State&) const = default;
    };

    /// An action, and what it changes.
    struct Step {
        unsigned long operationId = 0;
        ActionKind kind = ActionKind::Rename;
        State to;  ///< Of a creation all of it, else what the action is about.
    };

    bool has(unsigned long entryId) const { return _entries.contains(entryId); }
    /// Whether the service has an entry with steps.
    bool isServed(unsigned long entryId) const;

    /// Adds a step. `served` is what the service says of the entry, empty for one that it does not
    /// have; looked at only for an entry without steps. Changes nothing when memory runs out.
    void begin(unsigned long entryId, const std::optional<State>& served, Step step);
    /// Gives the step that was added last, with the operation id 0, its own.
    void number(unsigned long entryId, unsigned long operationId) noexcept;
    /// What the service says of an entry with steps now; empty when it has it no longer.
    void served(unsigned long entryId, std::optional<State> served);
    /// The same, told; also empty for an entry without steps.
    std::optional<State> served(unsigned long entryId) const;
    /// Takes a step out and returns what is to be shown from now on. Behind the last step the entry
    /// is no longer known here. When memory runs out for telling, the step is out all the same.
    std::optional<State> end(unsigned long entryId, unsigned long operationId);
    /// What is to be shown of an entry with steps; empty for nothing.
    std::optional<State> shown(unsigned long entryId) const;
    /// The entry to be shown in that folder under that name; 0 when none with steps is.
    unsigned long find(unsigned long folderId, const std::string& name) const;
    /// The entries with steps that are to be shown in a folder.
    std::vector<unsigned long> shownIn(unsigned long folderId) const;
    /// The entries with steps that the service has in a folder.
    std::vector<unsigned long> servedIn(unsigned long folderId) const;
    /// The entry has another id, also as the folder of others. Steps on an entry that has that id
    /// already are joined to its own in the order of their operations.
    void rekey(unsigned long oldId, unsigned long newId);

  private:
    struct Entry {
        std::optional<State> served;
        std::vector<Step> steps;
    };

    static std::optional<State> shown(const Entry& entry);
    static void join(Entry& known, Entry& other);

    std::unordered_map<unsigned long, Entry> _entries;
};

}  // namespace Ormek
