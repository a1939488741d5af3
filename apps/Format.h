#pragma once

#include <chrono>
#include <string>

namespace App {

/// "0.02 ms", "3.1 ms", "250 ms": as many digits as are worth reading.
std::string formatDuration(std::chrono::nanoseconds duration);

/// A time stamp, milliseconds since the epoch, as local time: "2024-02-29 23:59:58"; "-" for 0,
/// which stands for unknown, and for what no calendar has.
std::string formatTime(unsigned long milliseconds);

}  // namespace App
