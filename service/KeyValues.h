#pragma once

#include <map>
#include <string>
#include <utility>

namespace Nimra {

using KeyValue = std::pair<std::string, bool>;
/// Key to value and a flag, which is passed through unchanged.
using KeyValues = std::map<std::string, KeyValue>;

}  // namespace Nimra
