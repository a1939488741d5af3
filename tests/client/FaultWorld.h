#pragma once

#include <chrono>
#include <functional>
#include <ios>
#include <memory>
#include <string>
#include <vector>

#include "client/Client.h"
#include "tests/support/ScriptedActions.h"
#include "tests/support/SilentOutput.h"

namespace Ormek::Testing {

/// A client, what it serves from, and what was asked of it, for a fault to strike.
///
/// The root holds the folders 10 "music", with the document 30 "song", and 11 "texts", and the
/// documents 20 "a" and 21 "b"; all but the listing of "texts" is held.
class FaultWorld {
  public:
    static constexpr unsigned long Root = ScriptedActions::RootId;
    static constexpr unsigned long Music = 10;
    static constexpr unsigned long Texts = 11;
    static constexpr std::chrono::seconds Patience{20};

    FaultWorld();
    FaultWorld(const FaultWorld&) = delete;
    FaultWorld& operator=(const FaultWorld&) = delete;
    ~FaultWorld();

    /// Keeps a handle, without an allocation.
    void keep(Query query) { queries.push_back(std::move(query)); }
    void keep(Action action) { actions.push_back(std::move(action)); }

    /// Waits, without looking for answers, until one has arrived.
    void awaitAnswer();
    /// Whether another thread can look into the client.
    bool isFree();
    /// Lets everything go on until nothing is under way.
    void settle();
    /// What a folder shows, and what the service has in it.
    std::vector<std::string> shown(unsigned long folderId, const ListOptions& options = {});
    std::vector<std::string> served(unsigned long folderId) { return service.namesIn(folderId); }
    /// How often the outcome of an action was told.
    unsigned long timesTold(const Action& action) const;
    /// Whether an outcome was told of what nobody has a handle for.
    bool toldOfStrangers() const;

  private:
    const SilentOutput _silent{std::ios_base::failbit};
    std::unique_ptr<ScriptedActions> _owned = std::make_unique<ScriptedActions>();

  public:
    ScriptedActions& service = *_owned;
    std::vector<Query> queries;
    std::vector<Action> actions;
    unsigned long made = 0;  // The entry that an arrangement has made.

  private:
    std::vector<unsigned long> _told;  // Operations.
    std::unique_ptr<Client> _client;

  public:
    Client& client;

  private:
    std::unique_ptr<Client> open();
};

/// A call of the client.
struct ClientCall {
    const char* name;
    std::function<void(FaultWorld&)> arrange;
    std::function<void(FaultWorld&)> act;
    /// It undertakes actions: when it throws, the service must not hear of them.
    bool undertakes = false;
    /// Done again after it was done, it is refused by the service, or at once.
    bool onlyOnce = false;
    /// What the service has can be known from what it has said; else a listing must be reloaded.
    bool isTold = true;
};

using ClientCalls = std::vector<ClientCall>;

ClientCalls questions();
ClientCalls undertakings();
ClientCalls answers();
ClientCalls outcomes();
ClientCalls remoteChanges();
ClientCalls switches();

}  // namespace Ormek::Testing
