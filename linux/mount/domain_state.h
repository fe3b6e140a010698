// The insides of Domain, shared by its sources.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "linux/mount/domain.h"
#include "linux/mount/domain_memory.h"
#include "linux/mount/extension_reader.h"
#include "linux/mount/item_tree.h"

namespace vorlinden::mount {

struct Domain::State {
    State(platform::System theSystem, platform::fileprovider::Domain theDomain, DomainSurroundings around);

    const platform::System system;
    const platform::fileprovider::Domain domain;
    const DomainSurroundings surroundings;
    const Timestamp started;
    std::shared_ptr<ContentStore> contents;  // constant after start()

    bool takeIn(Inode inode, const Content& content);  // with the mutex held

    // On any thread.
    void wakeUp();
    void enqueue(std::function<void()> job);
    std::shared_ptr<ReplicatedExtension> currentExtension();
    void makeExtensionIfMissing();

    // The domain's thread, and what runs on it.
    void follow();
    int listFolder(Inode folder);  // 0 or an errno
    void bringUpToDate();

    // Of the domain's thread alone.
    std::optional<SyncAnchor> anchor;  // absent until the first changes were read
    std::chrono::milliseconds pause{0};

    std::mutex mutex;  // guards all below
    ItemTree tree;
    std::shared_ptr<ReplicatedExtension> extension;
    bool inTrouble = false;
    bool signalled = false;
    bool stopping = false;
    std::deque<std::function<void()>> jobs;
    std::optional<std::chrono::steady_clock::time_point> retryAt;  // when to try again without a signal
    std::condition_variable changed;

    std::unique_ptr<platform::NotificationCenter::Registration> registration;
    std::thread thread;

 private:
    void readChanges();  // throws Error, as the next three do
    void begin(ReplicatedExtension& source);
    void enumerateAnew(ReplicatedExtension& source);
    void settle(ReplicatedExtension& source, ChangeBatch batch);
    bool applyOrAsk(const ChangeBatch& batch, Questions& questions);
    void remember();
    std::shared_ptr<ReplicatedExtension> requiredExtension();  // throws Error
    void extensionFailed(const Error& error);
    void extensionWorks();
};

}  // namespace vorlinden::mount
