#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace Ormek::Testing {

/// Says how many faults a test has let strike, one at a time. script/figures adds them up.
inline void noteFaultPoints(unsigned long tried) {
    testing::Test::RecordProperty("fault_points", std::to_string(tried));
    std::printf("fault points tried: %lu\n", tried);
}

}  // namespace Ormek::Testing
