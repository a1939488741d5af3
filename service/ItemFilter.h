#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace Nimra {

/// A listing query as the service layer takes it. A value; the order of the members is fixed.
class ItemFilter {
  public:
    unsigned long userId = 0;
    std::int32_t dataType = 0;
    std::vector<unsigned long> dataId;
    std::map<std::string, std::string> tagLabels;
    std::string path;
    std::string url;
    std::string query;
    std::string group;
    bool ascending = true;
    bool deleted = false;
    bool containerFirst = true;
    bool serviceFlag = false;
    std::uint32_t offset = 0;
    std::uint32_t count = 0;
    std::string _order;  ///< Read through `order()`.
    std::string cursor;  ///< The service layer's own.

    /// A copy of the order description.
    std::string order() const { return _order; }
};

}  // namespace Nimra
