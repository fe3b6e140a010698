#include "linux/mount/content_fetch_queue.h"

#include <algorithm>
#include <utility>

namespace vorlinden::mount {

namespace {

// What the fetches under way may hold in memory together.
constexpr std::uint64_t memoryForFetches = std::uint64_t{256} << 20;
// The share of a text, whose size nobody knows before it is here.
constexpr std::uint64_t likelyTextSize = std::uint64_t{256} << 10;

// How far behind a fetch that doesn't fit a smaller one is looked for.
constexpr std::size_t furthestLook = 64;

std::uint64_t expectedBytes(const ContentFetch& fetch) {
    if (!fetch.item.documentSize) return likelyTextSize;
    return static_cast<std::uint64_t>(std::max<std::int64_t>(*fetch.item.documentSize, 0));
}

}  // namespace

ContentFetchQueue::ContentFetchQueue(unsigned parallelFetches)
    : readerLimit_(std::max(parallelFetches, 1u)),
      aheadLimit_(std::max(parallelFetches - parallelFetches / 4, 1u)) {}

void ContentFetchQueue::add(const FetchPtr& fetch, bool urgent) {
    fetch->urgent = urgent;
    Queue& queue = queueOf(*fetch);
    fetch->place = queue.insert(queue.end(), fetch);
}

void ContentFetchQueue::promote(const FetchPtr& fetch) {
    if (fetch->urgent) return;
    urgent_.splice(urgent_.end(), ahead_, fetch->place);
    fetch->urgent = true;
}

void ContentFetchQueue::remove(const FetchPtr& fetch) {
    queueOf(*fetch).erase(fetch->place);
}

std::vector<ContentFetchQueue::FetchPtr> ContentFetchQueue::takeUrgent() {
    const Queue taken = std::exchange(urgent_, {});
    return {taken.begin(), taken.end()};
}

void ContentFetchQueue::clear() {
    urgent_.clear();
    ahead_.clear();
}

ContentFetchQueue::FetchPtr ContentFetchQueue::begin(bool aheadAllowed) {
    if (auto fetch = beginFrom(urgent_, readerLimit_)) return fetch;
    // What a reader waits for, and doesn't fit yet, isn't overtaken by what nobody waits for.
    if (!aheadAllowed || !urgent_.empty()) return nullptr;
    return beginFrom(ahead_, aheadLimit_);
}

ContentFetchQueue::FetchPtr ContentFetchQueue::beginFrom(Queue& queue, unsigned limit) {
    if (running_ >= limit) return nullptr;
    std::size_t looked = 0;
    for (const FetchPtr& queued : queue) {
        if (++looked > furthestLook) break;
        if (!fits(*queued)) continue;
        FetchPtr fetch = queued;
        queue.erase(fetch->place);
        begun(fetch);
        return fetch;
    }
    return nullptr;
}

bool ContentFetchQueue::fits(const ContentFetch& fetch) const {
    return running_ == 0 || runningBytes_ + expectedBytes(fetch) <= memoryForFetches;
}

void ContentFetchQueue::beginProbe(const FetchPtr& fetch) {
    begun(fetch);
}

void ContentFetchQueue::begun(const FetchPtr& fetch) {
    fetch->state = ContentFetch::State::running;
    ++running_;
    runningBytes_ += expectedBytes(*fetch);
}

void ContentFetchQueue::end(const FetchPtr& fetch) {
    fetch->state = ContentFetch::State::ended;
    --running_;
    runningBytes_ -= expectedBytes(*fetch);
}

}  // namespace vorlinden::mount
