#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

#include "apps/Session.h"
#include "client/ListOptions.h"
#include "client/Query.h"
#include "model/Item.h"

namespace App {

enum class Extent { OnePage, EveryPage };

/// How a listing is asked for, and what becomes of each page.
struct Listing {
    using Entries = std::vector<std::shared_ptr<Ormek::Item>>;

    std::function<Ormek::Query(const Ormek::ListOptions&)> ask;
    /// Prints the entries that are worth it and returns how many. With every page, the same entry
    /// can come twice.
    std::function<std::size_t(const Entries&)> show;
};

/// Shows the page that the options say, or the pages from there to the end, and the status line.
///
/// When the total changes on the way, entries have moved from page to page. The walk is then
/// repeated, so that none is missed; pages that are still current cost nothing.
void showPages(Session& session, const Listing& listing, Ormek::ListOptions options, Extent extent,
               Cost cost);

}  // namespace App
