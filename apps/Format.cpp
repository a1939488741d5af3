#include "apps/Format.h"

#include <array>
#include <cstdio>
#include <ctime>

namespace App {

namespace {

int decimalsFor(double milliseconds) {
    if (milliseconds >= 9.95) {
        return 0;
    }
    if (milliseconds >= 0.995) {
        return 1;
    }
    return milliseconds >= 0.005 ? 2 : 4;
}

}  // namespace

std::string formatDuration(std::chrono::nanoseconds duration) {
    const double milliseconds = std::chrono::duration<double, std::milli>(duration).count();
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.*f ms", decimalsFor(milliseconds), milliseconds);
    return text.data();
}

std::string formatTime(unsigned long milliseconds) {
    constexpr unsigned long InSecond = 1000;
    const auto seconds = static_cast<std::time_t>(milliseconds / InSecond);
    std::tm local{};
    std::array<char, 64> text{};
    if (milliseconds == 0 || ::localtime_r(&seconds, &local) == nullptr) {
        return "-";
    }
    const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local);
    return {text.data(), length};
}

}  // namespace App
