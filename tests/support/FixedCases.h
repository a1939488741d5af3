#pragma once

#include <rapidcheck.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iostream>

namespace Ormek::Testing {

/// So many cases, or more where the environment variable ORMEK_CASES asks for more.
inline int casesOrMore(int cases) {
    const char* const asked = std::getenv("ORMEK_CASES");
    return asked ? std::max(cases, std::atoi(asked)) : cases;
}

/// Tries a property on the same random cases every time, or on those of another seed; says on
/// standard error how it fails.
template <class Property>
bool holds(const char* description, int cases, int size, Property property,
           std::uint64_t seed = 14) {
    rc::detail::TestParams params;
    params.seed = seed;
    params.maxSuccess = casesOrMore(cases);
    params.maxSize = size;
    rc::detail::TestMetadata metadata;
    metadata.id = description;
    metadata.description = description;
    const rc::detail::TestResult result = rc::detail::checkTestable(property, metadata, params);
    if (result.template is<rc::detail::SuccessResult>()) {
        return true;
    }
    rc::detail::printResultMessage(result, std::cerr);
    std::cerr << '\n';
    return false;
}

}  // namespace Ormek::Testing
