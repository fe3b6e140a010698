#include <filesystem>
#include <fstream>
#include <map>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "linux/mount/content_failures.h"
#include "linux/mount/content_key.h"
#include "linux/mount/content_sizes.h"
#include "tests/mount/content_store_fixture.h"

namespace vorlinden::mount {
namespace {

using tests::blobItem;
using tests::textItem;

TEST(ContentKeys, TellEveryContentOfAnItemApart) {
    const Item item = blobItem("a", 5);
    Item renamed = item;
    renamed.filename = "other";
    renamed.itemVersion.metadataVersion = platform::Data::copyOf("other");
    EXPECT_EQ(ContentKey::of(item), ContentKey::of(renamed));

    Item dated = item;
    dated.contentModificationDate.reset();
    for (const Item& other : {blobItem("b", 5), blobItem("a", 5, 2), blobItem("a", 6), textItem("a"), dated})
        EXPECT_NE(ContentKey::of(item), ContentKey::of(other));

    const ContentKey key = ContentKey::of(item);
    EXPECT_EQ(ContentKey::fromFileName(key.fileName()), key);
    for (std::string name : {std::string(), key.fileName() + "0", std::string(48, 'g'), std::string(48, 'A')})
        EXPECT_EQ(ContentKey::fromFileName(name), std::nullopt) << name;
}

// However the file is cut or overwritten, what is read is something that was written.
RC_GTEST_PROP(ContentSizes, RememberTheLastWordAndNeverInvent, ()) {
    const tests::TemporaryFolder folder;
    const auto file = folder / "sizes";
    std::map<int, std::uint64_t> model;
    std::map<int, std::set<std::uint64_t>> everSaid;
    const auto key = [](int item) { return ContentKey::of(textItem(std::to_string(item))); };
    bool damaged = false;
    auto sizes = std::make_unique<ContentSizes>(file);
    for (int step = *rc::gen::inRange(0, 60); step > 0; --step) {
        const int item = *rc::gen::inRange(0, 5);
        const auto size = *rc::gen::inRange<std::uint64_t>(0, 1000);
        switch (*rc::gen::weightedElement<int>({{8, 0}, {3, 1}, {2, 2}, {1, 3}})) {
            case 0:
                sizes->remember(key(item), size);
                model[item] = size;
                everSaid[item].insert(size);
                break;
            case 1:
                sizes->forget(key(item).item);
                model.erase(item);
                break;
            case 2:
                sizes.reset();
                sizes = std::make_unique<ContentSizes>(file);
                break;
            default: {
                sizes.reset();
                const auto length = std::filesystem::file_size(file);
                std::filesystem::resize_file(file,
                                             length - *rc::gen::inRange<std::uintmax_t>(0, length + 1) / 2);
                sizes = std::make_unique<ContentSizes>(file);
                damaged = true;
            }
        }
        for (int known = 0; known < 5; ++known) {
            const auto found = sizes->find(key(known));
            if (!damaged)
                RC_ASSERT(found == (model.contains(known) ? std::optional(model[known]) : std::nullopt));
            if (found) RC_ASSERT(everSaid[known].contains(*found));
        }
    }
}

TEST(ContentSizes, AFileFullOfOldNewsIsWrittenAnew) {
    const tests::TemporaryFolder folder;
    const ContentKey key = ContentKey::of(textItem("a"));
    {
        ContentSizes sizes(folder / "sizes");
        for (std::uint64_t size = 0; size < 10'000; ++size)
            sizes.remember(key, size);
    }
    EXPECT_GT(std::filesystem::file_size(folder / "sizes"), 100'000u);
    EXPECT_EQ(ContentSizes(folder / "sizes").find(key), 9'999u);
    EXPECT_LT(std::filesystem::file_size(folder / "sizes"), 100u);
    EXPECT_EQ(ContentSizes(folder / "sizes").find(key), 9'999u);
}

TEST(ContentFailures, ADiskWithoutRoomIsNotTakenForAServerOutOfReach) {
    namespace protocol = platform::fileprovider;
    const protocol::Error unreachable(protocol::errorDomain, protocol::serverUnreachable);
    const auto kind = [&](const Item& item) {
        return contentFailure(unreachable, item, std::filesystem::temp_directory_path()).kind;
    };
    EXPECT_EQ(kind(blobItem("small", 1)), ContentFailure::Kind::unreachable);
    EXPECT_EQ(kind(blobItem("huge", std::int64_t{1} << 60)), ContentFailure::Kind::noSpace);
    EXPECT_EQ(contentFailure(platform::FileError(ENOSPC, "x")).kind, ContentFailure::Kind::noSpace);
    EXPECT_EQ(contentFailure(platform::FileError(EIO, "x")).kind, ContentFailure::Kind::localDisk);
}

}  // namespace
}  // namespace vorlinden::mount
