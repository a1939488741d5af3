#include "tests/support/TraceCapture.h"

#include <algorithm>
#include <cstddef>

namespace Ormek::Testing {

std::string withoutAddresses(std::string text) {
    constexpr const char* Digits = "0123456789abcdef";
    for (std::size_t at = text.find("0x"); at != std::string::npos; at = text.find("0x", at + 1)) {
        const std::size_t end = std::min(text.find_first_not_of(Digits, at + 2), text.size());
        if (end > at + 2) {
            text.replace(at, end - at, "<address>");
        }
    }
    return text;
}

}  // namespace Ormek::Testing
