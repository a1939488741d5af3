#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "apps/CommandError.h"
#include "apps/Console.h"
#include "client/Client.h"
#include "client/Event.h"

namespace App {

/// An action that was asked of the client, and how to speak of it.
struct Deed {
    Ormek::Action action;
    std::string doing;  ///< Such as "renaming 'a' to 'b'".
    /// What its failure has put back, such as "'b' is 'a' again". May be empty.
    std::function<std::string(const Ormek::Outcome&)> putBack;
};

/// What was begun and has no outcome yet, and the waiting for answers. It listens to the client;
/// what it hears is said by `report()`, and so never in the middle of something else.
class Actions {
  public:
    Actions(Ormek::Client& client, Console& console);
    Actions(const Actions&) = delete;
    Actions& operator=(const Actions&) = delete;
    ~Actions();

    /// Says what is being done, and remembers it until its outcome has come. Throws CommandError
    /// when the client has refused it at once.
    void begin(Deed deed);
    /// Cancels what was begun; false when it is too late for that, or nothing of that number was.
    bool cancel(unsigned long operationId);
    /// Waits for the answer to a query or the outcome of an action, for as long as it is wanted.
    /// Throws CommandError when there is none in time; while an upload goes on, there is time.
    template <class Handle>
    auto await(const Handle& handle);
    /// The outcome of an action that nobody else needs: when it is not waited for any more, it is
    /// cancelled. Throws CommandError when it is a failure, and when the service is off.
    Ormek::Outcome outcomeOf(const Ormek::Action& action);

    /// Readable, see poll(2), when something may have come.
    int fd() const { return _client.fd(); }
    /// Takes what has come meanwhile, so that what has waited for it goes on. Whether there is
    /// something to report.
    bool hasNews();
    /// Says what has come meanwhile: outcomes, and events if they are wanted.
    void report();
    /// Reports until nothing is under way. Throws CommandError when that is not wanted any more.
    void settle();
    /// Reports until nothing that was begun is under way, or Ctrl-C is pressed. What has no outcome
    /// then is cancelled and said to be lost. Returns whether nothing was lost and nothing has
    /// failed since this was called last.
    bool finish();
    /// Whether anything was lost so far.
    bool hasLost() const { return _hasLost; }

    /// Prints what waits, and for what.
    void printParked();
    void wantEvents(bool wanted) { _eventsWanted = wanted; }
    /// Gives away the session that was opened on a document; waits for one that is being opened.
    std::optional<Nimra::DocumentSession> takeSession(const std::shared_ptr<Ormek::Item>& document);
    /// Becomes true when uploads are to end, however far they are.
    std::shared_ptr<const std::atomic<bool>> givenUp() const { return _givenUp; }

  private:
    using Clock = std::chrono::steady_clock;

    struct Begun {
        Deed deed;
        bool cancelled = false;
    };

    /// Ctrl-C does not wake whoever waits, so that it is looked for now and then.
    static constexpr std::chrono::milliseconds Patience{100};

    std::chrono::milliseconds timeLeft(Clock::time_point since) const;
    void checkOnline();
    void hear(const Ormek::Event& event);
    void conclude(const Ormek::Outcome& outcome);
    bool isUnderWay();
    /// False when there is none.
    bool showUpload();
    std::string describe(const Ormek::WaitingAction& waiting);
    void loseRest();
    void lose(unsigned long operationId, const std::string& text);

    Ormek::Client& _client;
    Console& _console;
    std::map<unsigned long, Begun> _begun;                      ///< By operation.
    std::map<unsigned long, Nimra::DocumentSession> _sessions;  ///< By document.
    std::deque<Ormek::Event> _news;
    bool _eventsWanted = false;
    std::optional<Ormek::ActionProgress> _upload;  ///< The one that is under way.
    Clock::time_point _lastProgress;
    bool _hasFailed = false;
    bool _hasLost = false;
    std::shared_ptr<std::atomic<bool>> _givenUp = std::make_shared<std::atomic<bool>>(false);
    unsigned long _subscription;
};

template <class Handle>
auto Actions::await(const Handle& handle) {
    const Clock::time_point begin = Clock::now();
    bool shown = false;
    while (true) {
        _console.checkWanted();
        auto result = _client.wait(handle, std::min(timeLeft(begin), Patience));
        if (result.state != decltype(result.state)::Pending) {
            if (shown) {
                _console.clearProgress();
            }
            return result;
        }
        // Asked for now: the wait may have brought a sign that an upload goes on.
        if (timeLeft(begin) <= std::chrono::milliseconds::zero()) {
            throw CommandError("no answer in time");
        }
        shown = showUpload() || shown;
    }
}

}  // namespace App
