#include "synckit/apply/brain_grants.h"

#include <gtest/gtest.h>

#include "tests/support/catalogue.h"
#include "tests/support/tree.h"

namespace vorlinden {
namespace {

using Lines = std::vector<std::string>;

const UUID first = tests::numberedUUID(1);
const UUID second = tests::numberedUUID(2);

Brain granted(const UUID& id, std::string slug) {
    return {id.lowerText(), "team", "The " + slug, slug, "head"};
}

class BrainGrantsTest : public testing::Test {
 protected:
    bool apply(const std::vector<Brain>& brains) {
        anchor = catalogue->currentAnchor();
        return BrainGrants::apply(brains, *catalogue);
    }
    Lines logged() { return tests::log(catalogue, anchor); }

    tests::Catalogue catalogue;
    std::int64_t anchor = 0;
};

TEST_F(BrainGrantsTest, AddsAndRenamesOncePerBrain) {
    EXPECT_TRUE(apply({granted(first, "one"), granted(second, "two")}));
    EXPECT_EQ(logged(), (Lines{"+brain", "+brain"}));
    catalogue->setCursor("c5", first);
    catalogue->upsert(tests::fileNode(first, "f"));

    EXPECT_FALSE(apply({granted(first, "one"), granted(second, "two")}))
        << "its head cursor counts for nothing";
    EXPECT_EQ(logged(), Lines{});

    EXPECT_TRUE(apply({granted(first, "uno"), granted(second, "two")}));
    EXPECT_EQ(logged(), Lines{"+brain"});
    auto renamed = granted(second, "two");
    renamed.name = "Deux";
    EXPECT_TRUE(apply({granted(first, "uno"), renamed}));
    EXPECT_EQ(catalogue->brain(first), (BrainRecord{first, "uno", "The uno", "c5"})) << "the cursor survives";
    EXPECT_EQ(catalogue->brain(second)->name, "Deux");
    EXPECT_EQ(catalogue->allNodes(first).size(), 1U);
}

TEST_F(BrainGrantsTest, RevokedBrainGoesWithAllItsNodes) {
    apply({granted(first, "one"), granted(second, "two")});
    auto mine = tests::fileNode(first, "a", "local:1");
    mine.localOnly = true;
    catalogue->upsert(tests::fileNode(first, "b"));
    catalogue->upsert(mine);
    catalogue->upsert(tests::fileNode(second, "b"));
    catalogue->enqueue(tests::pendingChange(first, PendingChangeKind::update, "b"));
    catalogue->recordOwnWrite(first, "b");

    auto malformed = granted(first, "one");
    malformed.id = "one";
    EXPECT_TRUE(apply({malformed, granted(second, "two")})) << "an id that is no UUID grants nothing";
    EXPECT_EQ(logged(), (Lines{"-local:1", "-id:b", "-brain"}));
    EXPECT_EQ(catalogue->brains().size(), 1U);
    EXPECT_EQ(catalogue->allNodes(first).size(), 0U);
    EXPECT_EQ(catalogue->allNodes(second).size(), 1U);
    EXPECT_EQ(catalogue->pendingChanges(first).size(), 1U) << "the journal stays behind";
    EXPECT_EQ(catalogue->ownWriteCount(first, "b"), 1);

    EXPECT_TRUE(apply({}));
    EXPECT_FALSE(apply({}));
    EXPECT_EQ(catalogue.count("nodes"), 0);
}

}  // namespace
}  // namespace vorlinden
