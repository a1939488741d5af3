#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "service/Document.h"

namespace Ormek::Bench {

/// What somebody builds from SQLite: a table in memory that is clustered by parent and name, an
/// index by id, prepared statements, one transaction a page.
class SqlStore {
  public:
    SqlStore();

    /// Inserts or refreshes a page of records.
    void merge(const std::vector<Nimra::Document>& records);
    /// Reads a page; so many entries it had.
    std::size_t readPage(unsigned long parentId, std::size_t offset, std::size_t count);
    /// Reads one entry; whether it is there.
    bool read(unsigned long id);
    void removeFolder(unsigned long parentId);

  private:
    struct Closer {
        void operator()(sqlite3* database) const { sqlite3_close(database); }
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };
    using Statement = std::unique_ptr<sqlite3_stmt, Closer>;

    Statement prepare(const char* text);
    void run(const Statement& statement);
    void readRow(const Statement& statement);

    std::unique_ptr<sqlite3, Closer> _database;
    Statement _begin, _commit, _put, _page, _one, _clear;
    std::uint64_t _read = 0;  // So that reading has a result.
};

}  // namespace Ormek::Bench
