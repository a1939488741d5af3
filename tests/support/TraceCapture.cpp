#include "tests/support/TraceCapture.h"

#include <regex>

namespace Ormek::Testing {

std::string TraceCapture::normalised() const {
    return std::regex_replace(text(), std::regex("0x[0-9a-f]+"), "<address>");
}

}  // namespace Ormek::Testing
