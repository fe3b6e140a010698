// A content store over a fake extension, on a machine whose time stands in the test's hands.
#pragma once

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "linux/mount/content_store.h"
#include "tests/mount/fake_extension.h"
#include "tests/support/fake_system.h"

namespace vorlinden::tests {

using mount::Content;
using mount::ContentFailure;
using mount::Reachability;
using protocol::Item;
using protocol::ItemIdentifier;
using Kind = ContentFailure::Kind;
using std::chrono::milliseconds;
using std::chrono::seconds;

inline Item textItem(const ItemIdentifier& identifier, int version = 1) {
    Item item;
    item.itemIdentifier = identifier;
    item.filename = identifier + ".md";
    item.contentType = platform::FileType::data();
    item.itemVersion.contentVersion = platform::Data(std::to_string(version));
    item.contentModificationDate = platform::Timestamp(milliseconds(1'700'000'000'000 + version));
    return item;
}

inline Item blobItem(const ItemIdentifier& identifier, std::int64_t size, int version = 1) {
    Item item = textItem(identifier, version);
    item.documentSize = size;
    return item;
}

inline std::string bytesOf(const Content& content) {
    std::string bytes(content.size(), '\0');
    const ssize_t got = ::pread(content.descriptor(), bytes.data(), bytes.size(), 0);
    bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    return bytes;
}

// What one reader heard.
struct ReaderOutcome {
    int calls = 0;
    std::shared_ptr<const Content> content;
    std::optional<Kind> failure;
    std::shared_ptr<mount::ContentStore::Wait> wait;

    std::string text() const { return content ? bytesOf(*content) : "(nothing)"; }
};
using Outcome = std::shared_ptr<ReaderOutcome>;

class ContentStoreFixture : public testing::Test {
 protected:
    ~ContentStoreFixture() override { close(); }

    mount::ContentStore& store() {
        if (!store_) {
            store_ = mount::openContentStore(
                machine.system(), options,
                {.extension = [this] { return hasExtension ? extension : nullptr; },
                 .failed =
                     [this](const Item& item, const ContentFailure& failure) {
                         failed.emplace_back(item.itemIdentifier, failure.kind);
                     },
                 .reachabilityChanged = [this](Reachability now) { reached.push_back(now); }});
        }
        return *store_;
    }
    void close() {
        if (store_) store_->shutDown();
        store_.reset();
        machine.loop.runUntilIdle();
    }

    // Asks, and runs as far as it gets.
    Outcome open(const Item& item, milliseconds deadline = seconds(10)) {
        auto outcome = std::make_shared<ReaderOutcome>();
        outcome->wait = store().open(item, deadline, [outcome](mount::ContentResult result) {
            ++outcome->calls;
            if (auto* failure = std::get_if<ContentFailure>(&result))
                outcome->failure = failure->kind;
            else
                outcome->content = std::get<std::shared_ptr<const Content>>(std::move(result));
        });
        machine.loop.runUntilIdle();
        return outcome;
    }
    // The text of an item that the extension has.
    std::string read(const Item& item) { return open(item)->text(); }
    bool isHere(const Item& item) { return store().openIfHere(item) != nullptr; }
    std::size_t fetches() const { return extension->asked().size(); }

    Item put(const Item& item, std::string bytes) {
        extension->put(item, std::move(bytes));
        return item;
    }
    std::vector<std::filesystem::path> filesBelow(const std::filesystem::path& folder) {
        std::vector<std::filesystem::path> files;
        for (const auto& entry : std::filesystem::directory_iterator(folder))
            files.push_back(entry.path());
        return files;
    }

    FakeSystem machine;
    mount::ContentStoreOptions options{.folder = machine.folder / "cache/store"};
    std::filesystem::path temporary = machine.folder / "cache/temporary";
    std::shared_ptr<FakeExtension> extension = std::make_shared<FakeExtension>(temporary);
    bool hasExtension = true;
    std::vector<std::pair<ItemIdentifier, Kind>> failed;
    std::vector<Reachability> reached;

 private:
    std::shared_ptr<mount::ContentStore> store_;
};

}  // namespace vorlinden::tests
