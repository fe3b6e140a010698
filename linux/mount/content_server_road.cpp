#include "linux/mount/content_server_road.h"

#include <algorithm>

namespace vorlinden::mount {

using platform::Timestamp;
using std::chrono::milliseconds;

namespace {

constexpr std::size_t opinionsThatCount = 3;
constexpr std::size_t mostProbes = 8;
constexpr milliseconds slowFailure{2'000};
constexpr milliseconds betweenReaderProbes{1'000};
constexpr milliseconds firstPause{1'000};
constexpr milliseconds longestPause{60'000};

// A clock that was set back counts as time that passed.
bool haveBeen(milliseconds duration, Timestamp since, Timestamp now) {
    return now < since || now - since >= duration;
}

}  // namespace

bool ServerRoad::admits(const ItemDigest& item, Timestamp now) {
    if (!closed()) return true;
    if (slow_) return false;
    const bool opinionWanted = failed_.size() < opinionsThatCount && !failed_.contains(item);
    if (!opinionWanted && !haveBeen(betweenReaderProbes, lastTry_, now)) return false;
    lastTry_ = now;
    return true;
}

void ServerRoad::succeeded() {
    state_ = Reachability::reachable;
    failed_.clear();
    slow_ = false;
    pause_ = {};
}

void ServerRoad::failed(const Item& item, Timestamp begun, Timestamp now) {
    state_ = Reachability::unreachable;
    if (failed_.size() < mostProbes) failed_.insert_or_assign(itemDigest(item.itemIdentifier), item);
    slow_ = haveBeen(slowFailure, begun, now);
    lastTry_ = now;
}

void ServerRoad::signedOut() {
    succeeded();
    state_ = Reachability::signedOut;
}

void ServerRoad::gone(const ItemDigest& item) {
    failed_.erase(item);
    if (closed() && failed_.empty()) state_ = Reachability::unknown;
}

std::optional<milliseconds> ServerRoad::nextPause() {
    if (!closed()) return {};
    pause_ = pause_ == milliseconds{} ? firstPause : std::min(2 * pause_, longestPause);
    return pause_;
}

const Item& ServerRoad::nextProbe() {
    auto next = failed_.upper_bound(lastProbe_);
    if (next == failed_.end()) next = failed_.begin();
    lastProbe_ = next->first;
    return next->second;
}

}  // namespace vorlinden::mount
