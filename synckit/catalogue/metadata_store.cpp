// Opening, and the values of the store.
#include "synckit/catalogue/metadata_store.h"

#include "platform/files.h"
#include "platform/system.h"
#include "synckit/catalogue/schema.h"

namespace vorlinden {

namespace {

struct Identifier {
    SyncItemIdentifier operator()(const BrainRecord& brain) const {
        return SyncItemIdentifier::brain(brain.brainId);
    }
    SyncItemIdentifier operator()(const NodeRecord& node) const { return node.identifier(); }
};

struct Description {
    std::string operator()(const MetadataStoreError::UnknownBrain& error) const {
        return "unknown brain " + error.brainId.upperText();
    }
    std::string operator()(const MetadataStoreError::ContainerUnavailable& error) const {
        return "no shared container for the group " + error.group;
    }
    std::string operator()(const MetadataStoreError::CorruptRow& error) const {
        return "corrupt row in the catalogue: " + error.text;
    }
};

std::shared_ptr<MetadataStore> openIn(platform::FileSystem& files, const std::filesystem::path& file) {
    files.createDirectories(file.parent_path());
    return std::make_shared<MetadataStore>(file.string());
}

}  // namespace

SyncItemIdentifier SyncItem::identifier() const {
    return std::visit(Identifier{}, value);
}

MetadataStoreError::MetadataStoreError(Reason theReason)
    : Failure(std::visit(Description{}, theReason)), reason(std::move(theReason)) {}

MetadataStore::MetadataStore(const std::string& path) : database_(path) {
    Schema::migrate(database_);
}

std::shared_ptr<MetadataStore> MetadataStore::open(const std::filesystem::path& file) {
    return openIn(*platform::posixFileSystem(), file);
}

std::shared_ptr<MetadataStore> MetadataStore::openInAppGroup(const platform::System& system,
                                                             const std::string& identifier) {
    const auto container = system.groupContainer(identifier);
    if (!container) throw MetadataStoreError::containerUnavailable(identifier);
    return openIn(*system.files, databaseURL(*container));
}

std::filesystem::path MetadataStore::databaseURL(const std::filesystem::path& container) {
    return container / "Library" / "Application Support" / "Vorlinden" / "sync.sqlite";
}

}  // namespace vorlinden
