// The promise to answer a handler exactly once.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "fileprovider/error_mapping.h"
#include "fileprovider/types.h"

namespace vorlinden::fileprovider {

// How each kind of handler hears a failure.
inline void answerFailure(const ItemHandler& handler, Error error) {
    handler({}, std::move(error));
}
inline void answerFailure(const FetchHandler& handler, Error error) {
    handler({}, {}, std::move(error));
}
inline void answerFailure(const WriteHandler& handler, Error error) {
    handler({}, 0, false, std::move(error));
}
inline void answerFailure(const DeleteHandler& handler, Error error) {
    handler(std::move(error));
}

// Held by std::shared_ptr by the task that owes the answer, and used by that task alone. Whoever drops it
// without an answer (an executor torn down under its tasks) has the handler hear that the operation was
// cancelled. Answers after the first do nothing.
template <class Handler>
class Reply {
 public:
    explicit Reply(Handler handler) : handler_(std::move(handler)) {}
    ~Reply() { fail(userCancelledError()); }
    Reply(const Reply&) = delete;
    Reply& operator=(const Reply&) = delete;

    template <class... Values>
    void succeed(Values&&... values) {
        if (auto handler = std::exchange(handler_, nullptr)) handler(std::forward<Values>(values)...);
    }
    void fail(Error error) {
        if (auto handler = std::exchange(handler_, nullptr)) answerFailure(handler, std::move(error));
    }

 private:
    Handler handler_;
};

template <class Handler>
std::shared_ptr<Reply<Handler>> makeReply(Handler handler) {
    return std::make_shared<Reply<Handler>>(std::move(handler));
}

}  // namespace vorlinden::fileprovider
