// The insides of Domain, shared by its sources.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "linux/mount/domain.h"
#include "linux/mount/extension_reader.h"
#include "linux/mount/item_tree.h"

namespace vorlinden::mount {

// Two locks, outermost first: `updates`, held by the one thread that reads the extension and applies what it
// read, so that the tree never takes an older answer after a newer one; `mutex`, held for a look at the tree.
struct Domain::State {
    State(platform::System theSystem, platform::fileprovider::Domain theDomain, DomainSurroundings around);

    const platform::System system;
    const platform::fileprovider::Domain domain;
    const DomainSurroundings surroundings;
    std::shared_ptr<ContentStore> contents;  // constant after start()

    // Reading and applying; see domain_updates.cpp. Each takes `updates` itself.
    int listFolder(const ItemIdentifier& container);  // 0 or an errno
    void readChanges();                               // throws Error
    void makeExtensionIfMissing();

    std::shared_ptr<ReplicatedExtension> currentExtension();
    std::shared_ptr<ReplicatedExtension> requiredExtension();  // throws Error
    void extensionFailed(const Error& error, bool wasTheNextTry);
    void extensionWorks();

    // The thread that follows the working set.
    void follow();
    void wakeUp();

    std::mutex updates;
    std::optional<SyncAnchor> anchor;  // guarded by `updates`; absent until something was read

    std::mutex mutex;  // guards all below
    ItemTree tree;
    std::shared_ptr<ReplicatedExtension> extension;
    bool inTrouble = false;
    bool signalled = false;
    bool stopping = false;
    std::chrono::milliseconds pause{0};  // until the next try without a signal; 0: none is due
    bool pauseIsNew = false;             // the thread hasn't begun to wait for it
    std::condition_variable changed;

    std::unique_ptr<platform::NotificationCenter::Registration> registration;
    std::thread thread;

 private:
    void bringUpToDate();
    void settle(ChangeBatch batch);
    void enumerateAnew();
    void anchorFirst(ReplicatedExtension& from);
};

}  // namespace vorlinden::mount
