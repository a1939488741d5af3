#pragma once

#include <memory>
#include <utility>

namespace Ormek {

/// An action that was asked of a `Client`: a handle, cheap to copy, to be given back to the client
/// for its outcome. Letting go of it changes nothing about the action. It may outlive the client.
class Action {
  public:
    struct State;

    /// No action; its outcome is a failure.
    Action() = default;
    Action(std::shared_ptr<State> state, unsigned long operationId, unsigned long entryId)
        : _state(std::move(state)), _operationId(operationId), _entryId(entryId) {}

    /// 0 for an action that was refused at once.
    unsigned long operationId() const { return _operationId; }
    /// What it is done to; 0 for an action that was refused at once. Of a creation the new entry,
    /// under a local id (service/LocalIds.h), which the client goes on taking for it when the
    /// service has given it another one, until it is removed.
    unsigned long entryId() const { return _entryId; }

  private:
    friend class Client;

    std::shared_ptr<State> _state;
    unsigned long _operationId = 0;
    unsigned long _entryId = 0;
};

}  // namespace Ormek
