#include "linux/host/choices.h"

#include "linux/host/round.h"
#include "tests/host/host_fixture.h"

namespace vorlinden::host {
namespace {

using Kind = PendingChangeKind;

class ChoicesTest : public tests::HostTest {
 protected:
    ChoicesTest() {
        addBrain(1, "notes", {"a.md", copyPath});
        server.contents = {{"a.md", "theirs"}, {copyPath, "mine"}};
        sync();
    }
    void sync() {
        RoundObserver observer;
        through([&] { return syncRound(workspace, observer); });
    }
    TreePath at(const std::string& path) { return {*workspace->store->brain(brain), path}; }
    std::string contentOf(const std::string& path) {
        const auto place = at(path);
        return std::string(machine.loop.run([&] { return Choices::content(workspace, place); }).view());
    }
    // As the refusal of a new file leaves it.
    void addRefused(const std::string& path, const std::string& bytes) {
        auto node = tests::fileNode(brain, path, "local:7");
        node.localOnly = true;
        node.uploadError = "No write access";
        workspace->store->upsert(node);
        if (!bytes.empty()) spool.write(Data::copyOf(bytes), ConflictSpool::nodeKey(node.nodeId));
    }
    std::optional<NodeRecord> node(const std::string& path) {
        return workspace->store->nodeByPath(brain, path);
    }
    void keepMine(const std::string& path) {
        const auto copy = at(path);
        machine.loop.run([&] { return Choices::keepMine(workspace, copy); });
    }

    const std::string copyPath = "a (conflicted copy X 2026-03-04).md";
    const WorkspaceRef workspace = openSignedIn();
    const ConflictSpool spool = ConflictSpool::inAppGroup(machine.system());
    const UUID brain = tests::numberedUUID(1);
};

TEST_F(ChoicesTest, ARefusedFileIsSentAgainWithItsBytes) {
    addRefused("refused.md", "bytes");
    Choices::retry(*workspace, at("refused.md"));
    Choices::retry(*workspace, at("refused.md"));
    EXPECT_EQ(workspace->store->pendingChanges(brain).size(), 1U) << "it waits already the second time";
    sync();
    EXPECT_EQ(server.contents["refused.md"], "bytes");
    EXPECT_FALSE(node("refused.md")->localOnly);
    EXPECT_FALSE(node("refused.md")->uploadError);
}

TEST_F(ChoicesTest, WhatCantBeSentAgainIsSaidAndLeftAsItIs) {
    EXPECT_THROW(Choices::retry(*workspace, at("a.md")), ChangeRefused);
    EXPECT_THROW(Choices::retry(*workspace, at("no.md")), NoSuchPlace);
    addRefused("huge.bin", "");
    EXPECT_THROW(Choices::retry(*workspace, at("huge.bin")), ChangeRefused);
    EXPECT_TRUE(node("huge.bin")->uploadError);
    EXPECT_TRUE(workspace->store->pendingChanges(brain).empty());
}

TEST_F(ChoicesTest, KeepingMineReplacesTheFileAndRemovesTheCopyWhole) {
    EXPECT_EQ(contentOf("a.md"), "theirs");
    EXPECT_EQ(contentOf(copyPath), "mine");
    EXPECT_THROW(keepMine("a.md"), ChangeRefused) << "that is no copy";
    machine.files->failOn(tests::FileOperation::write, ENOSPC);
    EXPECT_THROW(keepMine(copyPath), FileError);
    EXPECT_TRUE(workspace->store->pendingChanges(brain).empty());
    machine.files->before = {};

    keepMine(copyPath);
    EXPECT_EQ(contentOf("a.md"), "mine") << "what waits counts already";
    sync();
    EXPECT_EQ(server.contents["a.md"], "mine");
    EXPECT_FALSE(node(copyPath));
}

TEST_F(ChoicesTest, ACopyThatOnlyWaitsGoesWithItsRowAndItsBytesAreKept) {
    auto copy = tests::fileNode(brain, "b (conflicted copy X 2026-03-04).md", "local:8");
    copy.localOnly = true;
    workspace->store->upsert(copy);
    auto row = tests::pendingChange(brain, Kind::create, copy.path);
    row.nodeId = copy.nodeId;
    const auto id = workspace->store->enqueue(row);
    spool.writeNewCopy(Data::copyOf("waiting"), id);
    Choices::keepTheirs(*workspace, at(copy.path));
    EXPECT_TRUE(workspace->store->pendingChanges(brain).empty());
    EXPECT_FALSE(node(copy.path));
    sync();
    EXPECT_FALSE(server.contents.contains(copy.path));
    EXPECT_EQ(Recovery::count(*machine.files, workspace->recovery->folder()), 1U);

    workspace->store->upsert(copy);
    const auto again = workspace->store->enqueue(row);
    spool.writeNewCopy(Data::copyOf("waiting"), again);
    keepMine(copy.path);
    sync();
    EXPECT_EQ(server.contents["b.md"], "waiting") << "the file that was gone is there again";
    EXPECT_FALSE(node(copy.path));
}

}  // namespace
}  // namespace vorlinden::host
