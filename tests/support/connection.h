// The SQLite connection beneath the code under test: to see all that is stored, and to make statements fail.
#pragma once

#include <functional>
#include <string>
#include <vector>

struct sqlite3;

namespace vorlinden::tests {

// The connection that `open` opens; no statement on it waits for the disk. Belongs to whoever opened it.
sqlite3* connectionOf(const std::function<void()>& open);

// The rows that a query gives, as text.
std::vector<std::vector<std::string>> rows(sqlite3* connection, const std::string& sql);
// Every row of every table, a line each.
std::string dump(sqlite3* connection);

// While it lives, one statement on a connection fails with SQLITE_AUTH: the `number`th from now, BEGIN and
// COMMIT included; none if it is 0. One at a time for a connection.
class StatementFault {
 public:
    StatementFault(sqlite3* connection, int number);
    ~StatementFault();
    StatementFault(const StatementFault&) = delete;
    StatementFault& operator=(const StatementFault&) = delete;

 private:
    static int authorize(void* fault, int action, const char* detail, const char*, const char*, const char*);

    sqlite3* const connection_;
    int left_;
};

}  // namespace vorlinden::tests
