#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

namespace App {

/// Rows of text in columns, two blanks apart. The last column is not padded.
class Table {
  public:
    enum class Align { Left, Right };
    struct Column {
        Align align = Align::Left;
        std::size_t width = 0;  ///< At least; so that tables printed one after the other agree.
    };

    explicit Table(std::vector<Column> columns) : _columns(std::move(columns)) {}

    /// One cell for each column.
    void add(std::vector<std::string> cells);
    void print(std::ostream& out) const;

  private:
    std::vector<Column> _columns;
    std::vector<std::vector<std::string>> _rows;
};

}  // namespace App
