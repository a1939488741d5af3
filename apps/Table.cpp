#include "apps/Table.h"

#include <algorithm>
#include <ostream>

namespace App {

void Table::add(std::vector<std::string> cells) {
    for (std::size_t i = 0; i < _columns.size(); ++i) {
        _columns[i].width = std::max(_columns[i].width, cells[i].size());
    }
    _rows.push_back(std::move(cells));
}

void Table::print(std::ostream& out) const {
    const std::size_t last = _columns.size() - 1;
    for (const auto& row : _rows) {
        for (std::size_t i = 0; i < last; ++i) {
            const std::string padding(_columns[i].width - row[i].size(), ' ');
            const bool left = _columns[i].align == Align::Left;
            out << (left ? row[i] + padding : padding + row[i]) << "  ";
        }
        out << row[last] << '\n';
    }
}

}  // namespace App
