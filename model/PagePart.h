#pragma once

namespace Ormek {

/// Which entries of a page a delivery is about.
enum class PagePart { Whole, Folders, Documents };

}  // namespace Ormek
