#include "synckit/upload/node_content_snapshot.h"

#include <gtest/gtest.h>

#include "synckit/conflicts/conflict_spool.h"
#include "tests/support/catalogue.h"
#include "tests/support/hooked_files.h"

namespace vorlinden {
namespace {

const UUID brain = tests::numberedUUID(1);

class NodeContentSnapshotTest : public testing::Test {
 protected:
    NodeContentSnapshotTest() { catalogue->upsertBrain(tests::brainRecord(brain)); }

    NodeRecord given(bool localOnly) {
        auto node = tests::fileNode(brain, "f", "n");
        node.localOnly = localOnly;
        catalogue->upsert(node);
        return node;
    }
    std::int64_t waiting(std::string path, std::optional<std::string> nodeId) {
        auto change = tests::pendingChange(brain, PendingChangeKind::update, std::move(path));
        change.nodeId = std::move(nodeId);
        return catalogue->enqueue(change);
    }
    std::optional<NodeContentSnapshot> read() {
        return NodeContentSnapshot::read(brain, "n", *catalogue, spool);
    }

    tests::Catalogue catalogue;
    tests::TemporaryFolder folder;
    std::shared_ptr<tests::HookedFiles> files =
        std::make_shared<tests::HookedFiles>(platform::posixFileSystem());
    ConflictSpool spool{files, folder / "Spool"};
    const Data one{std::string("one")}, two{std::string("two")}, own{std::string("own")};
};

TEST_F(NodeContentSnapshotTest, ServerNodeIsToBeDownloadedAtTheCursor) {
    EXPECT_EQ(read(), std::nullopt);
    const auto node = given(false);
    spool.writeNewEdit(one, waiting("f", "n"));
    files->before = [](auto, const auto&) { FAIL() << "the spool has nothing to say about a server's node"; };
    EXPECT_EQ(read(), (NodeContentSnapshot{node, std::nullopt, std::nullopt}));
    catalogue->setCursor("c3", brain);
    EXPECT_EQ(read(), (NodeContentSnapshot{node, std::nullopt, "c3"}));
}

TEST_F(NodeContentSnapshotTest, LocalOnlyNodeHasItsNewestQueuedBytes) {
    const auto node = given(true);
    EXPECT_THROW(read(), FileError) << "no bytes at all are no empty file";
    spool.write(own, ConflictSpool::nodeKey("n"));
    EXPECT_EQ(read(), (NodeContentSnapshot{node, own, std::nullopt}));

    spool.writeNewCopy(one, waiting("old path", "n"));
    const auto newest = waiting("f", "n");
    spool.writeNewEdit(two, newest);
    waiting("f", std::nullopt);
    waiting("f", "other");
    EXPECT_EQ(read()->retainedBytes, two) << "rows count by node, not by path";

    spool.remove(ConflictSpool::editKey(newest));
    EXPECT_THROW(read(), FileError) << "older bytes must not stand in for lost ones";
    catalogue->removePending(newest);
    EXPECT_EQ(read()->retainedBytes, one);
}

}  // namespace
}  // namespace vorlinden
