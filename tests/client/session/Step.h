#pragma once

#include <rapidcheck.h>

#include <cstdint>
#include <iosfwd>
#include <vector>

namespace Ormek::Testing {

/// One thing that a front end, its user, the service or somebody elsewhere does. What the numbers
/// stand for depends on the kind and on how things are when the step is taken, so that any
/// sequence of steps can be taken, also one that others were left out of.
struct Step {
    enum Kind {
        CreateDocument,
        CreateFolder,
        Rename,
        Move,
        Remove,
        SaveMetaData,
        Open,
        OpenSession,
        ReleaseSession,
        Cancel,
        List,
        Tags,
        Find,
        Look,
        Serve,
        Collect,
        GoOffline,
        GoOnline,
        Fail,
        ChangeElsewhere,
        Feed,
        DropHandles,
        Settle,
    };

    Kind kind = Look;
    std::uint32_t a = 0;
    std::uint32_t b = 0;
    std::uint32_t c = 0;
};

std::ostream& operator<<(std::ostream& stream, const Step& step);

/// Any steps, about as many as the size says.
rc::Gen<std::vector<Step>> steps();

}  // namespace Ormek::Testing
