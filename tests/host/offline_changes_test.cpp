#include "linux/host/offline_changes.h"

#include "synckit/conflicts/conflict_spool.h"
#include "tests/host/host_fixture.h"

namespace vorlinden::host {
namespace {

class OfflineChangesTest : public tests::HostTest {
 protected:
    OfflineChangesTest() {
        workspace->store->upsertBrain(tests::brainRecord(brain, "notes"));
        workspace->store->setCursor("here", brain);
        workspace->store->upsert(tests::folderNode(brain, "folder"));
        workspace->store->upsert(tests::fileNode(brain, "folder/a.md", "id-a"));
        auto local = tests::fileNode(brain, "local.md", "local:1");
        local.localOnly = true;
        workspace->store->upsert(local);
    }
    TreePath at(const std::string& text) {
        return treePath(*workspace->store, text, {"/tree/notes/folder", "/tree"});
    }
    std::vector<PendingChange> rows() { return workspace->store->pendingChanges(brain); }

    const UUID brain = tests::numberedUUID(1);
    const WorkspaceRef workspace = openSignedIn();
    const ConflictSpool spool = ConflictSpool::inAppGroup(machine.system());
    const Data content = Data::copyOf("content");
};

TEST_F(OfflineChangesTest, LeaveTheRowsAndBytesOfAnOfflineWrite) {
    OfflineChanges::create(*workspace, at("/tree/notes/folder/b.md"), content);
    OfflineChanges::edit(*workspace, at("a.md"), content);
    OfflineChanges::move(*workspace, at("a.md"), at("/tree/notes/c.md"));
    OfflineChanges::remove(*workspace, at("../folder"));
    const auto journal = rows();
    ASSERT_EQ(journal.size(), 4U);
    using Kind = PendingChangeKind;
    const auto row = [&](int i, Kind kind, std::optional<std::string> nodeId, std::string path,
                         std::optional<std::string> from = {}) {
        return PendingChange{i,
                             brain,
                             std::move(nodeId),
                             kind,
                             std::move(path),
                             std::move(from),
                             "here",
                             machine.clock->now()};
    };
    EXPECT_EQ(journal[0], row(1, Kind::create, std::nullopt, "folder/b.md"));
    EXPECT_EQ(journal[1], row(2, Kind::update, "id-a", "folder/a.md"));
    EXPECT_EQ(journal[2], row(3, Kind::move, "id-a", "c.md", "folder/a.md"));
    EXPECT_EQ(journal[3], row(4, Kind::remove, "dir:folder", "folder"));
    EXPECT_EQ(spool.read("edit-1"), content);
    EXPECT_EQ(spool.read("edit-2"), content);
    EXPECT_TRUE(machine.session->requests().empty());
}

TEST_F(OfflineChangesTest, RowAndBytesStandTogetherOrNotAtAll) {
    machine.files->failOn(tests::FileOperation::write, ENOSPC);
    EXPECT_THROW(OfflineChanges::edit(*workspace, at("a.md"), content), FileError);
    EXPECT_TRUE(rows().empty());
}

TEST_F(OfflineChangesTest, WhatTheFileProviderWouldNotJournalIsRefused) {
    const auto refused = [](auto&& change) { EXPECT_THROW(change(), ChangeRefused); };
    refused([&] { OfflineChanges::create(*workspace, at("a.md"), content); });
    refused([&] { OfflineChanges::create(*workspace, at(".DS_Store"), content); });
    refused([&] { OfflineChanges::create(*workspace, at("a.md/b.md"), content); });
    refused([&] { OfflineChanges::edit(*workspace, at("../folder"), content); });
    refused([&] { OfflineChanges::edit(*workspace, at("../local.md"), content); });
    refused([&] { OfflineChanges::remove(*workspace, at("../local.md")); });
    refused([&] { OfflineChanges::move(*workspace, at("../folder"), at("inside")); });
    refused([&] { OfflineChanges::move(*workspace, at("a.md"), at("a.md")); });
    const auto nowhere = [](auto&& change) { EXPECT_THROW(change(), NoSuchPlace); };
    nowhere([&] { OfflineChanges::edit(*workspace, at("no.md"), content); });
    nowhere([&] { at("/elsewhere/a.md"); });
    nowhere([&] { at("/tree/plans/a.md"); });
    EXPECT_TRUE(rows().empty());
}

TEST_F(OfflineChangesTest, OutsideTheTreePathsBeginWithTheBrain) {
    const TreeSurroundings home{"/home/me", std::nullopt};
    const auto place = treePath(*workspace->store, "notes/folder/./a.md", home);
    EXPECT_EQ(place.text(), "notes/folder/a.md");
    EXPECT_EQ(treePath(*workspace->store, "notes/", home).path, "");
    EXPECT_THROW(treePath(*workspace->store, "a.md", home), NoSuchPlace);
}

}  // namespace
}  // namespace vorlinden::host
