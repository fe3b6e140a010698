#include "fileprovider/items.h"

#include <charconv>
#include <utility>
#include <vector>

#include <openssl/evp.h>

#include "platform/file_types.h"
#include "synckit/server/sync_json.h"

namespace vorlinden::fileprovider {

namespace protocol = platform::fileprovider;
using platform::FileType;

namespace {

// A brain can be looked into and added to, but neither moved, renamed nor deleted.
constexpr std::uint32_t containerCapabilities = protocol::allowsReading | protocol::allowsWriting;
// The same for every node: whether the server would refuse a write is known only once it did.
constexpr std::uint32_t nodeCapabilities =
    containerCapabilities | protocol::allowsReparenting | protocol::allowsRenaming | protocol::allowsDeleting;
constexpr std::int64_t uploadErrorCode = 1;

// Folders of the upper levels have no content of their own, so their content never changes.
Data fixedVersion() {
    return Data::copyOf("0");
}

FileType contentType(const NodeRecord& node, const std::string& filename) {
    if (node.isDirectory) return FileType::folder();
    const std::string extension = platform::pathExtension(filename);
    if (extension.empty()) return FileType::data();
    return FileType::forExtension(extension).value_or(FileType::data());
}

Item brainItem(const BrainRecord& brain) {
    return {
        .itemIdentifier = platformIdentifier(SyncItemIdentifier::brain(brain.brainId)),
        .parentItemIdentifier = rootContainerItemIdentifier,
        .filename = brain.slug,
        .contentType = FileType::folder(),
        .itemVersion = {fixedVersion(), versionDigest(brain.slug + "|" + brain.name)},
        .capabilities = containerCapabilities,
        .documentSize = {},
        .contentModificationDate = {},
        .creationDate = {},
        .uploadingError = {},
    };
}

std::optional<Error> uploadingError(const NodeRecord& node) {
    if (!node.uploadError) return {};
    return Error(uploadErrorDomain, uploadErrorCode, node.uploadError);
}

Item nodeItem(const NodeRecord& node, MetadataStore& store) {
    std::string filename = node.filename();
    const FileType type = contentType(node, filename);
    return {
        .itemIdentifier = platformIdentifier(node.identifier()),
        .parentItemIdentifier = platformIdentifier(store.parentIdentifier(node)),
        .filename = std::move(filename),
        .contentType = type,
        .itemVersion = {Data(std::to_string(node.contentVersion)),
                        versionDigest(SyncJSON::string(node.updatedAt) + "|" + node.title)},
        .capabilities = nodeCapabilities,
        .documentSize = node.kind == NodeKind::blob ? node.blobSize : std::nullopt,
        .contentModificationDate = node.updatedAt,
        .creationDate = node.updatedAt,
        .uploadingError = uploadingError(node),
    };
}

Item item(const SyncItem& from, MetadataStore& store) {
    if (const auto* brain = std::get_if<BrainRecord>(&from.value)) return brainItem(*brain);
    return nodeItem(std::get<NodeRecord>(from.value), store);
}

}  // namespace

RootItem::RootItem()
    : Item{
          .itemIdentifier = rootContainerItemIdentifier,
          .parentItemIdentifier = rootContainerItemIdentifier,
          .filename = "Vorlinden",
          .contentType = FileType::folder(),
          .itemVersion = {fixedVersion(), fixedVersion()},
          .capabilities = containerCapabilities,
          .documentSize = {},
          .contentModificationDate = {},
          .creationDate = {},
          .uploadingError = {},
      } {}

FileProviderItem::FileProviderItem(const SyncItem& from, MetadataStore& store) : Item(item(from, store)) {}

std::optional<SyncItemIdentifier> syncIdentifier(const ItemIdentifier& identifier) {
    if (identifier == rootContainerItemIdentifier) return SyncItemIdentifier::root();
    if (identifier == workingSetContainerItemIdentifier || identifier == trashContainerItemIdentifier) {
        return {};
    }
    return SyncItemIdentifier::fromRawValue(identifier);
}

ItemIdentifier platformIdentifier(const SyncItemIdentifier& identifier) {
    if (identifier == SyncItemIdentifier::root()) return rootContainerItemIdentifier;
    return identifier.rawValue();
}

std::optional<std::int64_t> parseDecimal(std::string_view text) {
    // from_chars takes a minus sign but no plus sign.
    if (text.starts_with('+')) {
        text.remove_prefix(1);
        if (text.starts_with('-')) return {};
    }
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size()) return {};
    return number;
}

std::optional<std::int64_t> baseContentVersion(const ItemVersion& version) {
    return parseDecimal(version.contentVersion.view());
}

Data versionDigest(std::string_view text) {
    std::vector<std::uint8_t> digest(32);
    EVP_Digest(text.data(), text.size(), digest.data(), nullptr, EVP_sha256(), nullptr);
    return Data(std::move(digest));
}

}  // namespace vorlinden::fileprovider
