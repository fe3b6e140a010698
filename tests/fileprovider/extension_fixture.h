// An extension on a machine of the test's own, with a session, a brain and short ways to ask it for things.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "fileprovider/error_mapping.h"
#include "fileprovider/file_provider_extension.h"
#include "fileprovider/items.h"
#include "synckit/auth/keychain_token_store.h"
#include "synckit/container/app_group.h"
#include "synckit/container/sync_signal.h"
#include "tests/support/catalogue.h"
#include "tests/support/fake_system.h"

namespace vorlinden::tests {

namespace protocol = platform::fileprovider;
using fileprovider::providerError;
using protocol::Error;
using protocol::Item;
using protocol::ItemIdentifier;

// What a handler heard, and how often.
struct Heard {
    int calls = 0;
    std::optional<std::filesystem::path> file;
    std::optional<Item> item;
    std::optional<Error> error;
    std::shared_ptr<protocol::Progress> progress;
};

inline std::string contentOf(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

class ExtensionWorld {
 public:
    ExtensionWorld() { signIn(); }

    void signIn() {
        KeychainTokenStore(machine->secrets, KeychainTokenStore::defaultService,
                           AppGroup::keychainAccessGroup)
            .save({"access-1", "refresh-1"});
    }

    // The host's own connection to the catalogue that the extension will open.
    MetadataStore& catalogue() {
        if (!catalogue_) catalogue_ = MetadataStore::open(AppGroup::syncDatabaseURL(machine->system()));
        return *catalogue_;
    }

    // A brain that was pulled up to "cursor-1".
    void addBrain() {
        catalogue().upsertBrain(brainRecord(brain));
        catalogue().setCursor("cursor-1", brain);
    }
    ItemIdentifier add(const NodeRecord& node) {
        catalogue().upsert(node);
        return node.identifier().rawValue();
    }

    fileprovider::FileProviderExtension& extension() {
        if (!extension_) {
            extension_ = std::make_unique<fileprovider::FileProviderExtension>(domain, machine->system());
        }
        return *extension_;
    }
    void dropExtension() { extension_.reset(); }

    std::shared_ptr<Heard> lookUp(const ItemIdentifier& identifier) {
        auto heard = std::make_shared<Heard>();
        heard->progress = extension().itemForIdentifier(identifier, {}, [heard](auto item, auto error) {
            ++heard->calls;
            heard->item = std::move(item);
            heard->error = std::move(error);
        });
        return heard;
    }

    // Starts a fetch and runs it as far as it gets.
    std::shared_ptr<Heard> fetch(const ItemIdentifier& identifier) {
        auto heard = std::make_shared<Heard>();
        heard->progress =
            extension().fetchContents(identifier, {}, {}, [heard](auto file, auto item, auto error) {
                ++heard->calls;
                heard->file = std::move(file);
                heard->item = std::move(item);
                heard->error = std::move(error);
            });
        machine->loop.runUntilIdle();
        return heard;
    }

    void answerText(const std::string& content) {
        machine->session->answer(
            FakeURLSession::response(200, R"({"path":"p","at":"cursor-1","content":")" + content + R"("})",
                                     {{"Content-Type", "application/json"}}));
    }
    void answerBlob(std::string bytes) {
        machine->session->answer(
            FakeURLSession::response(200, std::move(bytes), {{"Content-Type", "application/octet-stream"}}));
    }
    void answerError(int status, const std::string& code) {
        machine->session->answer(
            FakeURLSession::response(status, R"({"error":{"code":")" + code + R"(","message":"No."}})",
                                     {{"Content-Type", "application/json"}}));
    }

    const protocol::Domain domain{"vorlinden", "Vorlinden"};
    const UUID brain = numberedUUID(1);
    std::unique_ptr<FakeSystem> machine = std::make_unique<FakeSystem>();

 private:
    std::shared_ptr<MetadataStore> catalogue_;
    std::unique_ptr<fileprovider::FileProviderExtension> extension_;
};

class ExtensionFixture : public testing::Test, public ExtensionWorld {};

}  // namespace vorlinden::tests
