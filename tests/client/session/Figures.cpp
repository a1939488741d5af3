#include "tests/client/session/Figures.h"

#include <ostream>

namespace Ormek::Testing {

std::ostream& operator<<(std::ostream& stream, const Figures& figures) {
    return stream << figures.sessions << " sessions of " << figures.steps
                  << " steps: " << figures.actions << " actions (" << figures.done << " done, "
                  << figures.failed << " failed; " << figures.refusedAtOnce
                  << " more refused at once), " << figures.queries << " queries, " << figures.loads
                  << " loads, " << figures.calls << " calls of the service (" << figures.madeToFail
                  << " made to fail), " << figures.changesElsewhere << " changes from outside, "
                  << figures.offlineStretches << " offline stretches, " << figures.comparisons
                  << " comparisons of " << figures.entriesCompared << " entries";
}

}  // namespace Ormek::Testing
