// The other side: fetches begin, end and teach; the server is probed while it is out of reach.
#include <utility>

#include <unistd.h>

#include "linux/mount/content_failures.h"
#include "linux/mount/content_fetcher.h"

namespace vorlinden::mount {

namespace protocol = platform::fileprovider;
using Kind = ContentFailure::Kind;
using ContentPtr = std::shared_ptr<const Content>;
using std::chrono::milliseconds;

void ContentFetcher::beginWhatFits(Actions& actions) {
    const bool ahead = road_.state() == Reachability::unknown || road_.state() == Reachability::reachable;
    while (const FetchPtr fetch = queue_.begin(ahead))
        start(fetch, actions);
}

// On a thread of the pool: the first steps of a fetch block on the catalogue.
void ContentFetcher::start(const FetchPtr& fetch, Actions& actions) {
    fetch->begun = system_.clock->now();
    actions.push_back([executor = system_.executor, self = weak_from_this(), fetch] {
        platform::spawn(
            executor,
            [self, fetch]() -> platform::Task<> {
                if (const auto fetcher = self.lock()) fetcher->run(fetch);
                co_return;
            },
            [](std::exception_ptr) {});
    });
}

void ContentFetcher::run(const FetchPtr& fetch) {
    bool wanted = false;
    act([&](Actions& actions) {
        wanted = !fetch->abandoned;
        if (wanted) actions.push_back([this, &fetch] { ask(fetch); });
    });
    if (!wanted) fetched(fetch, contentFailure(Kind::cancelled));
}

void ContentFetcher::ask(const FetchPtr& fetch) {
    const auto extension = surroundings_.extension();
    if (!extension) return fetched(fetch, contentFailure(Kind::extensionFailed));
    const auto answered = [self = weak_from_this(), fetch](auto file, auto item, auto error) {
        const auto fetcher = self.lock();
        if (!fetcher) {
            if (file) ::unlink(file->c_str());  // ours, and nobody is left to want it
        } else if (file && item) {
            fetcher->fetched(fetch, fetcher->takeOver(*file, *item));
        } else {
            const auto failure =
                error.value_or(protocol::Error(protocol::errorDomain, protocol::cannotSynchronize));
            fetcher->fetched(fetch, contentFailure(failure, fetch->item, fetcher->folder_));
        }
    };
    const auto progress =
        extension->fetchContents(fetch->item.itemIdentifier, fetch->item.itemVersion, {}, answered);
    act([&](Actions& actions) {
        fetch->progress = progress;
        if (fetch->abandoned) actions.push_back([progress] { progress->cancel(); });
    });
}

ContentResult ContentFetcher::takeOver(const std::filesystem::path& file, const Item& item) {
    try {
        return cache_->adopt(file, item);
    } catch (const platform::FileError& failure) {
        return contentFailure(failure);
    }
}

void ContentFetcher::fetched(const FetchPtr& fetch, ContentResult result) {
    if (const auto* failure = std::get_if<ContentFailure>(&result)) {
        if (failure->kind == Kind::noSpace) cache_->dropOldest(roomFor(fetch->item));
    }
    act([&](Actions& actions) {
        queue_.end(fetch);
        forget(fetch);
        answerAll(*fetch, result, actions);
        if (const auto* content = std::get_if<ContentPtr>(&result)) serveElsewhere(*content, actions);
        if (fetch->deleted) cache_->dropItem(fetch->item.itemIdentifier);
        learn(*fetch, result, actions);
        beginWhatFits(actions);
    });
}

void ContentFetcher::forget(const FetchPtr& fetch) {
    const auto known = fetches_.find(fetch->key);
    if (known != fetches_.end() && known->second == fetch) fetches_.erase(known);
}

// Bytes came at another version than they were asked for: others may wait for just these.
void ContentFetcher::serveElsewhere(const ContentPtr& content, Actions& actions) {
    const auto waiting = fetches_.find(ContentKey::of(content->item()));
    if (waiting == fetches_.end()) return;
    const FetchPtr fetch = waiting->second;
    answerAll(*fetch, content, actions);
    abandon(fetch, actions);
}

// Nobody may join it any more; what runs is cancelled, and keeps its place until the extension has answered.
void ContentFetcher::abandon(const FetchPtr& fetch, Actions& actions) {
    forget(fetch);
    fetch->abandoned = true;
    if (fetch->state == ContentFetch::State::queued) {
        queue_.remove(fetch);
        fetch->state = ContentFetch::State::ended;
    } else if (fetch->progress) {
        actions.push_back([progress = fetch->progress] { progress->cancel(); });
    }
}

void ContentFetcher::learn(const ContentFetch& fetch, const ContentResult& result, Actions& actions) {
    if (closed_) return;
    const Reachability before = road_.state();
    if (const auto* failure = std::get_if<ContentFailure>(&result)) {
        if (fetch.abandoned) return;  // its failure is our own doing
        learnFailure(fetch, *failure);
        actions.push_back(
            [this, item = fetch.item, failure = *failure] { surroundings_.failed(item, failure); });
    } else {
        road_.succeeded();
    }
    const Reachability now = road_.state();
    if (now != before) actions.push_back([this, now] { surroundings_.reachabilityChanged(now); });
    if (now == Reachability::unreachable) {
        roadClosed(actions);
    } else if (std::exchange(probing_, false)) {
        actions.push_back([prober = prober_] { prober.cancel(); });
    }
}

void ContentFetcher::learnFailure(const ContentFetch& fetch, const ContentFailure& failure) {
    switch (failure.kind) {
        case Kind::unreachable:
            return road_.failed(fetch.item, fetch.begun, system_.clock->now());
        case Kind::signedOut:
            return road_.signedOut();
        case Kind::gone:
            return road_.gone(fetch.key.item);
        case Kind::timedOut:
        case Kind::extensionFailed:
        case Kind::noSpace:
        case Kind::localDisk:
        case Kind::cancelled:
            return;  // says nothing of the server
    }
}

// Those who wait for their turn are told at once, but for the few whose try is still wanted.
void ContentFetcher::roadClosed(Actions& actions) {
    for (const FetchPtr& fetch : queue_.takeUrgent()) {
        if (road_.admits(fetch->key.item, system_.clock->now())) {
            queue_.add(fetch, true);
            continue;
        }
        fetch->state = ContentFetch::State::ended;
        forget(fetch);
        answerAll(*fetch, contentFailure(Kind::unreachable), actions);
    }
    if (probing_) return;
    probing_ = true;
    const milliseconds pause = *road_.nextPause();
    prober_ = platform::spawn(
        system_.executor,
        [self = weak_from_this(), timers = system_.timers, pause] {
            return probeWhileClosed(self, timers, pause);
        },
        [](std::exception_ptr) {});
}

platform::Task<> ContentFetcher::probeWhileClosed(std::weak_ptr<ContentFetcher> self,
                                                  std::shared_ptr<platform::Timers> timers,
                                                  milliseconds pause) {
    for (std::optional<milliseconds> next = pause; next;) {
        co_await timers->sleep(*next);
        const auto fetcher = self.lock();
        next = fetcher ? fetcher->probe() : std::nullopt;
    }
}

// How long to wait before the next one; absent when there is nothing more to find out.
std::optional<milliseconds> ContentFetcher::probe() {
    std::optional<milliseconds> pause;
    act([&](Actions& actions) {
        if (!closed_) pause = road_.nextPause();
        probing_ = pause.has_value();
        if (!pause) return;
        const Item item = road_.nextProbe();
        const ContentKey key = ContentKey::of(item);
        if (fetches_.contains(key)) return;  // a try is under way
        const FetchPtr fetch = addFetch(item, key);
        fetch->ahead = true;
        queue_.beginProbe(fetch);
        start(fetch, actions);
    });
    return pause;
}

}  // namespace vorlinden::mount
