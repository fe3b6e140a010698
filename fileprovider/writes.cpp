// The writing side of the extension. This version of the extension only reads: every write is refused, with a
// sentence for the user, before anything is touched.
#include <string>

#include "fileprovider/error_mapping.h"
#include "fileprovider/extension_core.h"
#include "fileprovider/file_provider_extension.h"
#include "fileprovider/reply.h"

namespace vorlinden::fileprovider {

namespace {

template <class Handler>
std::shared_ptr<Progress> refuse(const Handler& handler) {
    answerFailure(handler, providerError(platform::fileprovider::cannotSynchronize,
                                         "Files can be read here, but not changed yet."));
    return finishedProgress();
}

}  // namespace

std::shared_ptr<Progress> FileProviderExtension::createItem(const ItemTemplate&, std::uint32_t,
                                                            const std::optional<std::filesystem::path>&,
                                                            std::uint32_t, const Request&,
                                                            WriteHandler handler) {
    return refuse(handler);
}

std::shared_ptr<Progress> FileProviderExtension::modifyItem(const Item&, const ItemVersion&, std::uint32_t,
                                                            const std::optional<std::filesystem::path>&,
                                                            std::uint32_t, const Request&,
                                                            WriteHandler handler) {
    return refuse(handler);
}

std::shared_ptr<Progress> FileProviderExtension::deleteItem(const ItemIdentifier&, const ItemVersion&,
                                                            std::uint32_t, const Request&,
                                                            DeleteHandler handler) {
    return refuse(handler);
}

}  // namespace vorlinden::fileprovider
