#pragma once

#include <map>
#include <memory>
#include <string>

#include "model/Item.h"
#include "model/QueryResultInternal.h"
#include "service/Operation.h"

namespace Ormek::Testing {

/// Writes down everything that entries, directories and operations say, so that two states can be
/// compared. Entries are numbered as they are met: texts of two caches agree although addresses
/// differ, and where one entry stands in two places it shows. Ids of operations are left out.
class StateText {
  public:
    void line(const std::string& text);
    void entry(const std::string& label, const std::shared_ptr<Item>& item);
    void directory(const std::string& label, const QueryResultInternal& directory);
    void operation(const std::string& label, const Nimra::Operation& operation);

    const std::string& text() const { return _text; }

  private:
    std::string nameOf(const std::shared_ptr<Item>& item);

    std::map<const Item*, std::string> _names;
    std::string _text;
};

}  // namespace Ormek::Testing
