#include "tests/client/session/Sessions.h"

#include <iostream>

#include "tests/client/session/Broken.h"
#include "tests/support/FixedCases.h"

namespace Ormek::Testing {

bool goWell(const Sessions& sessions, Figures& figures) {
    const bool repeats = sessions.manner == Session::Manner::InTurns;
    rc::detail::TestParams params;
    params.seed = sessions.seed;
    params.maxSuccess = sessions.count;
    params.maxSize = sessions.longest;
    params.disableShrinking = !repeats;
    std::string failure;
    const bool well = holds("a client keeps its promises", params, [&] {
        try {
            Session session(sessions.place, sessions.manner, figures);
            session.run(*steps());
        } catch (const Broken& broken) {
            failure = broken.what();
            throw;
        }
    });
    if (!well && !repeats) {
        std::cerr << failure << '\n';
    }
    return well;
}

}  // namespace Ormek::Testing
