// What devices are told: the feed, the snapshot, and contents as they were.
#include <gtest/gtest.h>

#include "synckit/server/sync_json.h"
#include "tests/syncserver/member.h"

namespace vorlinden::tests {
namespace {

using namespace std::chrono_literals;

struct Feed : testing::Test {
    RunningServer running{[](auto& options) { options.keepFeed = 3; }};
    Member member{running.server->url()};

    std::map<std::string, SnapshotNode> nodes() {
        std::map<std::string, SnapshotNode> byPath;
        for (const auto& node : member.snapshot().snapshot)
            byPath.emplace(node.path, node);
        return byPath;
    }
};

TEST_F(Feed, DeliversEveryEntryToTheDeviceThatMadeItToo) {
    const auto start = member.head();
    const auto mine = SyncJSON::decode<WriteResult>(member.putText("a.md", "1").body).cursor;
    const auto theirs = running.admin().put("docs", "b.md", "2");

    const auto all = member.changes(start);
    ASSERT_EQ(all.entries.size(), 2u);
    EXPECT_EQ(all.entries[0].cursor, mine);
    EXPECT_EQ(all.entries[0].author, (Author{AuthorKind::member, "owner", std::nullopt}));
    EXPECT_EQ(all.entries[1].cursor, theirs);
    EXPECT_EQ(all.entries[1].author.kind, AuthorKind::agent);
    EXPECT_EQ(all.cursor, theirs);

    EXPECT_EQ(member.changes(mine).entries, std::vector{all.entries[1]});
    const auto nothing = member.changes(theirs);
    EXPECT_TRUE(nothing.entries.empty());
    EXPECT_EQ(nothing.cursor, theirs);
}

TEST_F(Feed, NoCursorAnUnknownAndAnExpiredOneGiveASnapshot) {
    std::vector<std::string> cursors = {member.head()};
    for (int count = 1; count <= 4; ++count) {
        cursors.push_back(running.admin().put("docs", "a.md", std::to_string(count)));
    }
    EXPECT_EQ(member.changes(cursors[1]).entries.size(), 3u);
    for (const auto& cursor :
         {std::optional<std::string>(), std::optional(cursors[0]), std::optional<std::string>("x")}) {
        const auto reset = member.snapshot(cursor);
        EXPECT_EQ(reset.cursor, cursors[4]);
        ASSERT_EQ(reset.snapshot.size(), 1u);
        EXPECT_EQ(reset.snapshot[0].path, "a.md");
    }
}

TEST_F(Feed, ContentIsWhatItWasAtTheCursor) {
    const auto empty = member.head();
    const auto first = running.admin().put("docs", "f/a.md", "one");
    const auto second = running.admin().put("docs", "f/a.md", "two");
    const auto moved = running.admin().move("docs", "f", "g");
    EXPECT_EQ(member.file("f/a.md", empty).status, 404);
    EXPECT_EQ(member.file("f/a.md", first).text("content"), "one");
    EXPECT_EQ(member.file("f/a.md", second).text("content"), "two");
    EXPECT_EQ(member.file("f/a.md", moved).status, 404);
    EXPECT_EQ(member.file("g/a.md", moved).text("content"), "two");

    const auto deleted = running.admin().remove("docs", "g/a.md");
    EXPECT_EQ(member.file("f/a.md", empty).status, 410);
    EXPECT_EQ(member.file("f/a.md", first).text("content"), "one");
    EXPECT_EQ(member.file("g/a.md", deleted).status, 404);
    running.admin().reset("docs");
    EXPECT_EQ(member.file("f/a.md", first).status, 410);
    EXPECT_EQ(member.file("g/a.md", deleted).status, 410);
}

TEST_F(Feed, TimesAreThoseOfTheContentAndNeverRunBackwards) {
    const auto start = member.head();
    member.putText("a.md", "one");
    const auto created = nodes().at("a.md").updatedAt;
    running.clock->advance(30min);
    member.putText("a.md", "one", R"(,"title":"New")");
    member.move("a.md", "f/b.md");
    EXPECT_EQ(nodes().at("f/b.md").updatedAt, created);
    EXPECT_EQ(nodes().at("f/b.md").title, "New");
    const auto titled = member.changes(start).entries;
    running.clock->advance(-24h);
    const auto before = member.head();
    member.putText("f/b.md", "two");
    const auto changed = member.changes(before).entries.at(0).at;
    EXPECT_EQ(nodes().at("f/b.md").updatedAt, changed);
    EXPECT_LT(titled.at(0).at, titled.at(1).at);
    EXPECT_LT(titled.at(2).at, changed);
}

TEST_F(Feed, SnapshotListsFoldersThatNothingImpliesOrAllOfThem) {
    running.admin().put("docs", "f/g/a.md", "a");
    const auto before = member.head();
    running.admin().makeFolder("docs", "empty");
    running.admin().makeFolder("docs", "empty");
    ASSERT_EQ(member.changes(before).entries.size(), 1u);
    EXPECT_EQ(member.changes(before).entries[0].ops, (std::vector<Op>{{Op::Mkdir{"empty", "empty"}}}));
    running.admin().put("docs", "f/g-h.md", "sorts between g and what is in it");
    EXPECT_TRUE(nodes().at("empty").isDirectory);
    EXPECT_EQ(nodes().size(), 3u);

    running.admin().reset("docs", true);
    auto listed = nodes();
    EXPECT_EQ(listed.size(), 5u);
    EXPECT_TRUE(listed.at("f/g").isDirectory);
    EXPECT_FALSE(listed.at("f").blobSize.has_value());
    EXPECT_EQ(listed.at("f/g").title, "g");
    running.admin().move("docs", "f/g", "f/k");
    EXPECT_EQ(nodes().at("f/k").title, "k");
    EXPECT_EQ(nodes().at("f/k").nodeId, listed.at("f/g").nodeId);

    running.admin().reset("docs", false);
    EXPECT_EQ(nodes().size(), 3u);
}

TEST_F(Feed, ContentsThatNothingNamesAreForgottenAfterADay) {
    const auto used = SyncJSON::decode<BlobReceipt>(member.uploadBlob(std::string(200'000, 'u')).body);
    const auto unused = SyncJSON::decode<BlobReceipt>(member.uploadBlob(std::string(200'000, 'n')).body);
    member.putBlob("u.bin", used.hash, used.size);
    const auto files = [&] {
        return std::distance(std::filesystem::directory_iterator(running.folder / "data" / "contents"), {});
    };
    EXPECT_EQ(files(), 2);
    running.clock->advance(25h);
    running.restart([](auto& options) { options.keepFeed = 0; });
    EXPECT_EQ(files(), 1);

    Member later(running.server->url());
    EXPECT_EQ(later.putBlob("n.bin", unused.hash, unused.size).code(), "UNKNOWN_BLOB");
    EXPECT_EQ(later.content("u.bin").size(), 200'000u);
    later.remove("u.bin");
    EXPECT_EQ(files(), 0);
}

}  // namespace
}  // namespace vorlinden::tests
