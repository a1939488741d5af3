#include "apps/Pages.h"

#include <limits>
#include <optional>

namespace App {

namespace {

class Walk {
  public:
    Walk(Session& session, const Listing& listing, Cost cost)
        : _session(session), _listing(listing), _cost(cost) {}

    void page(const Ormek::ListOptions& options) {
        _session.console().checkWanted();
        const Ormek::Answer answer = _session.answerTo(_listing.ask(options));
        _cost.add(answer);
        _steady = _steady && (!_total || *_total == answer.total);
        _total = answer.total;
        _shown += _listing.show(answer.entries);
    }

    /// Whether the total stayed the same all the way.
    bool everyPage(Ormek::ListOptions options) {
        constexpr std::uint64_t Last = std::numeric_limits<std::uint32_t>::max();
        _total.reset();
        _steady = true;
        std::uint64_t offset = options.offset;
        do {
            options.offset = static_cast<std::uint32_t>(offset);
            page(options);
            offset += options.count;
            _session.console().showProgress(_shown, *_total);
        } while (offset < *_total && offset <= Last);
        return _steady;
    }

    void printStatus() { _session.console().printStatus(_shown, _total.value_or(0), _cost); }

  private:
    Session& _session;
    const Listing& _listing;
    Cost _cost;
    std::size_t _shown = 0;
    std::optional<unsigned long> _total;
    bool _steady = true;
};

// Clears the progress on every way out.
class ProgressLine {
  public:
    explicit ProgressLine(Session& session) : _session(session) {}
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;
    ~ProgressLine() { _session.console().clearProgress(); }

  private:
    Session& _session;
};

void walkEveryPage(Session& session, Walk& walk, Ormek::ListOptions options) {
    // A listing that never rests is shown as well as it can be.
    constexpr int Attempts = 5;
    const ProgressLine progress(session);
    for (int attempt = 0; attempt < Attempts && !walk.everyPage(options); ++attempt) {
        options.freshness = Ormek::Freshness::Cached;
    }
}

}  // namespace

void showPages(Session& session, const Listing& listing, Ormek::ListOptions options, Extent extent,
               Cost cost) {
    Walk walk(session, listing, cost);
    if (extent == Extent::OnePage) {
        walk.page(options);
    } else {
        walkEveryPage(session, walk, options);
    }
    walk.printStatus();
}

}  // namespace App
