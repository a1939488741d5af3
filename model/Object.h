#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>

#include "model/Item.h"

namespace Ormek {

/// Key to value and a flag, which is passed through unchanged.
using KeyValueMap = std::map<std::string, std::pair<std::string, bool>>;

/// The read side of a document or a key-value entry.
///
/// A plain `Object` is a value: a copy of any other object, also of one that the cache holds,
/// answers for good what its source answered when it was copied. A default-made one answers 0,
/// "", false and empty.
/// Assigning to an entry that the cache holds changes nothing: its write side is `ItemInternal`.
class Object : public virtual Item {
  public:
    Object();
    Object(const Object& other);
    Object& operator=(const Object& other);
    ~Object() override;

    /// Size of the content in bytes.
    virtual unsigned long length() const;
    virtual std::string mimeType() const;
    virtual KeyValueMap keyValues() const;

  private:
    friend class Item;
    friend class ObjectInternal;

    std::unique_ptr<const Object> _snapshot;
};

}  // namespace Ormek
