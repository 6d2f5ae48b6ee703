// One prepared SQLite statement: binds by position (from 1), steps, reads
// columns (from 0) and finalizes itself. Used by one thread at a time, on the
// connection that prepared it.
#ifndef DVR_KEEPER_SQL_STATEMENT_H
#define DVR_KEEPER_SQL_STATEMENT_H

#include <sqlite3.h>

#include <cstdint>
#include <optional>
#include <string>

namespace dvrkeeper {

class SqlStatement {
public:
    // Throws CatalogError when sql does not compile.
    SqlStatement(sqlite3 *db, const std::string &sql);
    ~SqlStatement();
    SqlStatement(const SqlStatement &) = delete;
    SqlStatement &operator=(const SqlStatement &) = delete;

    SqlStatement &bind(int position, int64_t value);
    SqlStatement &bind(int position, double value);
    SqlStatement &bind(int position, const std::string &text);
    template <typename T>
    SqlStatement &bind(int position, const std::optional<T> &value) {
        return value ? bind(position, *value) : bindNull(position);
    }
    SqlStatement &bindNull(int position);
    // Binds values to the positions 1, 2, ... in order.
    template <typename... Values>
    SqlStatement &bindAll(const Values &...values) {
        int position = 0;
        (bind(++position, values), ...);
        return *this;
    }

    // True while a row is there; throws CatalogError on failure.
    bool step();
    // Runs a statement that returns no rows.
    void run();
    void reset();

    bool isNull(int column) const;
    int64_t integer(int column) const;
    double real(int column) const;
    std::string text(int column) const;
    // Assigns the column's text to into, reusing its buffer.
    void text(int column, std::string &into) const;
    std::optional<int64_t> optionalInteger(int column) const;
    // An integer column read as a flag: nothing when it is null.
    std::optional<bool> optionalFlag(int column) const;

private:
    sqlite3 *mDb;
    sqlite3_stmt *mStatement = nullptr;
};

}  // namespace dvrkeeper

#endif  // DVR_KEEPER_SQL_STATEMENT_H
