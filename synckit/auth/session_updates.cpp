#include "synckit/auth/session_updates.h"

#include <deque>
#include <mutex>

namespace vorlinden {

// Filled by the sender, emptied by the one task that reads.
struct SessionUpdates::Buffer {
    std::mutex mutex;  // guards all below; innermost but for Signal's own
    std::deque<SessionState> states;
    bool closed = false;
    platform::Signal arrival;  // for the task that waits

    void push(SessionState state) {
        std::lock_guard hold(mutex);
        states.push_back(state);
        arrival.set();
    }
    void close() {
        std::lock_guard hold(mutex);
        closed = true;
        arrival.set();
    }
    // What next() is to give, or nothing: then `arrival` is a fresh one to wait for.
    std::optional<std::optional<SessionState>> take() {
        std::lock_guard hold(mutex);
        if (!states.empty()) {
            const auto state = states.front();
            states.pop_front();
            return state;
        }
        if (closed) return std::optional<SessionState>();
        arrival = {};
        return std::nullopt;
    }
};

Task<std::optional<SessionState>> SessionUpdates::next() {
    const auto buffer = buffer_;
    for (;;) {
        if (auto taken = buffer->take()) co_return *taken;
        const auto arrival = buffer->arrival;
        co_await arrival.wait();
    }
}

SessionBroadcast::~SessionBroadcast() {
    for (const auto& subscriber : subscribers_)
        if (const auto buffer = subscriber.lock()) buffer->close();
}

SessionUpdates SessionBroadcast::subscribe() {
    std::erase_if(subscribers_, [](const auto& subscriber) { return subscriber.expired(); });
    auto buffer = std::make_shared<SessionUpdates::Buffer>();
    subscribers_.push_back(buffer);
    return SessionUpdates(std::move(buffer));
}

void SessionBroadcast::send(SessionState state) {
    for (const auto& subscriber : subscribers_)
        if (const auto buffer = subscriber.lock()) buffer->push(state);
}

}  // namespace vorlinden
