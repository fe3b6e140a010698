// Short transactions of the host beside whatever else works on the catalogue.
#pragma once

#include <utility>

#include "synckit/catalogue/sqlite_database.h"

namespace vorlinden::host {

// Runs `body`, a transaction outside the execution lock, again while the database is busy: a large snapshot
// may keep it so for longer than SQLite itself waits (five seconds). Throws what the last try threw.
template <class Body>
auto patiently(Body body) {
    constexpr int busy = 5;
    constexpr int tries = 6;
    for (int i = 1;; ++i) {
        try {
            return body();
        } catch (const SQLiteError& error) {
            if ((error.code & 0xff) != busy || i == tries) throw;
        }
    }
}

}  // namespace vorlinden::host
