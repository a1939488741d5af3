#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <vector>

#include "tests/cache/CacheTwins.h"
#include "tests/support/FixedCases.h"

namespace Ormek::Testing {
namespace {

constexpr int Cases = 2000;
constexpr int Steps = 40;

rc::Gen<unsigned long> number(unsigned long end) {
    return rc::gen::resize(rc::kNominalSize, rc::gen::inRange(0ul, end));
}

// Every second one fills the cache, so that the others find something there.
rc::Gen<CacheStep> steps() {
    const unsigned long filling = CacheTwins::fillingOperations();
    const auto operation = rc::gen::map(
        number(2 * CacheTwins::operations()),
        [filling](unsigned long n) { return n < CacheTwins::operations() ? n : n % filling; });
    return rc::gen::build<CacheStep>(rc::gen::set(&CacheStep::operation, operation),
                                     rc::gen::set(&CacheStep::number, number(1UL << 20UL)));
}

TEST(CacheModelTest, TheCacheDoesWhatItsModelDoes) {
    EXPECT_TRUE(holds("does what its model does", Cases, Steps, [] {
        CacheTwins twins;
        for (const CacheStep& step : *rc::gen::container<std::vector<CacheStep>>(steps())) {
            twins.take(step);
            if (!twins.difference().empty()) {
                RC_FAIL(twins.difference());
            }
        }
    }));
}

}  // namespace
}  // namespace Ormek::Testing
