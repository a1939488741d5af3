#pragma once

#include <memory>
#include <utility>

namespace Ormek {

/// A question that was put to a `Client`: a handle, cheap to copy, to be given back to the client
/// for its answer. Letting go of it gives the answer up; the load goes on. It may outlive the
/// client.
class Query {
  public:
    struct State;

    /// No question; its answer is a failure.
    Query() = default;
    explicit Query(std::shared_ptr<State> state) : _state(std::move(state)) {}

  private:
    friend class Client;

    std::shared_ptr<State> _state;
};

}  // namespace Ormek
