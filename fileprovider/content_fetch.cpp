#include "fileprovider/content_fetch.h"

#include <algorithm>
#include <filesystem>
#include <string>
#include <utility>
#include <variant>

#include "fileprovider/error_mapping.h"
#include "fileprovider/items.h"
#include "fileprovider/node_lookup.h"
#include "fileprovider/reply.h"
#include "platform/file_types.h"
#include "synckit/conflicts/conflict_spool.h"
#include "synckit/container/app_group.h"
#include "synckit/container/sync_execution_owner.h"
#include "synckit/upload/node_content_snapshot.h"

namespace vorlinden::fileprovider {

namespace protocol = platform::fileprovider;
using CorePtr = std::shared_ptr<ExtensionCore>;
using FetchReply = std::shared_ptr<Reply<FetchHandler>>;

namespace {

// What a file name of 255 bytes has room for behind a UUID and a dot.
constexpr std::size_t longestExtension = 218;  // bytes

struct FetchedContent {
    std::filesystem::path file;
    Item item;
};

NodeRecord requireFile(const ItemIdentifier& identifier, MetadataStore& store) {
    NodeRecord record = requireNode(identifier, store);
    if (record.isDirectory) throw providerError(protocol::noSuchItem);
    return record;
}

Task<NodeContentSnapshot> readSnapshot(CorePtr core, UUID brainId, std::string nodeId) {
    const SyncExecutionOwner owner(AppGroup::syncExecutionLockURL(core->system()));
    auto read = [core, brainId, nodeId]() -> Task<std::optional<NodeContentSnapshot>> {
        const auto container = AppGroup::containerURL(core->system());
        const ConflictSpool spool(core->system().files, AppGroup::spoolDirectory(container));
        co_return NodeContentSnapshot::read(brainId, nodeId, *core->store(), spool);
    };
    auto snapshot = co_await owner.withOwnership(core->system(), read);
    if (!snapshot) throw providerError(protocol::noSuchItem);
    co_return *std::move(snapshot);
}

Data bytesOf(DownloadedFile file) {
    if (auto* text = std::get_if<DownloadedFile::Text>(&file.value)) return Data(std::move(text->content));
    return std::get<DownloadedFile::Blob>(std::move(file.value)).bytes;
}

Task<Data> currentBytes(CorePtr core, NodeContentSnapshot snapshot) {
    if (snapshot.retainedBytes) co_return *std::move(snapshot.retainedBytes);
    if (snapshot.record.localOnly || !snapshot.cursor) throw providerError(protocol::noSuchItem);
    std::function<Task<DownloadedFile>()> request =
        [api = core->api(), brain = snapshot.record.brainId.lowerText(), path = snapshot.record.path,
         cursor = *snapshot.cursor] { return api->downloadFile(brain, path, cursor); };
    auto file = co_await core->tokenManager()->withAuthRetry<DownloadedFile>(std::move(request));
    co_return bytesOf(std::move(file));
}

std::string temporaryName(platform::Random& random, const std::string& filename) {
    std::string name = UUID::random(random).upperText();
    const std::string extension = platform::pathExtension(filename);
    if (!extension.empty() && extension.size() <= longestExtension) name += "." + extension;
    return name;
}

std::filesystem::path writeTemporary(const ExtensionCore& core, const NodeRecord& record, const Data& bytes) {
    const platform::System& system = core.system();
    const auto manager = system.managerForDomain(core.domain());
    if (!manager) throw providerError(protocol::cannotSynchronize);
    const auto file = manager->temporaryDirectory() / temporaryName(*system.random, record.filename());
    system.files->writeUnflushed(bytes, file);  // server or spool has it still
    return file;
}

// The record of the snapshot, not the catalogue's newest: item and bytes belong together.
Item itemOf(const ExtensionCore& core, const NodeRecord& record, const std::filesystem::path& file) {
    try {
        return FileProviderItem(SyncItem{record}, *core.store());
    } catch (...) {
        core.system().files->remove(file);  // nobody takes it over
        throw;
    }
}

Task<FetchedContent> fetch(CorePtr core, UUID brainId, std::string nodeId) {
    const NodeContentSnapshot snapshot = co_await readSnapshot(core, brainId, nodeId);
    const Data bytes = co_await currentBytes(core, snapshot);
    auto file = writeTemporary(*core, snapshot.record, bytes);
    Item item = itemOf(*core, snapshot.record, file);
    co_return FetchedContent{std::move(file), std::move(item)};
}

Task<> fetchAndReply(CorePtr core, NodeRecord record, std::shared_ptr<Progress> progress, FetchReply reply) {
    std::optional<FetchedContent> content;
    std::optional<Error> failure;
    try {
        content = co_await fetch(core, record.brainId, record.nodeId);
    } catch (...) {
        failure = mapError(std::current_exception());
    }
    if (failure) {
        reply->fail(*std::move(failure));
        co_return;
    }
    progress->setCompletedUnitCount(progress->totalUnitCount());
    reply->succeed(std::move(content->file), std::move(content->item), std::nullopt);
}

std::shared_ptr<Progress> start(const CorePtr& core, const ItemIdentifier& identifier,
                                const FetchReply& reply) {
    core->requireSession();
    NodeRecord record = requireFile(identifier, *core->store());
    auto progress = std::make_shared<Progress>(std::max<std::int64_t>(record.blobSize.value_or(1), 1));
    core->track(progress, [core, record = std::move(record), progress, reply] {
        return fetchAndReply(core, record, progress, reply);
    });
    return progress;
}

}  // namespace

std::shared_ptr<Progress> fetchContents(const CorePtr& core, const ItemIdentifier& identifier,
                                        FetchHandler handler) {
    const FetchReply reply = makeReply(std::move(handler));
    try {
        return start(core, identifier, reply);
    } catch (...) {
        reply->fail(mapError(std::current_exception()));
        return finishedProgress();
    }
}

}  // namespace vorlinden::fileprovider
