#pragma once

#include <cstdint>
#include <string>

namespace Ormek {

enum class ListKind { Everything, Folders, Documents };
enum class ListOrder { Ascending, Descending };
enum class Freshness {
    Cached,  ///< From memory where the page is held and current, or the entry held.
    Reload,  ///< From the service, whatever is held, by a load of its own.
};

/// Which page of which listing of a folder. Pages of listings that differ in nothing but offset
/// and count share what is held. Every other difference makes a listing of its own, which stays in
/// the cache.
struct ListOptions {
    std::uint32_t offset = 0;
    std::uint32_t count = 100;
    std::string search;  ///< Names must contain these bytes; empty finds every entry.
    ListKind kind = ListKind::Everything;
    ListOrder order = ListOrder::Ascending;  ///< By name, byte for byte; folders come first.
    Freshness freshness = Freshness::Cached;
};

}  // namespace Ormek
