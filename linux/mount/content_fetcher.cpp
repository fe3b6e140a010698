// The reader's side: asking, joining, leaving.
#include "linux/mount/content_fetcher.h"

#include <algorithm>
#include <utility>

#include "linux/mount/content_failures.h"

namespace vorlinden::mount {

using Kind = ContentFailure::Kind;
using std::chrono::milliseconds;

namespace {

// Beyond this, what is asked for ahead is dropped: a reader will ask for it.
constexpr std::size_t furthestAhead = 20'000;

}  // namespace

// What open() gives back. It keeps nothing alive but the answer's place.
class ContentFetcher::ReaderWait final : public Wait {
 public:
    ReaderWait(std::weak_ptr<ContentFetcher> fetcher, FetchPtr fetch, ReaderPtr reader)
        : fetcher_(std::move(fetcher)), fetch_(std::move(fetch)), reader_(std::move(reader)) {}
    void cancel() override {
        const auto fetcher = fetcher_.lock();
        if (fetcher && fetch_) fetcher->leave(fetch_, reader_);
    }

 private:
    const std::weak_ptr<ContentFetcher> fetcher_;
    const FetchPtr fetch_;  // null: answered at once
    const ReaderPtr reader_;
};

ContentFetcher::ContentFetcher(platform::System system, ContentStoreOptions options,
                               ContentStoreSurroundings surroundings)
    : system_(std::move(system)),
      folder_(options.folder),
      surroundings_(std::move(surroundings)),
      cache_(ContentCache::open(options.folder, options.maximumBytes, system_.clock)),
      queue_(options.parallelFetches) {}

ContentFetcher::~ContentFetcher() {
    shutDown();
}

void ContentFetcher::endActing() {
    std::lock_guard hold(mutex_);
    if (--acting_ == 0) acted_.notify_all();
}

std::shared_ptr<const Content> ContentFetcher::openIfHere(const Item& item) {
    return cache_->find(item);
}

std::optional<std::uint64_t> ContentFetcher::knownSize(const Item& item) {
    return cache_->knownSize(item);
}

std::shared_ptr<ContentStore::Wait> ContentFetcher::open(const Item& item, milliseconds deadline,
                                                         Handler handler) {
    if (auto here = cache_->find(item)) {
        handler(std::move(here));
        return std::make_shared<ReaderWait>(weak_from_this(), nullptr, nullptr);
    }
    const auto reader = std::make_shared<ContentReader>();
    reader->handler = std::move(handler);
    FetchPtr fetch;
    act([&](Actions& actions) { fetch = join(item, reader, deadline, actions); });
    return std::make_shared<ReaderWait>(weak_from_this(), std::move(fetch), reader);
}

// Null where the reader has its answer already.
ContentFetcher::FetchPtr ContentFetcher::join(const Item& item, const ReaderPtr& reader,
                                              milliseconds deadline, Actions& actions) {
    const ContentKey key = ContentKey::of(item);
    const auto existing = fetches_.find(key);
    FetchPtr fetch = existing == fetches_.end() ? nullptr : existing->second;
    const auto refuse = [&](ContentResult result) {
        answer(*reader, std::move(result), actions);
        return nullptr;
    };
    if (closed_) return refuse(contentFailure(Kind::cancelled));
    // It may have come between the first look and the lock.
    if (!fetch) {
        if (auto here = cache_->find(item)) return refuse(std::move(here));
    }
    const bool runs = fetch && fetch->state == ContentFetch::State::running;
    const bool allowed = runs ? road_.mayJoin() : road_.admits(key.item, system_.clock->now());
    if (!allowed) return refuse(contentFailure(Kind::unreachable));

    if (!fetch) {
        fetch = addFetch(item, key);
        queue_.add(fetch, true);
    } else if (!runs) {
        queue_.promote(fetch);
    }
    fetch->readers.push_back(reader);
    reader->deadline = platform::spawn(
        system_.executor,
        [self = weak_from_this(), timers = system_.timers, fetch, reader, deadline]() -> platform::Task<> {
            co_await timers->sleep(deadline);
            if (const auto fetcher = self.lock()) fetcher->expire(fetch, reader);
        },
        [](std::exception_ptr) {});
    beginWhatFits(actions);
    return fetch;
}

ContentFetcher::FetchPtr ContentFetcher::addFetch(const Item& item, const ContentKey& key) {
    auto fetch = std::make_shared<ContentFetch>();
    fetch->item = item;
    fetch->key = key;
    fetches_.emplace(key, fetch);
    return fetch;
}

void ContentFetcher::expire(const FetchPtr& fetch, const ReaderPtr& reader) {
    act([&](Actions& actions) {
        if (!reader->handler) return;
        std::erase(fetch->readers, reader);
        // It goes on without readers, so that whoever asks again finds it further on, or done.
        fetch->ahead = true;
        answer(*reader, contentFailure(Kind::timedOut), actions);
    });
}

void ContentFetcher::leave(const FetchPtr& fetch, const ReaderPtr& reader) {
    act([&](Actions& actions) {
        if (!reader->handler) return;
        std::erase(fetch->readers, reader);
        answer(*reader, contentFailure(Kind::cancelled), actions);
        if (fetch->readers.empty() && !fetch->ahead) abandon(fetch, actions);
        beginWhatFits(actions);
    });
}

void ContentFetcher::answer(ContentReader& reader, ContentResult result, Actions& actions) {
    auto handler = std::exchange(reader.handler, nullptr);
    if (!handler) return;
    actions.push_back([deadline = reader.deadline, handler = std::move(handler), result = std::move(result)] {
        deadline.cancel();
        handler(result);
    });
}

void ContentFetcher::answerAll(ContentFetch& fetch, const ContentResult& result, Actions& actions) {
    for (const ReaderPtr& reader : std::exchange(fetch.readers, {}))
        answer(*reader, result, actions);
}

void ContentFetcher::fetchAhead(std::vector<Item> items) {
    act([&](Actions& actions) {
        for (const Item& item : items)
            queueAhead(item);
        beginWhatFits(actions);
    });
}

void ContentFetcher::queueAhead(const Item& item) {
    if (closed_ || item.contentType.isDirectory() || queue_.queuedAhead() >= furthestAhead) return;
    const ContentKey key = ContentKey::of(item);
    if (fetches_.contains(key) || cache_->contains(item)) return;
    const FetchPtr fetch = addFetch(item, key);
    fetch->ahead = true;
    queue_.add(fetch, false);
}

void ContentFetcher::itemsChanged(const std::vector<Item>& items) {
    std::vector<Item> wantedAgain;
    for (const Item& item : items) {
        if (item.contentType.isDirectory()) continue;
        if (cache_->dropOtherVersions(item) && !item.documentSize) wantedAgain.push_back(item);
    }
    if (!wantedAgain.empty()) fetchAhead(std::move(wantedAgain));
}

void ContentFetcher::itemsDeleted(const std::vector<ItemIdentifier>& identifiers) {
    act([&](Actions& actions) {
        for (const ItemIdentifier& identifier : identifiers)
            for (const FetchPtr& fetch : fetchesOf(identifier)) {
                fetch->deleted = true;
                fetch->ahead = false;
                if (fetch->readers.empty()) abandon(fetch, actions);
            }
        beginWhatFits(actions);
    });
    for (const ItemIdentifier& identifier : identifiers)
        cache_->dropItem(identifier);
}

bool ContentFetcher::isFetching(const ItemIdentifier& identifier) {
    std::lock_guard hold(mutex_);
    return !fetchesOf(identifier).empty();
}

std::vector<ContentFetcher::FetchPtr> ContentFetcher::fetchesOf(const ItemIdentifier& identifier) const {
    const ItemDigest item = itemDigest(identifier);
    std::vector<FetchPtr> found;
    for (auto fetch = fetches_.lower_bound({item, 0}); fetch != fetches_.end() && fetch->first.item == item;
         ++fetch)
        found.push_back(fetch->second);
    return found;
}

Reachability ContentFetcher::reachability() {
    std::lock_guard hold(mutex_);
    return road_.state();
}

void ContentFetcher::shutDown() {
    act([&](Actions& actions) {
        closed_ = true;
        for (const auto& [key, fetch] : std::exchange(fetches_, {})) {
            answerAll(*fetch, contentFailure(Kind::cancelled), actions);
            abandon(fetch, actions);
        }
        actions.push_back([prober = prober_] { prober.cancel(); });
    });
    std::unique_lock hold(mutex_);
    acted_.wait(hold, [this] { return acting_ == 0; });
}

}  // namespace vorlinden::mount
