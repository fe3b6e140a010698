#include "fileprovider/file_provider_extension.h"

#include <utility>

#include "fileprovider/content_fetch.h"
#include "fileprovider/enumerator.h"
#include "fileprovider/error_mapping.h"
#include "fileprovider/extension_core.h"
#include "fileprovider/item_creation.h"
#include "fileprovider/item_deletion.h"
#include "fileprovider/item_modification.h"
#include "fileprovider/items.h"

namespace vorlinden::fileprovider {

namespace protocol = platform::fileprovider;

namespace {

Item lookUp(ExtensionCore& core, const ItemIdentifier& identifier) {
    core.requireSession();
    MetadataStore& store = *core.store();
    if (identifier == rootContainerItemIdentifier) return RootItem();
    const auto known = syncIdentifier(identifier);
    const auto record = known ? store.record(*known) : std::nullopt;
    if (!record) throw providerError(protocol::noSuchItem);
    return FileProviderItem(*record, store);
}

}  // namespace

FileProviderExtension::FileProviderExtension(Domain domain, platform::System system) noexcept
    : core_(std::make_shared<ExtensionCore>(std::move(domain), std::move(system))) {}

FileProviderExtension::~FileProviderExtension() {
    core_->cancelAll();
}

std::exception_ptr FileProviderExtension::openFailure() const {
    return core_->openFailure();
}

std::size_t FileProviderExtension::operationsInFlight() const {
    return core_->tasksInFlight();
}

void FileProviderExtension::invalidate() {
    core_->cancelAll();
}

std::shared_ptr<Progress> FileProviderExtension::itemForIdentifier(const ItemIdentifier& identifier,
                                                                   const Request&, ItemHandler handler) {
    std::optional<Item> item;
    std::optional<Error> error;
    try {
        item = lookUp(*core_, identifier);
    } catch (...) {
        error = mapError(std::current_exception());
    }
    handler(std::move(item), std::move(error));
    return finishedProgress();
}

std::shared_ptr<Enumerator> FileProviderExtension::enumeratorForContainer(const ItemIdentifier& container,
                                                                          const Request&) {
    core_->requireSession();
    const auto& store = core_->store();
    if (container == trashContainerItemIdentifier) throw providerError(protocol::noSuchItem);
    return std::make_shared<FileProviderEnumerator>(container, store);
}

std::shared_ptr<Progress> FileProviderExtension::fetchContents(const ItemIdentifier& identifier,
                                                               const std::optional<ItemVersion>&,
                                                               const Request&, FetchHandler handler) {
    return fileprovider::fetchContents(core_, identifier, std::move(handler));
}

std::shared_ptr<Progress> FileProviderExtension::createItem(const ItemTemplate& item, std::uint32_t,
                                                            const Contents& contents, std::uint32_t,
                                                            const Request&, WriteHandler handler) {
    return fileprovider::createItem(core_, item, contents, std::move(handler));
}

std::shared_ptr<Progress> FileProviderExtension::modifyItem(const Item& item, const ItemVersion& baseVersion,
                                                            std::uint32_t changedFields,
                                                            const Contents& contents, std::uint32_t,
                                                            const Request&, WriteHandler handler) {
    return fileprovider::modifyItem(core_, item, baseVersion, changedFields, contents, std::move(handler));
}

std::shared_ptr<Progress> FileProviderExtension::deleteItem(const ItemIdentifier& identifier,
                                                            const ItemVersion&, std::uint32_t, const Request&,
                                                            DeleteHandler handler) {
    return fileprovider::deleteItem(core_, identifier, std::move(handler));
}

}  // namespace vorlinden::fileprovider
