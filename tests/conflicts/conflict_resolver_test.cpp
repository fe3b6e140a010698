#include "synckit/conflicts/conflict_resolver.h"

#include <gtest/gtest.h>

#include "tests/conflicts/conflict_world.h"

namespace vorlinden::tests {
namespace {

using Kind = PendingChangeKind;

Op edit(std::string path) {
    return {Op::Update{std::move(path), {}, {}, true, {}}};
}
Op remove(std::string path) {
    return {Op::Delete{std::move(path)}};
}

class ConflictResolverTest : public testing::Test, protected ConflictWorld {
 protected:
    // A copy made of `bytes`, as an edit of `path` that lost.
    ConflictCopy copyOf(const std::string& path, Data bytes) {
        const auto id = waiting(pendingChange(brain, Kind::update, path));
        spool.writeNewEdit(bytes, id);
        pull({edit(path)});
        return resolver->copies().back();
    }
};

TEST_F(ConflictResolverTest, CopyIsANewLocalFile) {
    givenFile("d/report.final.md", "F");
    now = *platform::parseTimestamp("2026-03-14T23:59:59.999Z");
    const auto copy = copyOf("d/report.final.md", Data(std::string("mine")));
    const std::string path = "d/report.final (conflicted copy M 2026-03-14).md";
    EXPECT_EQ(copy, (ConflictCopy{brain, "d/report.final.md", path, at(path).nodeId, 2}));
    EXPECT_EQ(at(path),
              (NodeRecord{brain, copy.nodeId, path, "report.final (conflicted copy M 2026-03-14)", false,
                          NodeKind::text, std::nullopt, std::nullopt, now, 1, true, std::nullopt}));
    EXPECT_EQ(catalogue->pendingChange(2),
              (PendingChange{2, brain, copy.nodeId, Kind::create, path, std::nullopt, "c0", now}))
        << "based on the cursor before the batch";
    EXPECT_EQ(at("d").updatedAt, now) << "folders above the copy are as new as it is";
    EXPECT_EQ(
        ConflictEventLog::drain(*catalogue),
        (std::vector{ConflictEvent{ConflictEvent::Kind::conflictedCopy, brain, "d/report.final.md", path,
                                   "“report.final.md” changed on another device while you were editing it. "
                                   "Your version was saved as “report.final (conflicted copy M "
                                   "2026-03-14).md”.",
                                   now}}));
}

TEST_F(ConflictResolverTest, CopyIsJudgedByItsBytes) {
    givenFile("f", "F");
    const auto blob = at(copyOf("f", Data(std::string("\0", 1))).copyPath);
    EXPECT_EQ(blob.kind, NodeKind::blob);
    EXPECT_EQ(blob.blobHash, "6e340b9cffb37a989ca544e6bb780a2c78901d3fb33738768511a30617afa01d");
    EXPECT_EQ(blob.blobSize, 1);

    const Data tooLarge(std::string(static_cast<std::size_t>(UploadPlanner::maxUploadBytes) + 1, 'x'));
    const auto copy = copyOf("f", tooLarge);
    EXPECT_EQ(copy.journalId, 0);
    EXPECT_EQ(line(at(copy.copyPath)).substr(copy.copyPath.size()),
              " = local:* v1 local-only (File is too large to sync (limit 100 MB))");
    EXPECT_EQ(journal(), Lines{"create f~ @c0"}) << "only the first copy goes up";
    EXPECT_EQ(spool.read(ConflictSpool::nodeKey(copy.nodeId)), tooLarge);
    EXPECT_EQ(messages().size(), 2U);
}

TEST_F(ConflictResolverTest, TwoEditsOfOneFileAreTwoCopies) {
    givenFile("f", "F");
    waitingEdit(Kind::update, "f", "one");
    waitingEdit(Kind::update, "f", "two");
    pull({edit("f"), remove("f")});
    EXPECT_EQ(tree(), (Lines{"f~2 = local:* v1 local-only", "f~ = local:* v1 local-only"}));
    EXPECT_EQ(spooled(), (Lines{"copy-3=one", "copy-4=two", "edit-1=one", "edit-2=two"}));
    EXPECT_EQ(messages().size(), 2U) << "the second op finds the rows gone";
    EXPECT_EQ(resolver->copies().size(), 2U);
}

TEST_F(ConflictResolverTest, TakesNoNameThatIsTakenOrClaimed) {
    const std::string name = "f (conflicted copy M 2026-03-14", second = name + " 2)", third = name + " 3)";
    givenFile("f", "F");
    givenFile(name + ")", "taken");
    waitingMove(second, "elsewhere");
    waitingMove("elsewhere", third);
    EXPECT_EQ(shortName(copyOf("f", Data()).copyPath), "f~4");

    // A name that an earlier op of the batch set free, or took, counts as it now stands.
    const auto id = waitingEdit(Kind::update, "f");
    waitingEdit(Kind::update, "f");
    ASSERT_EQ(id, 5);
    Reconciler::applyFeedEntries(*random,
                                 {{"c2", instant(), {}, {edit("f"), remove(name + ")"), edit("f")}},
                                  {"c3", instant(), {}, {{Op::Mkdir{name + " 6)", "F"}}}}},
                                 brain, "c3", *catalogue,
                                 [&](const FeedEntry&, const Op& op, const PendingChange& pending) {
                                     const bool first = pending.id == id;
                                     const bool freed = !catalogue->nodeByPath(brain, name + ")");
                                     if (first == freed) return ConflictResolution::remoteWins;
                                     return resolver->handle({}, op, pending);
                                 });
    const auto copies = resolver->copies();
    ASSERT_EQ(copies.size(), 3U);
    EXPECT_EQ(shortName(copies[1].copyPath), "f~5");
    EXPECT_EQ(shortName(copies[2].copyPath), "f~");
}

TEST_F(ConflictResolverTest, NamesInOtherFormsAreTakenToo) {
    givenFile("caf\u00e9.md", "F");
    givenFile("cafe\u0301 (conflicted copy M 2026-03-14).md", "taken");
    EXPECT_EQ(shortName(copyOf("caf\u00e9.md", Data()).copyPath), "caf\u00e9~2.md");
    EXPECT_EQ(shortName(copyOf("CAF\u00c9.md", Data()).copyPath), "CAF\u00c9~.md") << "case tells apart";
    EXPECT_EQ(shortName(copyOf("a b/\U0001F600 .txt", Data()).copyPath), "a b/\U0001F600 ~.txt");
    const std::string longName(400, 'n');
    EXPECT_EQ(shortName(copyOf(longName, Data()).copyPath), longName + "~");
}

TEST_F(ConflictResolverTest, DeviceNameIsMadeSafe) {
    const std::vector<std::pair<std::string, std::string>> names{{" \u2003\n", "Mac"},
                                                                 {"", "Mac"},
                                                                 {" Studio/Mac: 2\n", "Studio-Mac- 2"},
                                                                 {"/", "-"},
                                                                 {"\u00c9l\u00e8ve", "\u00c9l\u00e8ve"}};
    int number = 0;
    for (const auto& [given, used] : names) {
        resolver = resolverNamed(given);
        const auto path = "a/" + std::to_string(number++);
        const auto mark = " (conflicted copy " + used + " 2026-03-14)";
        EXPECT_EQ(copyOf(path, Data()).copyPath, path + mark);
        const auto local = "l" + path;
        givenLocalFile(local, "local:L");
        resolver->applyReset({{"S", local, "L", false, NodeKind::text, {}, {}, now}}, brain, "c0");
        EXPECT_EQ(catalogue->nodeById(brain, "local:L")->path, local + mark)
            << "that makes room for the server's";
    }
}

TEST_F(ConflictResolverTest, AsksForTheBytesWithWhatItKnows) {
    givenFile("there", "F");
    std::vector<std::optional<std::string>> asked;
    resolver = std::make_shared<ConflictResolver>(
        random, catalogue.store(), "M", spool, [this] { return now; },
        [&](const PendingChange& change, const std::optional<NodeRecord>& row) -> std::optional<Data> {
            asked.push_back(row ? std::optional(row->nodeId) : std::nullopt);
            if (change.path == "lost") return std::nullopt;
            return Data(std::string("found"));
        });
    waiting(pendingChange(brain, Kind::update, "there"));
    waiting(pendingChange(brain, Kind::create, "a/new"));
    pull({edit("there"), edit("a/new")});
    EXPECT_EQ(asked, (std::vector<std::optional<std::string>>{"F", std::nullopt}));
    EXPECT_EQ(spooled(), (Lines{"copy-3=found", "copy-4=found"}));

    const auto before = tree();
    waiting(pendingChange(brain, Kind::update, "lost"));
    try {
        pull({edit("there"), edit("lost")});
        ADD_FAILURE() << "an edit whose bytes can't be had now must wait";
    } catch (const FileError& error) {
        EXPECT_EQ(error, FileError::noSuchFile());
    }
    EXPECT_EQ(tree(), before);
    EXPECT_EQ(journal().back(), "update lost @c0");
}

TEST_F(ConflictResolverTest, CopyThatCannotBeToldOfIsNone) {
    givenFile("f", "F");
    waitingEdit(Kind::update, "f");
    catalogue->setMeta("no JSON", MetaKey::conflictEvents);
    EXPECT_THROW(pull({edit("f")}), platform::JSONError);
    EXPECT_EQ(journal(), Lines{"update f @c0"});
    EXPECT_EQ(spooled(), (Lines{"copy-2=mine", "edit-1=mine"})) << "the file waits for the next sweep";
    EXPECT_TRUE(resolver->copies().empty());

    catalogue->setMeta(std::nullopt, MetaKey::conflictEvents);
    pull({edit("f")});
    EXPECT_EQ(journal(), Lines{"create f~ @c0"});
}

TEST_F(ConflictResolverTest, HandleLeavesAloneWhatIsSettled) {
    auto unsaved = pendingChange(brain, Kind::update, "f");
    EXPECT_EQ(resolver->handle({}, edit("f"), unsaved), ConflictResolution::remoteWins);
    unsaved.id = 77;
    EXPECT_EQ(resolver->handle({}, edit("f"), unsaved), ConflictResolution::remoteWins);
    EXPECT_EQ(tree(), Lines{});

    std::weak_ptr<ConflictResolver> alive = resolver;
    auto handler = resolver->conflictHandler();
    resolver.reset();
    EXPECT_FALSE(alive.expired()) << "the handler keeps its resolver";
    EXPECT_EQ(handler({}, edit("f"), unsaved), ConflictResolution::remoteWins);
}

TEST_F(ConflictResolverTest, ListsWhatABatchWillCost) {
    auto known = pendingChange(brain, Kind::update, "f");
    known.baseCursor = "c1";
    const auto twice = pendingChange(brain, Kind::remove, "d/in");
    const auto later = pendingChange(brain, Kind::update, "g");
    const auto aside = pendingChange(brain, Kind::update, "h");
    const std::vector<FeedEntry> entries{{"c1", instant(), {}, {edit("f"), remove("d")}},
                                         {"c2", instant(), {}, {edit("g"), edit("f"), edit("d/in")}}};
    EXPECT_EQ(ConflictResolver::collidingPending(entries, {later, known, aside, twice}),
              (std::vector{later, twice}));
}

}  // namespace
}  // namespace vorlinden::tests
