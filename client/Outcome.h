#pragma once

#include <memory>
#include <optional>

#include "client/EntryValues.h"
#include "service/DocumentSession.h"
#include "service/DocumentStream.h"
#include "service/ServiceError.h"

namespace Ormek {

enum class ActionKind {
    CreateDocument,
    CreateFolder,
    Rename,
    Move,
    Remove,
    SaveMetaData,
    Open,
    OpenSession,
};

enum class ActionState {
    Pending,  ///< Under way, or waiting for something: see `Client::waiting`.
    Done,     ///< The service has done it.
    Failed,   ///< It has not, and what was shown meanwhile was taken back.
};

/// What became of an action, or how it stands.
struct Outcome {
    ActionState state = ActionState::Pending;
    ActionKind kind = ActionKind::Open;
    unsigned long operationId = 0;  ///< 0 for an action that was refused at once.
    /// What it was done to, under the id it has now; 0 for an action that was refused at once.
    unsigned long entryId = 0;
    /// What the entry says now, actions under way included; empty when it is gone: removed, or, of
    /// a creation that failed, never made; or when memory did not suffice.
    std::optional<EntryValues> entry;
    std::optional<Nimra::ServiceError> error;       ///< Of a failed action.
    std::shared_ptr<Nimra::DocumentStream> stream;  ///< Of a document that was opened.
    std::optional<Nimra::DocumentSession> session;  ///< Of a session that was opened.
};

}  // namespace Ormek
