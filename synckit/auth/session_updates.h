// Whether somebody is signed in, and the news of it.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "synckit/types.h"

namespace vorlinden {

enum class SessionState { signedIn, signedOut };

// The changes of a session's state from the moment it was made, none lost and none coalesced. Dropping it
// ends the subscription. One task at a time may wait in next().
class SessionUpdates {
 public:
    SessionUpdates(SessionUpdates&&) = default;
    SessionUpdates& operator=(SessionUpdates&&) = default;

    // The next change, or absent when the sender is gone and all of them have been taken. CancelledError.
    Task<std::optional<SessionState>> next();

 private:
    friend class SessionBroadcast;
    struct Buffer;
    explicit SessionUpdates(std::shared_ptr<Buffer> buffer) : buffer_(std::move(buffer)) {}
    std::shared_ptr<Buffer> buffer_;
};

// Sends to all subscribers. Its owner sees to it that one thread at a time uses it; the subscribers need not
// care.
class SessionBroadcast {
 public:
    SessionBroadcast() = default;
    SessionBroadcast(const SessionBroadcast&) = delete;
    SessionBroadcast& operator=(const SessionBroadcast&) = delete;
    ~SessionBroadcast();

    SessionUpdates subscribe();
    void send(SessionState state);

 private:
    std::vector<std::weak_ptr<SessionUpdates::Buffer>> subscribers_;
};

}  // namespace vorlinden
