#pragma once

namespace Ormek {

/// What a cached entry is built with: its identity alone is passed on. The cache and its entries
/// keep a pointer to it and never own it; it must outlive them.
class ObjectUpdater {
  public:
    ObjectUpdater() = default;
    virtual ~ObjectUpdater();
};

}  // namespace Ormek
