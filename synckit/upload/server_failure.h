// How a request of a drain can fail, and what that means for the journal row that it was for.
#pragma once

#include <string>
#include <variant>

#include "synckit/server/sync_errors.h"
#include "synckit/types.h"

namespace vorlinden {

// The failures that say something about the row. All others end a drain, and pass.
using ServerFailure = std::variant<SyncAPIError, URLError>;

// The answer to a request, or why there is none.
template <class T>
using Attempt = std::variant<T, ServerFailure>;

template <class T>
Task<Attempt<T>> attempted(Task<T> request) {
    try {
        co_return Attempt<T>(co_await std::move(request));
    } catch (const SyncAPIError& error) {
        co_return Attempt<T>(ServerFailure(error));
    } catch (const URLError& error) {
        co_return Attempt<T>(ServerFailure(error));
    }
}

struct Setback {
    enum class Kind {
        bounced,     // this user may not write there
        givenUp,     // no repetition can help
        retryLater,  // it passes
    };
    Kind kind = Kind::retryLater;
    std::string message = {};  // the server's own words, of what is given up
    bool operator==(const Setback&) const = default;
};

// What becomes of the row. Throws the failure again if it is no matter of this row: the session or the device
// is refused.
Setback sorted(const ServerFailure& failure);

}  // namespace vorlinden
