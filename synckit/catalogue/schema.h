// The tables of the catalogue and their migration. The file is shared by the host and the extension, which
// may be of different releases: a file of a newer version is refused and left as it is.
#pragma once

namespace vorlinden {

class SQLiteDatabase;

namespace Schema {

inline constexpr int currentVersion = 2;

// Brings an open database to `currentVersion` in one immediate transaction, so that a failure at any step
// leaves the file at its old version. Throws SQLiteError; code 17 for a file of a newer version.
void migrate(SQLiteDatabase& database);

}  // namespace Schema

}  // namespace vorlinden
