#include "fileprovider/write_frame.h"

#include <string_view>
#include <utility>

#include "fileprovider/node_lookup.h"
#include "synckit/container/app_group.h"
#include "synckit/container/sync_execution_owner.h"
#include "synckit/container/sync_signal.h"
#include "synckit/upload/upload_planner.h"

namespace vorlinden::fileprovider {

namespace {

constexpr std::string_view unnamedDevice = "Mac";

std::optional<UUID> inboxBrain(MetadataStore& store) {
    const auto stored = store.meta(MetaKey::inboxBrainId);
    const auto preferred = stored ? UUID::parse(*stored) : std::nullopt;
    return UploadPlanner::resolveInboxBrain(store.brains(), preferred);
}

std::shared_ptr<ConflictResolver> makeResolver(const platform::System& system,
                                               std::shared_ptr<MetadataStore> store, std::string deviceName,
                                               const ConflictSpool& spool) {
    const auto localContent = [spool](const PendingChange& change, const std::optional<NodeRecord>&) {
        return change.id ? spool.pendingBytes(*change.id) : std::nullopt;
    };
    return std::make_shared<ConflictResolver>(
        system.random, std::move(store), std::move(deviceName), spool,
        [clock = system.clock] { return clock->now(); }, localContent);
}

}  // namespace

WriteContext makeWriteContext(ExtensionCore& core) {
    core.requireSession();
    const auto& store = core.store();
    auto deviceId = store->meta(MetaKey::deviceId);
    if (!deviceId) throw providerError(platform::fileprovider::notAuthenticated);
    auto deviceName = store->meta(MetaKey::deviceName).value_or(std::string(unnamedDevice));
    const auto inboxBrainId = inboxBrain(*store);
    const auto spool = ConflictSpool::inAppGroup(core.system());
    auto resolver = makeResolver(core.system(), store, deviceName, spool);
    return {store, *std::move(deviceId), std::move(deviceName), inboxBrainId, spool, std::move(resolver)};
}

Task<std::exception_ptr> runOwned(CorePtr core, std::function<Task<>()> write) {
    try {
        const SyncExecutionOwner owner(AppGroup::syncExecutionLockURL(core->system()));
        co_await owner.withOwnership(core->system(), std::move(write));
        co_return nullptr;
    } catch (...) {
        co_return std::current_exception();
    }
}

Task<> announceWrite(CorePtr core, std::vector<ItemIdentifier> containers) {
    co_await core->signalContainers(std::move(containers));
    core->system().notifications->post(SyncSignal::syncNowName);
}

Task<> performWrite(CorePtr core, std::vector<ItemIdentifier> containers,
                    std::optional<ItemIdentifier> itemIdentifier, ItemWrite write, WriteReply reply) {
    std::optional<ItemWriteResult> result;
    const std::function<Task<>()> body = [&]() -> Task<> {
        if (itemIdentifier) {
            auto before = existingParent(*itemIdentifier, *core->store());
            if (before) containers.push_back(*std::move(before));
        }
        result = co_await write();
    };
    const std::exception_ptr failure = co_await runOwned(core, body);
    if (!failure) containers.push_back(result->item.parentItemIdentifier);
    co_await announceWrite(core, std::move(containers));
    if (failure) {
        reply->fail(mapWriteError(failure));
    } else {
        reply->succeed(std::move(result->item), 0u, result->fetchContent, std::nullopt);
    }
}

Timestamp now(const ExtensionCore& core) {
    return core.system().clock->now();
}

}  // namespace vorlinden::fileprovider
