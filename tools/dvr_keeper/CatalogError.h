// A catalog that cannot be opened, read or written. code is SQLite's primary
// result code (SQLITE_CORRUPT, SQLITE_READONLY, ...) or SQLITE_ERROR.
#ifndef DVR_KEEPER_CATALOG_ERROR_H
#define DVR_KEEPER_CATALOG_ERROR_H

#include <sqlite3.h>

#include <stdexcept>
#include <string>

namespace dvrkeeper {

class CatalogError : public std::runtime_error {
public:
    CatalogError(const std::string &what, int code) : std::runtime_error(what), mCode(code) {}
    int code() const { return mCode; }
    // The file is not a database or its pages are damaged.
    bool corrupt() const { return mCode == SQLITE_CORRUPT || mCode == SQLITE_NOTADB; }

private:
    int mCode;
};

}  // namespace dvrkeeper

#endif  // DVR_KEEPER_CATALOG_ERROR_H
