// Which fetch begins next.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <vector>

#include "linux/mount/content_key.h"
#include "linux/mount/content_store.h"
#include "platform/fileprovider/progress.h"
#include "platform/task.h"

namespace vorlinden::mount {

// One reader of one fetch.
struct ContentReader {
    ContentStore::Handler handler;  // empty once it is answered
    platform::TaskHandle deadline;
};

// One fetch, from being asked for to its end. All fields are guarded by the store's lock.
struct ContentFetch {
    enum class State { queued, running, ended };

    Item item;
    ContentKey key;
    State state = State::queued;
    bool ahead = false;    // wanted even if nobody waits
    bool deleted = false;  // the item has gone: for those who wait, and nobody else
    platform::Timestamp begun{};
    std::vector<std::shared_ptr<ContentReader>> readers;
    std::shared_ptr<platform::fileprovider::Progress> progress;  // once the extension has given it
    bool abandoned = false;  // nobody wants it any more: to be cancelled as soon as there is a progress

    // Where it stands while it is queued: the queue's own.
    bool urgent = false;
    std::list<std::shared_ptr<ContentFetch>>::iterator place;
};

// Readers' fetches before those ahead of any reader, each in the order of asking, several at a time. Bounded
// in number, with some room kept for readers, and in bytes, since a fetch may hold a file in memory: but one
// fetch may always run. Not thread-safe; the store's lock guards it.
class ContentFetchQueue {
 public:
    using FetchPtr = std::shared_ptr<ContentFetch>;

    explicit ContentFetchQueue(unsigned parallelFetches);

    // `urgent`: a reader waits for it.
    void add(const FetchPtr& fetch, bool urgent);
    // Both for queued fetches alone: a reader has come to it; nobody wants it.
    void promote(const FetchPtr& fetch);
    void remove(const FetchPtr& fetch);
    std::vector<FetchPtr> takeUrgent();
    void clear();
    std::size_t queuedAhead() const { return ahead_.size(); }

    // The next fetch, now running; null if there is none, or no room.
    FetchPtr begin(bool aheadAllowed);
    // Begins at once, whatever runs.
    void beginProbe(const FetchPtr& fetch);
    void end(const FetchPtr& fetch);

 private:
    using Queue = std::list<FetchPtr>;
    Queue& queueOf(const ContentFetch& fetch) { return fetch.urgent ? urgent_ : ahead_; }
    FetchPtr beginFrom(Queue& queue, unsigned limit);
    bool fits(const ContentFetch& fetch) const;
    void begun(const FetchPtr& fetch);

    const unsigned readerLimit_;
    const unsigned aheadLimit_;
    Queue urgent_;
    Queue ahead_;
    unsigned running_ = 0;
    std::uint64_t runningBytes_ = 0;
};

}  // namespace vorlinden::mount
