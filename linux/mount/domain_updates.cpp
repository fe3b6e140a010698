// How the tree is kept current: what is read from the extension, when, and what follows a failure.

#include <algorithm>
#include <cerrno>
#include <utility>

#include "linux/mount/domain_state.h"
#include "platform/failure.h"
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

// Only an extension without a catalogue can't tell what the root is.
bool answersForRoot(ReplicatedExtension& extension) {
    try {
        lookUpItem(extension, fp::rootContainerItemIdentifier);
        return true;
    } catch (const Error& error) {
        return !hasCode(error, fp::cannotSynchronize);
    }
}

void answer(ReplicatedExtension& source, const Questions& questions, ChangeBatch& batch) {
    for (const ItemIdentifier& container : questions.containers)
        batch.answers.emplace_back(ChangeBatch::Listing{container, listContainer(source, container)});
    for (const ItemIdentifier& identifier : questions.items)
        batch.answers.emplace_back(ChangeBatch::Lookup{identifier, lookUpItem(source, identifier)});
}

}  // namespace

// True when applied. The kernel's news are handed on under the lock: whoever sees the tree changed can know
// that they are on their way.
bool Domain::State::applyOrAsk(const ChangeBatch& batch, Questions& questions) {
    std::lock_guard hold(mutex);
    auto outcome = tree.apply(batch, system.clock->now());
    if (auto* open = std::get_if<Questions>(&outcome)) {
        questions = std::move(*open);
        return false;
    }
    auto& told = std::get<std::vector<Invalidation>>(outcome);
    if (!told.empty()) surroundings.invalidate(std::move(told));
    return true;
}

void Domain::State::settle(ReplicatedExtension& source, ChangeBatch batch) {
    for (Questions questions; !applyOrAsk(batch, questions);)
        answer(source, questions, batch);
    if (!batch.deleted.empty()) contents->itemsDeleted(batch.deleted);
    if (!batch.updated.empty()) contents->itemsChanged(batch.updated);
}

int Domain::State::listFolder(Inode folder) {
    ItemIdentifier container;
    {
        std::lock_guard hold(mutex);
        const Node* node = tree.find(folder);
        if (!node || !node->isFolder()) return ESTALE;
        if (node->folder->listed || node->place == Node::Place::gone) return 0;
        container = node->identifier;
    }
    try {
        makeExtensionIfMissing();
        const auto source = requiredExtension();
        ChangeBatch batch;
        answer(*source, {{container}, {}}, batch);
        settle(*source, std::move(batch));
        return 0;
    } catch (const Error& error) {
        extensionFailed(error);
        return errnoOf(error);
    } catch (const std::exception&) {  // trouble with this folder alone
        return EIO;
    }
}

void Domain::State::readChanges() {
    const auto source = requiredExtension();
    if (!anchor) begin(*source);
    try {
        WorkingSetChanges changes = changesSince(*source, *anchor);
        if (!changes.updated.empty() || !changes.deleted.empty())
            settle(*source, {std::move(changes.updated), std::move(changes.deleted), {}});
        if (changes.anchor == *anchor) return;
        anchor = std::move(changes.anchor);
    } catch (const Error& error) {
        if (!hasCode(error, fp::syncAnchorExpired)) throw;
        enumerateAnew(*source);
    }
    remember();
}

// The tops of the brains are listed at once: orphans are shown there, and only changes tell of them.
void Domain::State::begin(ReplicatedExtension& source) {
    DomainMemory memory = loadMemory(*system.files, surroundings.memory);
    ChangeBatch tops;
    answer(source, {{fp::rootContainerItemIdentifier}, {}}, tops);
    Questions rest{{}, memory.strays};
    for (const Item& item : std::get<ChangeBatch::Listing>(tops.answers.front()).items)
        if (item.contentType.isDirectory()) rest.containers.push_back(item.itemIdentifier);
    answer(source, rest, tops);
    settle(source, std::move(tops));
    anchor = std::move(memory.anchor);
}

// The catalogue was replaced or set back: everything that is shown is read again.
void Domain::State::enumerateAnew(ReplicatedExtension& source) {
    SyncAnchor now = currentAnchor(source);
    Questions all;
    {
        std::lock_guard hold(mutex);
        all = {tree.listedContainers(), tree.strays()};
    }
    ChangeBatch batch;
    answer(source, all, batch);
    std::vector<Item> listed;
    for (const auto& each : batch.answers)
        if (const auto* listing = std::get_if<ChangeBatch::Listing>(&each))
            listed.insert(listed.end(), listing->items.begin(), listing->items.end());
    settle(source, std::move(batch));
    contents->itemsChanged(listed);
    anchor = std::move(now);
}

void Domain::State::remember() {
    DomainMemory memory{*anchor, {}};
    {
        std::lock_guard hold(mutex);
        memory.strays = tree.strays();
    }
    try {
        saveMemory(*system.files, surroundings.memory, memory);
    } catch (const platform::FileError&) {
        // An older memory stays; the next daemon reads more than it had to.
    }
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

// While a failed object's pause lasts, its successor isn't made, whoever asks.
void Domain::State::makeExtensionIfMissing() {
    {
        std::lock_guard hold(mutex);
        if (extension || (retryAt && std::chrono::steady_clock::now() < *retryAt)) return;
    }
    auto made = surroundings.makeExtension();
    std::lock_guard hold(mutex);
    extension = std::move(made);
}

// An object whose catalogue didn't open never opens it again; another is made after the pause. A failure of
// one read alone is no reason.
void Domain::State::extensionFailed(const Error& error) {
    const auto current = currentExtension();
    const bool isOfNoUse = current && hasCode(error, fp::cannotSynchronize) && !answersForRoot(*current);
    std::shared_ptr<ReplicatedExtension> dropped;
    {
        std::lock_guard hold(mutex);
        if (isOfNoUse) dropped = std::exchange(extension, nullptr);
        const auto now = std::chrono::steady_clock::now();
        if (!retryAt || *retryAt <= now) {
            pause = std::clamp<std::chrono::milliseconds>(pause * 2, firstPause, longestPause);
            retryAt = now + pause;
        }
        inTrouble = true;
    }
    surroundings.extensionTrouble(sentenceFor(error));
}

void Domain::State::extensionWorks() {
    pause = 0ms;
    {
        std::lock_guard hold(mutex);
        retryAt.reset();
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

void Domain::State::enqueue(std::function<void()> job) {
    {
        std::lock_guard hold(mutex);
        jobs.push_back(std::move(job));
    }
    changed.notify_one();
}

// Whoever waits comes before what the kernel hasn't asked for.
void Domain::State::follow() {
    std::unique_lock hold(mutex);
    while (!stopping) {
        const auto isCalled = [this] { return stopping || signalled || !jobs.empty(); };
        if (!retryAt)
            changed.wait(hold, isCalled);
        else if (!changed.wait_until(hold, *retryAt, isCalled))
            signalled = true;
        std::function<void()> next = [this] { bringUpToDate(); };
        if (!jobs.empty()) {
            next = std::move(jobs.front());
            jobs.pop_front();
        } else if (!std::exchange(signalled, false)) {
            continue;
        }
        hold.unlock();
        next();
        next = nullptr;
        hold.lock();
    }
}

void Domain::State::bringUpToDate() {
    try {
        makeExtensionIfMissing();
        readChanges();
        extensionWorks();
    } catch (const Error& error) {
        extensionFailed(error);
    } catch (const std::exception& failure) {  // this thread's edge: nobody above it could tell the person
        extensionFailed(Error(fp::errorDomain, fp::serverUnreachable, failure.what()));
    }
}

}  // namespace vorlinden::mount
