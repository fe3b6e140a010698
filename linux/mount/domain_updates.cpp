// How the tree is kept current: what is read from the extension, when, and what follows a failure.

#include <algorithm>
#include <cerrno>
#include <utility>

#include "linux/mount/domain_state.h"
#include "platform/fileprovider/manager.h"

namespace vorlinden::mount {

namespace {

namespace fp = platform::fileprovider;
using namespace std::chrono_literals;

constexpr auto firstPause = 500ms;
constexpr auto longestPause = 30'000ms;

bool hasCode(const Error& error, fp::ErrorCode code) {
    return error.domain == fp::errorDomain && error.code == code;
}

int errnoOf(const Error& error) {
    return hasCode(error, fp::notAuthenticated) ? EACCES : EIO;
}

std::string sentenceFor(const Error& error) {
    if (hasCode(error, fp::notAuthenticated)) return "Nobody is signed in. Run “vorlinden login”.";
    if (error.text) return *error.text;
    return "The catalogue of this machine can't be read. It is tried again from time to time.";
}

}  // namespace

// Asks what the batch leaves open until nothing is, and applies it.
void Domain::State::settle(ChangeBatch batch) {
    const auto source = requiredExtension();
    while (true) {
        std::unique_lock hold(mutex);
        const Questions open = tree.questions(batch);
        if (open.empty()) break;
        hold.unlock();
        for (const ItemIdentifier& container : open.containers)
            batch.answers.emplace_back(ChangeBatch::Listing{container, listContainer(*source, container)});
        for (const ItemIdentifier& identifier : open.items)
            batch.answers.emplace_back(ChangeBatch::Lookup{identifier, lookUpItem(*source, identifier)});
    }
    {
        // In one hold, so that nobody finds the tree changed and the kernel's news not yet on their way.
        std::lock_guard hold(mutex);
        auto invalidations = tree.apply(batch, system.clock->now());
        if (!invalidations.empty()) surroundings.invalidate(std::move(invalidations));
    }
    if (contents && !batch.deleted.empty()) contents->itemsDeleted(batch.deleted);
    if (contents && !batch.updated.empty()) contents->itemsChanged(batch.updated);
}

// Changes are read from a moment before the first listing on, so that none is missed.
void Domain::State::anchorFirst(ReplicatedExtension& from) {
    if (!anchor) anchor = currentAnchor(from);
}

int Domain::State::listFolder(const ItemIdentifier& container) {
    std::lock_guard one(updates);
    {
        std::lock_guard hold(mutex);
        const Node* node = tree.findItem(container);
        if (!node || !node->isFolder()) return ESTALE;
        if (node->folder->listed) return 0;
    }
    try {
        const auto source = requiredExtension();
        anchorFirst(*source);
        ChangeBatch batch;
        batch.answers.emplace_back(ChangeBatch::Listing{container, listContainer(*source, container)});
        settle(std::move(batch));
        return 0;
    } catch (const Error& error) {
        extensionFailed(error, false);
        changed.notify_one();  // the thread tries again after the pause
        return errnoOf(error);
    }
}

void Domain::State::readChanges() {
    std::lock_guard one(updates);
    const auto source = requiredExtension();
    if (!anchor) return anchorFirst(*source);
    try {
        WorkingSetChanges changes = changesSince(*source, *anchor);
        if (!changes.updated.empty() || !changes.deleted.empty())
            settle({std::move(changes.updated), std::move(changes.deleted), {}});
        anchor = std::move(changes.anchor);
    } catch (const Error& error) {
        if (!hasCode(error, fp::syncAnchorExpired)) throw;
        enumerateAnew();
    }
}

// The catalogue was replaced or set back: everything that is shown is read again.
void Domain::State::enumerateAnew() {
    const auto source = requiredExtension();
    SyncAnchor begin = currentAnchor(*source);
    std::vector<ItemIdentifier> containers;
    std::vector<ItemIdentifier> strays;
    {
        std::lock_guard hold(mutex);
        containers = tree.listedContainers();
        strays = tree.strays();
    }
    ChangeBatch batch;
    for (const ItemIdentifier& container : containers)
        batch.answers.emplace_back(ChangeBatch::Listing{container, listContainer(*source, container)});
    for (const ItemIdentifier& stray : strays)
        batch.answers.emplace_back(ChangeBatch::Lookup{stray, lookUpItem(*source, stray)});
    settle(std::move(batch));
    anchor = std::move(begin);
}

std::shared_ptr<ReplicatedExtension> Domain::State::currentExtension() {
    std::lock_guard hold(mutex);
    return extension;
}

std::shared_ptr<ReplicatedExtension> Domain::State::requiredExtension() {
    auto current = currentExtension();
    if (!current) throw Error(fp::errorDomain, fp::cannotSynchronize);
    return current;
}

void Domain::State::makeExtensionIfMissing() {
    if (currentExtension()) return;
    auto made = surroundings.makeExtension();
    std::lock_guard hold(mutex);
    extension = std::move(made);
}

// An object whose catalogue didn't open never opens it again; another is made after the pause.
void Domain::State::extensionFailed(const Error& error, bool wasTheNextTry) {
    std::shared_ptr<ReplicatedExtension> dropped;
    {
        std::lock_guard hold(mutex);
        if (hasCode(error, fp::cannotSynchronize)) dropped = std::exchange(extension, nullptr);
        // A reader's failure starts a pause, but never puts off the try that is due.
        if (wasTheNextTry || pause == 0ms) {
            pause = std::clamp<std::chrono::milliseconds>(pause * 2, firstPause, longestPause);
            pauseIsNew = true;
        }
        inTrouble = true;
    }
    surroundings.extensionTrouble(sentenceFor(error));
}

void Domain::State::extensionWorks() {
    {
        std::lock_guard hold(mutex);
        pause = 0ms;
        if (!std::exchange(inTrouble, false)) return;
    }
    surroundings.extensionTrouble(std::nullopt);
}

void Domain::State::wakeUp() {
    {
        std::lock_guard hold(mutex);
        signalled = true;
    }
    changed.notify_one();
}

void Domain::State::follow() {
    std::unique_lock hold(mutex);
    while (!stopping) {
        const auto called = [this] { return stopping || signalled; };
        if (pause > 0ms)
            changed.wait_for(hold, pause, called);
        else
            changed.wait(hold, [&] { return called() || pause > 0ms; });
        const bool mustWaitFirst = pause > 0ms && !signalled && std::exchange(pauseIsNew, false);
        if (stopping || mustWaitFirst) continue;
        signalled = pauseIsNew = false;
        hold.unlock();
        bringUpToDate();
        hold.lock();
    }
}

void Domain::State::bringUpToDate() {
    try {
        makeExtensionIfMissing();
        readChanges();
        extensionWorks();
    } catch (const Error& error) {
        extensionFailed(error, true);
    } catch (const std::exception& failure) {  // this thread's edge: nobody above it could tell the person
        extensionFailed(Error(fp::errorDomain, fp::serverUnreachable, failure.what()), true);
    }
    std::lock_guard hold(mutex);
    pauseIsNew = false;
}

}  // namespace vorlinden::mount
