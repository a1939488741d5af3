#pragma once

#include <cstdint>

namespace Ormek {

/// What a listing can be ordered by.
enum class FilterOrder : std::int32_t { Name, Type, Created, Updated, Length };

}  // namespace Ormek
