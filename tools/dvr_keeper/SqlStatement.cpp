#include "SqlStatement.h"

#include "CatalogError.h"

namespace dvrkeeper {

namespace {

[[noreturn]] void fail(sqlite3 *db, int code, const std::string &context) {
    throw CatalogError(context + ": " + sqlite3_errmsg(db), code & 0xff);
}

}  // namespace

SqlStatement::SqlStatement(sqlite3 *db, const std::string &sql) : mDb(db) {
    const int code = sqlite3_prepare_v2(db, sql.c_str(), -1, &mStatement, nullptr);
    if (code != SQLITE_OK) {
        sqlite3_finalize(mStatement);
        fail(db, code, "cannot prepare \"" + sql + "\"");
    }
}

SqlStatement::~SqlStatement() {
    sqlite3_finalize(mStatement);
}

SqlStatement &SqlStatement::bind(int position, int64_t value) {
    sqlite3_bind_int64(mStatement, position, value);
    return *this;
}

SqlStatement &SqlStatement::bind(int position, double value) {
    sqlite3_bind_double(mStatement, position, value);
    return *this;
}

SqlStatement &SqlStatement::bind(int position, const std::string &text) {
    sqlite3_bind_text(mStatement, position, text.data(), static_cast<int>(text.size()),
                      SQLITE_TRANSIENT);
    return *this;
}

SqlStatement &SqlStatement::bindNull(int position) {
    sqlite3_bind_null(mStatement, position);
    return *this;
}

bool SqlStatement::step() {
    const int code = sqlite3_step(mStatement);
    if (code == SQLITE_ROW) {
        return true;
    }
    if (code == SQLITE_DONE) {
        return false;
    }
    fail(mDb, code, std::string("cannot run \"") + sqlite3_sql(mStatement) + "\"");
}

void SqlStatement::run() {
    while (step()) {
    }
    reset();
}

void SqlStatement::reset() {
    sqlite3_reset(mStatement);
    sqlite3_clear_bindings(mStatement);
}

bool SqlStatement::isNull(int column) const {
    return sqlite3_column_type(mStatement, column) == SQLITE_NULL;
}

int64_t SqlStatement::integer(int column) const {
    return sqlite3_column_int64(mStatement, column);
}

double SqlStatement::real(int column) const {
    return sqlite3_column_double(mStatement, column);
}

std::string SqlStatement::text(int column) const {
    const unsigned char *value = sqlite3_column_text(mStatement, column);
    return value != nullptr ? reinterpret_cast<const char *>(value) : "";
}

void SqlStatement::text(int column, std::string &into) const {
    const unsigned char *value = sqlite3_column_text(mStatement, column);
    if (value == nullptr) {
        into.clear();
        return;
    }
    into.assign(reinterpret_cast<const char *>(value),
                static_cast<size_t>(sqlite3_column_bytes(mStatement, column)));
}

std::optional<bool> SqlStatement::optionalFlag(int column) const {
    if (isNull(column)) {
        return std::nullopt;
    }
    return integer(column) != 0;
}

std::optional<int64_t> SqlStatement::optionalInteger(int column) const {
    if (isNull(column)) {
        return std::nullopt;
    }
    return integer(column);
}

}  // namespace dvrkeeper
