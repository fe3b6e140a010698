// The content store at work: readers, fetches, probes.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "linux/mount/content_cache.h"
#include "linux/mount/content_fetch_queue.h"
#include "linux/mount/content_server_road.h"
#include "linux/mount/content_store.h"
#include "platform/system.h"

namespace vorlinden::mount {

// Held by std::shared_ptr; its tasks and the extension's handlers hold it weakly, so it may go at any moment.
// Decisions are made under mutex_; what they lead to (handlers, starts, cancels) is collected in Actions and
// done after the lock is released. The cache's lock is inner to this one. shutDown() waits for the actions
// under way, so that nobody hears anything after it; it must not be called by one of them.
class ContentFetcher final : public ContentStore, public std::enable_shared_from_this<ContentFetcher> {
 public:
    ContentFetcher(platform::System system, ContentStoreOptions options,
                   ContentStoreSurroundings surroundings);
    ~ContentFetcher() override;

    std::shared_ptr<const Content> openIfHere(const Item& item) override;
    std::shared_ptr<Wait> open(const Item& item, std::chrono::milliseconds deadline,
                               Handler handler) override;
    std::optional<std::uint64_t> knownSize(const Item& item) override;
    void fetchAhead(std::vector<Item> items) override;
    void itemsChanged(const std::vector<Item>& items) override;
    void itemsDeleted(const std::vector<ItemIdentifier>& identifiers) override;
    bool isFetching(const ItemIdentifier& identifier) override;
    Reachability reachability() override;
    void shutDown() override;

 private:
    class ReaderWait;
    using FetchPtr = std::shared_ptr<ContentFetch>;
    using ReaderPtr = std::shared_ptr<ContentReader>;
    // What is to be done once the lock is released, in order.
    using Actions = std::vector<std::function<void()>>;

    // Under mutex_; each adds to `actions` what follows.
    FetchPtr join(const Item& item, const ReaderPtr& reader, std::chrono::milliseconds deadline,
                  Actions& actions);
    FetchPtr addFetch(const Item& item, const ContentKey& key);
    std::vector<FetchPtr> fetchesOf(const ItemIdentifier& identifier) const;
    void queueAhead(const Item& item);
    void beginWhatFits(Actions& actions);
    void start(const FetchPtr& fetch, Actions& actions);
    void abandon(const FetchPtr& fetch, Actions& actions);
    void forget(const FetchPtr& fetch);
    void answer(ContentReader& reader, ContentResult result, Actions& actions);
    void answerAll(ContentFetch& fetch, const ContentResult& result, Actions& actions);
    void settle(const FetchPtr& fetch, const ContentResult& result, Actions& actions);
    void serveElsewhere(const std::shared_ptr<const Content>& content, Actions& actions);
    void learn(const ContentFetch& fetch, const ContentResult& result, Actions& actions);
    void learnFailure(const ContentFetch& fetch, const ContentFailure& failure);
    void roadClosed(Actions& actions);

    // Without the lock.
    template <class Decide>
    void act(Decide decide);
    void endActing();
    void run(const FetchPtr& fetch);
    void ask(const FetchPtr& fetch);
    void fetched(const FetchPtr& fetch, ContentResult result);
    ContentResult takeOver(const std::filesystem::path& file, const Item& item);
    void expire(const FetchPtr& fetch, const ReaderPtr& reader);
    void leave(const FetchPtr& fetch, const ReaderPtr& reader);
    std::optional<std::chrono::milliseconds> probe();
    static platform::Task<> probeWhileClosed(std::weak_ptr<ContentFetcher> fetcher,
                                             std::shared_ptr<platform::Timers> timers,
                                             std::chrono::milliseconds pause);

    const platform::System system_;
    const std::filesystem::path folder_;
    const ContentStoreSurroundings surroundings_;
    const std::shared_ptr<ContentCache> cache_;

    std::mutex mutex_;  // guards the fields below
    bool closed_ = false;
    unsigned acting_ = 0;  // threads that do what was decided
    std::condition_variable acted_;
    std::map<ContentKey, FetchPtr> fetches_;  // queued or running, and wanted
    ContentFetchQueue queue_;
    ServerRoad road_;
    bool probing_ = false;
    platform::TaskHandle prober_;
};

// Lets `decide` fill in the actions under the lock, and does them without it. Whoever calls holds the
// fetcher.
template <class Decide>
void ContentFetcher::act(Decide decide) {
    Actions actions;
    {
        std::lock_guard hold(mutex_);
        decide(actions);
        ++acting_;
    }
    for (const auto& action : actions)
        action();
    actions.clear();
    endActing();
}

}  // namespace vorlinden::mount
