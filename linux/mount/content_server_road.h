// What the outcomes of fetches tell about the road to the server, and whether one more may be tried.
#pragma once

#include <chrono>
#include <map>
#include <optional>

#include "linux/mount/content_key.h"
#include "linux/mount/content_store.h"
#include "platform/timestamp.h"

namespace vorlinden::mount {

// A plain state machine; the store asks it under its own lock. A failure closes the road for the item that
// failed; since one item may be at fault alone (a server that stumbles over it), two others may still give
// their opinion, and the third failure in a row closes the road for all. Any success opens it.
//
// While it is closed, the store probes at growing pauses. Where failures come quickly (a refused connection),
// a reader may be the probe, once a second; where they come slowly (a network that swallows everything),
// readers are refused at once and never wait for a probe.
class ServerRoad {
 public:
    Reachability state() const { return state_; }

    // Whether a fetch of the item may begin for a reader now.
    bool admits(const ItemDigest& item, platform::Timestamp now);
    // Whether a reader may wait for a fetch that runs already.
    bool mayJoin() const { return !(closed() && slow_); }

    void succeeded();
    void failed(const Item& item, platform::Timestamp begun, platform::Timestamp now);
    void signedOut();
    // The catalogue has no such content: says nothing of the server, but the item is no probe any more.
    void gone(const ItemDigest& item);

    // How long to wait before the next probe, longer each time; absent unless the road is closed.
    std::optional<std::chrono::milliseconds> nextPause();
    // What to fetch as the next probe: what failed, each in turn. To be asked only of a closed road.
    const Item& nextProbe();

 private:
    bool closed() const { return state_ == Reachability::unreachable; }

    Reachability state_ = Reachability::unknown;
    std::map<ItemDigest, Item> failed_;  // since the last success, some of them; not empty while closed
    ItemDigest lastProbe_{};
    bool slow_ = false;  // the latest failure took its time
    platform::Timestamp lastTry_{};
    std::chrono::milliseconds pause_{};
};

}  // namespace vorlinden::mount
