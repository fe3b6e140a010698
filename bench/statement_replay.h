// The yardstick for whatever uses the catalogue: the very statements that it ran, with the same parameters,
// in a bare loop over SQLite.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <variant>
#include <vector>

namespace vorlinden::bench {

using Parameter = std::variant<std::monostate, std::int64_t, std::string>;  // monostate: NULL

struct Statement {
    const char* sql;  // one per text, kept to the end of the program, as a literal would be
    std::vector<Parameter> parameters;
};

// All statements that connections opened from now on execute while `work` runs, in order. One recording at a
// time.
std::vector<Statement> recordStatements(const std::function<void()>& work);

// Prepares, binds, steps through and finalizes each statement on a connection of its own to `file`, looking
// at every column of every row; calls `beforeCommit` where its name says. Ends the program if SQLite fails.
void replay(const std::vector<Statement>& statements, const std::string& file,
            const std::function<void()>& beforeCommit);

}  // namespace vorlinden::bench
