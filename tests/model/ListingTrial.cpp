#include "tests/model/ListingTrial.h"

#include <utility>

namespace Ormek::Testing {

std::ostream& operator<<(std::ostream& out, const ListingStory& story) {
    for (const ListingStep& step : story.before) {
        out << step << ' ';
    }
    out << "then " << story.step << ", then";
    for (const ListingStep& step : story.after) {
        out << ' ' << step;
    }
    return out;
}

ListingTrial::ListingTrial(const ListingStory& story) : _story(story) {
    ListingWorld passing;
    passing.take(story.before);
    ListingWorld sparing;
    sparing.take(story.before);
    _before = sparing.state();
    _answer = passing.take(story.step);
    _passed = passing.state();
    passing.take(story.after);
    _passedInTheEnd = passing.state();
    sparing.take(story.after);
    _sparedInTheEnd = sparing.state();
}

void ListingTrial::check(ListingWorld& world, bool thrown, std::string answer, Retry retry) {
    compare(world.state(), thrown ? _before : _passed);
    if (thrown && retry == Retry::Yes) {
        answer = world.take(_story.step);
        compare(world.state(), _passed);
    }
    const bool spared = thrown && retry == Retry::No;
    if (!spared) {
        compare(answer, _answer);
    }
    world.take(_story.after);
    compare(world.state(), spared ? _sparedInTheEnd : _passedInTheEnd);
}

void ListingTrial::compare(const std::string& text, const std::string& expected) {
    if (text != expected) {
        _wrong += "instead of\n" + expected + "it says\n" + text;
    }
}

}  // namespace Ormek::Testing
