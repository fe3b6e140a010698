// An extension that delivers what the test has put into it.
#pragma once

#include <algorithm>
#include <filesystem>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "platform/fileprovider/protocol.h"
#include "platform/files.h"

namespace vorlinden::tests {

namespace protocol = platform::fileprovider;

// Answers fetches at once, or, while held, when told to. A cancelled fetch is answered by the cancel.
// Thread-safe; offers nothing but fetches.
class FakeExtension final : public protocol::ReplicatedExtension {
 public:
    explicit FakeExtension(std::filesystem::path temporary) : temporary_(std::move(temporary)) {
        std::filesystem::create_directories(temporary_);
    }

    // What a fetch of that item gives from now on.
    void put(const protocol::Item& item, std::string bytes) {
        std::lock_guard hold(mutex_);
        outcomes_.insert_or_assign(item.itemIdentifier, Content{item, std::move(bytes)});
    }
    void fail(const protocol::ItemIdentifier& identifier, protocol::ErrorCode code) {
        std::lock_guard hold(mutex_);
        outcomes_.insert_or_assign(identifier, protocol::Error(protocol::errorDomain, code));
    }
    void failAll(std::optional<protocol::ErrorCode> code) {
        std::lock_guard hold(mutex_);
        all_ = code;
    }

    void hold() {
        std::lock_guard hold(mutex_);
        held_ = true;
    }
    void release() {
        std::vector<protocol::ItemIdentifier> waiting;
        {
            std::lock_guard hold(mutex_);
            held_ = false;
            for (const auto& fetch : waiting_)
                waiting.push_back(fetch->identifier);
        }
        for (const auto& identifier : waiting)
            answer(identifier);
    }
    // From now on a cancelled fetch goes on all the same.
    void ignoreCancels() { ignoresCancels_ = true; }
    // Answers the oldest fetch of the item that waits.
    void answer(const protocol::ItemIdentifier& identifier) {
        const auto fetch = take([&](const Waiting& waiting) { return waiting.identifier == identifier; });
        if (fetch) deliver(identifier, fetch->handler);
    }

    std::vector<protocol::ItemIdentifier> asked() const {  // all fetches, in order
        std::lock_guard hold(mutex_);
        return asked_;
    }
    std::size_t waiting() const {
        std::lock_guard hold(mutex_);
        return waiting_.size();
    }

    std::shared_ptr<protocol::Progress> fetchContents(const protocol::ItemIdentifier& identifier,
                                                      const std::optional<protocol::ItemVersion>&,
                                                      const protocol::Request&,
                                                      protocol::FetchHandler handler) override {
        const auto progress = std::make_shared<protocol::Progress>(1);
        const auto fetch = std::make_shared<Waiting>(Waiting{identifier, std::move(handler)});
        {
            std::lock_guard hold(mutex_);
            asked_.push_back(identifier);
            if (held_) waiting_.push_back(fetch);
            if (!held_) progress->setCompletedUnitCount(1);
        }
        if (progress->completedUnitCount() == 1) {
            deliver(identifier, fetch->handler);
        } else {
            // Weakly, since the asker's handler may lead back to the progress.
            progress->setCancellationHandler([this, weak = std::weak_ptr(fetch)] {
                const auto given = weak.lock();
                if (!given || ignoresCancels_) return;
                if (!take([&](const Waiting& waiting) { return &waiting == given.get(); })) return;
                given->handler({}, {}, protocol::Error(protocol::cocoaErrorDomain, protocol::userCancelled));
            });
        }
        return progress;
    }

    void invalidate() override {}
    std::shared_ptr<protocol::Progress> itemForIdentifier(const protocol::ItemIdentifier&,
                                                          const protocol::Request&,
                                                          protocol::ItemHandler) override {
        throw std::logic_error("not asked of this fake");
    }
    std::shared_ptr<protocol::Enumerator> enumeratorForContainer(const protocol::ItemIdentifier&,
                                                                 const protocol::Request&) override {
        throw std::logic_error("not asked of this fake");
    }
    std::shared_ptr<protocol::Progress> createItem(const protocol::ItemTemplate&, std::uint32_t,
                                                   const std::optional<std::filesystem::path>&, std::uint32_t,
                                                   const protocol::Request&,
                                                   protocol::WriteHandler) override {
        throw std::logic_error("not asked of this fake");
    }
    std::shared_ptr<protocol::Progress> modifyItem(const protocol::Item&, const protocol::ItemVersion&,
                                                   std::uint32_t, const std::optional<std::filesystem::path>&,
                                                   std::uint32_t, const protocol::Request&,
                                                   protocol::WriteHandler) override {
        throw std::logic_error("not asked of this fake");
    }
    std::shared_ptr<protocol::Progress> deleteItem(const protocol::ItemIdentifier&,
                                                   const protocol::ItemVersion&, std::uint32_t,
                                                   const protocol::Request&,
                                                   protocol::DeleteHandler) override {
        throw std::logic_error("not asked of this fake");
    }

 private:
    struct Content {
        protocol::Item item;
        std::string bytes;
    };
    struct Waiting {
        protocol::ItemIdentifier identifier;
        protocol::FetchHandler handler;
    };
    using Outcome = std::variant<Content, protocol::Error>;

    template <class Predicate>
    std::shared_ptr<Waiting> take(Predicate matches) {
        std::lock_guard hold(mutex_);
        const auto found = std::ranges::find_if(waiting_, [&](const auto& fetch) { return matches(*fetch); });
        if (found == waiting_.end()) return nullptr;
        auto fetch = *found;
        waiting_.erase(found);
        return fetch;
    }

    Outcome outcomeOf(const protocol::ItemIdentifier& identifier) {
        std::lock_guard hold(mutex_);
        if (all_) return protocol::Error(protocol::errorDomain, *all_);
        return outcomes_.at(identifier);
    }

    void deliver(const protocol::ItemIdentifier& identifier, const protocol::FetchHandler& handler) {
        Outcome outcome = outcomeOf(identifier);
        if (auto* error = std::get_if<protocol::Error>(&outcome)) return handler({}, {}, std::move(*error));
        auto& content = std::get<Content>(outcome);
        std::filesystem::path file;
        {
            std::lock_guard hold(mutex_);
            file = temporary_ / std::to_string(++delivered_);
        }
        platform::posixFileSystem()->writeUnflushed(platform::Data(std::move(content.bytes)), file);
        handler(std::move(file), std::move(content.item), {});
    }

    const std::filesystem::path temporary_;
    bool ignoresCancels_ = false;
    mutable std::mutex mutex_;  // guards the fields below
    std::map<protocol::ItemIdentifier, Outcome> outcomes_;
    std::optional<protocol::ErrorCode> all_;
    bool held_ = false;
    std::list<std::shared_ptr<Waiting>> waiting_;
    std::vector<protocol::ItemIdentifier> asked_;
    int delivered_ = 0;
};

}  // namespace vorlinden::tests
