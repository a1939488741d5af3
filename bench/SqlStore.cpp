#include "bench/SqlStore.h"

#include <stdexcept>
#include <string>

namespace Ormek::Bench {

namespace {

constexpr const char* Table =
    "CREATE TABLE entries(parent INTEGER, name TEXT, id INTEGER, mime TEXT, created INTEGER, "
    "updated INTEGER, length INTEGER, owner INTEGER, access INTEGER, key TEXT, value TEXT, "
    "PRIMARY KEY(parent, name)) WITHOUT ROWID";

void check(sqlite3* database, int result) {
    if (result != SQLITE_OK && result != SQLITE_ROW && result != SQLITE_DONE) {
        throw std::runtime_error(sqlite3_errmsg(database));
    }
}

sqlite3* opened() {
    sqlite3* database = nullptr;
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    check(database, sqlite3_open_v2(":memory:", &database, flags, nullptr));
    return database;
}

void bindNumber(sqlite3_stmt* statement, int place, unsigned long number) {
    sqlite3_bind_int64(statement, place, static_cast<sqlite3_int64>(number));
}

void bindText(sqlite3_stmt* statement, int place, const std::string& text) {
    sqlite3_bind_text(statement, place, text.data(), static_cast<int>(text.size()), nullptr);
}

}  // namespace

SqlStore::SqlStore() : _database(opened()) {
    check(_database.get(), sqlite3_exec(_database.get(), Table, nullptr, nullptr, nullptr));
    check(_database.get(), sqlite3_exec(_database.get(), "CREATE UNIQUE INDEX ids ON entries(id)",
                                        nullptr, nullptr, nullptr));
    _begin = prepare("BEGIN");
    _commit = prepare("COMMIT");
    _put = prepare("INSERT OR REPLACE INTO entries VALUES(?,?,?,?,?,?,?,?,?,?,?)");
    _page = prepare(
        "SELECT name, id, mime, updated, length FROM entries WHERE parent = ? ORDER BY name "
        "LIMIT ? OFFSET ?");
    _one = prepare("SELECT name, id, mime, updated, length FROM entries WHERE id = ?");
    _clear = prepare("DELETE FROM entries WHERE parent = ?");
}

SqlStore::Statement SqlStore::prepare(const char* text) {
    sqlite3_stmt* statement = nullptr;
    check(_database.get(), sqlite3_prepare_v3(_database.get(), text, -1, SQLITE_PREPARE_PERSISTENT,
                                              &statement, nullptr));
    return Statement(statement);
}

void SqlStore::run(const Statement& statement) {
    check(_database.get(), sqlite3_step(statement.get()));
    check(_database.get(), sqlite3_reset(statement.get()));
}

void SqlStore::merge(const std::vector<Nimra::Document>& records) {
    run(_begin);
    for (const Nimra::Document& record : records) {
        sqlite3_stmt* put = _put.get();
        const auto keyValues = record.keyValues();
        bindNumber(put, 1, record.parentId);
        bindText(put, 2, record.name);
        bindNumber(put, 3, record.id);
        bindText(put, 4, record.mimeType);
        bindNumber(put, 5, record.created);
        bindNumber(put, 6, record.updated);
        bindNumber(put, 7, record.length);
        bindNumber(put, 8, record.ownerId);
        sqlite3_bind_int(put, 9, record.aclMode);
        bindText(put, 10, keyValues.begin()->first);
        bindText(put, 11, keyValues.begin()->second.first);
        run(_put);
    }
    run(_commit);
}

void SqlStore::readRow(const Statement& statement) {
    sqlite3_stmt* row = statement.get();
    const auto number = [row](int column) {
        return static_cast<std::uint64_t>(sqlite3_column_int64(row, column));
    };
    _read += sqlite3_column_text(row, 0)[0] + number(1) + sqlite3_column_text(row, 2)[0] +
             number(3) + number(4);
}

std::size_t SqlStore::readPage(unsigned long parentId, std::size_t offset, std::size_t count) {
    run(_begin);
    bindNumber(_page.get(), 1, parentId);
    bindNumber(_page.get(), 2, count);
    bindNumber(_page.get(), 3, offset);
    std::size_t rows = 0;
    while (sqlite3_step(_page.get()) == SQLITE_ROW) {
        readRow(_page);
        ++rows;
    }
    check(_database.get(), sqlite3_reset(_page.get()));
    run(_commit);
    return rows;
}

bool SqlStore::read(unsigned long id) {
    bindNumber(_one.get(), 1, id);
    const bool found = sqlite3_step(_one.get()) == SQLITE_ROW;
    if (found) {
        readRow(_one);
    }
    check(_database.get(), sqlite3_reset(_one.get()));
    return found;
}

void SqlStore::removeFolder(unsigned long parentId) {
    bindNumber(_clear.get(), 1, parentId);
    run(_clear);
}

}  // namespace Ormek::Bench
