// The file provider extension: what the daemon talks to for one domain.
//
// An object of identity, made and dropped by the daemon; every operation may be called from any thread, at
// the same time. Each asynchronous operation runs as a tracked task that shares ownership of what it needs
// (the catalogue, the session, the server), so the object may be dropped while operations run: its destructor
// cancels them, as invalidate() does, and their handlers still hear exactly one answer each. A handler is
// also called when the executor is torn down under a task. Handlers must not throw.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>

#include "fileprovider/types.h"
#include "platform/system.h"

namespace vorlinden::fileprovider {

class ExtensionCore;

class FileProviderExtension final : public ReplicatedExtension {
 public:
    // Never throws. Opens the catalogue, once: a failure is kept, and every later operation reports
    // cannotSynchronize, so the daemon drops such an object and makes another after a pause.
    FileProviderExtension(Domain domain, platform::System system) noexcept;
    ~FileProviderExtension() override;
    FileProviderExtension(const FileProviderExtension&) = delete;
    FileProviderExtension& operator=(const FileProviderExtension&) = delete;

    // Why the catalogue didn't open; null if it did.
    std::exception_ptr openFailure() const;
    // Operations that have neither ended nor been given up by invalidate().
    std::size_t operationsInFlight() const;

    // Gives up all operations in flight; later ones are served as before.
    void invalidate() override;
    std::shared_ptr<Progress> itemForIdentifier(const ItemIdentifier& identifier, const Request& request,
                                                ItemHandler handler) override;
    std::shared_ptr<Enumerator> enumeratorForContainer(const ItemIdentifier& container,
                                                       const Request& request) override;
    std::shared_ptr<Progress> fetchContents(const ItemIdentifier& identifier,
                                            const std::optional<ItemVersion>& version, const Request& request,
                                            FetchHandler handler) override;
    // The writes. Each is journalled before the network is touched, runs alone among all sync work of this
    // container, and is answered after the containers it touched were signalled and the host was woken. What
    // the server refuses for good is a success, whose item says why. After serverUnreachable,
    // notAuthenticated or a cancellation the change may wait in the journal, where the host's drain goes on
    // with it: calling again makes a second row. For `contents` see there.
    std::shared_ptr<Progress> createItem(const ItemTemplate& item, std::uint32_t fields,
                                         const Contents& contents, std::uint32_t options,
                                         const Request& request, WriteHandler handler) override;
    std::shared_ptr<Progress> modifyItem(const Item& item, const ItemVersion& baseVersion,
                                         std::uint32_t changedFields, const Contents& contents,
                                         std::uint32_t options, const Request& request,
                                         WriteHandler handler) override;
    std::shared_ptr<Progress> deleteItem(const ItemIdentifier& identifier, const ItemVersion& baseVersion,
                                         std::uint32_t options, const Request& request,
                                         DeleteHandler handler) override;

 private:
    std::shared_ptr<ExtensionCore> core_;
};

}  // namespace vorlinden::fileprovider
