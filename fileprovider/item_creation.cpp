#include "fileprovider/item_creation.h"

#include <string>
#include <utility>

#include "fileprovider/content_upload.h"
#include "fileprovider/handed_content.h"
#include "fileprovider/items.h"
#include "fileprovider/node_lookup.h"
#include "synckit/upload/local_mutations.h"

namespace vorlinden::fileprovider {

namespace protocol = platform::fileprovider;

namespace {

struct Creation {
    ItemIdentifier parent;
    std::string filename;
    bool isDirectory = false;
    HandedContent content;
};

Error rejectionOf(const UploadPlanError& error) {
    const bool noInbox = std::holds_alternative<UploadPlanError::NoInboxBrain>(error.reason);
    return providerError(noInbox ? protocol::noSuchItem : protocol::cannotSynchronize,
                         error.errorDescription());
}

// A file that the server will never take stays here, with its bytes and the reason.
NodeRecord keepHere(const ExtensionCore& core, const WriteContext& context, const UploadTarget& target,
                    const std::string& message, const Data& data, std::int64_t journalId) {
    return context.store->inTransaction([&] {
        auto record = LocalMutations::applyLocalOnly(*core.system().random, *context.store, target.brainId,
                                                     target.path, message, now(core));
        context.spool.write(data, ConflictSpool::nodeKey(record.nodeId));
        context.store->removePending(journalId);
        withdrawOlderContent(context, target, journalId);
        return record;
    });
}

Task<NodeRecord> bounce(CorePtr core, const WriteContext& context, const UploadTarget& target,
                        const Data& data, std::int64_t journalId) {
    const auto bounced = context.resolver->bounceCreate(target.brainId, target.path, journalId, data);
    co_await tryToSendCopy(core, context, bounced.copy);
    auto copy = context.store->nodeById(bounced.copy.brainId, bounced.copy.nodeId);
    if (!copy) throw providerError(protocol::noSuchItem);
    co_return *std::move(copy);
}

Task<NodeRecord> uploadNew(CorePtr core, const WriteContext& context, const UploadTarget& target,
                           const HandedContent& content) {
    auto plan = content.plan();
    if (std::holds_alternative<ContentUploadPlan::TooLarge>(plan.value)) {
        co_return LocalMutations::applyLocalOnly(*core->system().random, *context.store, target.brainId,
                                                 target.path, std::string(tooLargeMessage), now(*core));
    }
    const Data data = content.bytes();
    const auto journalId = journalContent(*core, context, target, data);
    auto outcome = co_await sendJournalled(core, context, target, std::move(plan), journalId);
    if (auto* record = std::get_if<NodeRecord>(&outcome)) co_return std::move(*record);
    if (const auto* forGood = std::get_if<RefusedForGood>(&std::get<Refusal>(outcome)))
        co_return keepHere(*core, context, target, forGood->message, data, journalId);
    co_return co_await bounce(core, context, target, data, journalId);
}

Task<NodeRecord> carryOut(CorePtr core, const WriteContext& context, const CreatePlan& plan,
                          const HandedContent& content) {
    platform::Random& random = *core->system().random;
    if (const auto* rejected = std::get_if<CreatePlan::Rejected>(&plan.value))
        throw rejectionOf(rejected->error);
    if (const auto* junk = std::get_if<CreatePlan::LocalOnly>(&plan.value)) {
        co_return LocalMutations::applyLocalOnly(random, *context.store, junk->brainId, junk->path,
                                                 std::nullopt, now(*core));
    }
    if (const auto* folder = std::get_if<CreatePlan::LocalDirectoryOnly>(&plan.value)) {
        co_return LocalMutations::applyLocalDirectory(random, *context.store, folder->brainId, folder->path,
                                                      now(*core));
    }
    const auto& upload = std::get<CreatePlan::Upload>(plan.value);
    const UploadTarget target{upload.brainId, upload.path, std::nullopt};
    co_return co_await uploadNew(core, context, target, content);
}

Task<ItemWriteResult> create(CorePtr core, Creation creation) {
    const WriteContext context = makeWriteContext(*core);
    creation.content.requireReadable();
    const auto parent = resolveParent(creation.parent, *context.store);
    const auto plan = UploadPlanner::planCreate(parent.identifier, parent.path, creation.filename,
                                                creation.isDirectory, context.inboxBrainId);
    const NodeRecord record = co_await carryOut(core, context, plan, creation.content);
    co_return ItemWriteResult{FileProviderItem(SyncItem{record}, *context.store), false};
}

}  // namespace

std::shared_ptr<Progress> createItem(const CorePtr& core, const ItemTemplate& item, const Contents& contents,
                                     WriteHandler handler) {
    Creation creation{item.parentItemIdentifier, item.filename,
                      item.contentType && item.contentType->isDirectory(), HandedContent()};
    if (contents && !creation.isDirectory) creation.content = HandedContent(core->system().files, *contents);
    const ItemWrite write = [core, creation = std::move(creation)] { return create(core, creation); };
    return core->track(
        [core, parent = item.parentItemIdentifier, write, reply = makeReply(std::move(handler))] {
            return performWrite(core, {parent}, std::nullopt, write, reply);
        });
}

}  // namespace vorlinden::fileprovider
