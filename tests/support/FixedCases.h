#pragma once

#include <rapidcheck.h>

#include <iostream>

namespace Ormek::Testing {

/// Tries a property as the parameters say; says on standard error how it fails.
template <class Property>
bool holds(const char* description, const rc::detail::TestParams& params, Property property) {
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

/// Tries a property on the same random cases every time.
template <class Property>
bool holds(const char* description, int cases, int size, Property property) {
    rc::detail::TestParams params;
    params.seed = 14;
    params.maxSuccess = cases;
    params.maxSize = size;
    return holds(description, params, property);
}

}  // namespace Ormek::Testing
