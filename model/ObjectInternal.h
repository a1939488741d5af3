#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "model/ItemInternal.h"
#include "model/Object.h"

namespace Nimra {
class Document;
}

namespace Ormek {

/// A stretch of a document's content, in bytes.
struct ByteRange {
    unsigned long offset = 0;
    unsigned long length = 0;
};

/// A document or key-value entry as the cache keeps it. Always held by a shared pointer.
class ObjectInternal : public Object, public ItemInternal {
  public:
    /// An empty object, filled by the setters afterwards.
    explicit ObjectInternal(ObjectUpdater* updater);
    /// Copies everything that `source` answers and, where it stems from an `ObjectInternal`, the
    /// state and the content ranges of that one.
    ObjectInternal(const Object& source, ObjectUpdater* updater);
    /// Copies every field that has a counterpart; `dataLoaded()` and `idLoaded()` start false.
    ObjectInternal(const Nimra::Document& document, ObjectUpdater* updater);
    ~ObjectInternal() override;

    unsigned long length() const override;
    std::string mimeType() const override;
    KeyValueMap keyValues() const override;

    void length(unsigned long bytes);
    void setMimeType(std::string mimeType);
    void setKeyValues(KeyValueMap keyValues);

  private:
    unsigned long _length = 0;

  public:
    /// The document record's state, which the cache assigns unchanged.
    std::int32_t _state = 0;

  private:
    std::string _mimeType;
    std::vector<ByteRange> _ranges;
    KeyValueMap _keyValues;
};

}  // namespace Ormek
