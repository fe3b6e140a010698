#include "linux/mount/item_tree.h"

#include <algorithm>
#include <string>

#include <gtest/gtest.h>

#include "linux/mount/shown_names.h"
#include "tests/mount/fake_catalogue.h"

namespace vorlinden::tests {
namespace {

using namespace mount;

// A tree over a catalogue, and a kernel that has looked at what a test says.
class TreeOverCatalogue : public testing::Test {
 protected:
    TreeOverCatalogue() { catalogue.addBrain("b"); }

    void list(const Node& folder) {
        if (folder.folder->listed) return;
        ChangeBatch batch;
        batch.answers.push_back(ChangeBatch::Listing{folder.identifier, catalogue.list(folder.identifier)});
        bring(tree, catalogue, batch);
    }

    // Walks to a path as the kernel does, referring to each inode; 0 if there is nothing.
    Inode walk(const std::string& path) {
        Inode inode = rootInode;
        std::size_t begin = 0;
        while (begin <= path.size()) {
            const auto end = std::min(path.find('/', begin), path.size());
            list(*tree.find(inode));
            const Node* child = tree.child(*tree.find(inode), path.substr(begin, end - begin));
            if (!child) return 0;
            inode = child->inode;
            tree.refer(inode);
            begin = end + 1;
        }
        return inode;
    }

    Inode lookIn(const std::string& path) {
        const Inode inode = walk(path);
        list(*tree.find(inode));
        return inode;
    }

    std::vector<Invalidation> sync() {
        auto result = bring(tree, catalogue, catalogue.changesSince(anchor));
        anchor = catalogue.anchor();
        return result;
    }

    std::vector<std::string> names(Inode inode) {
        std::vector<std::string> result;
        for (const Node* child : tree.children(*tree.find(inode), 0, 1000))
            result.push_back(child->shownName());
        std::sort(result.begin(), result.end());
        return result;
    }

    static bool has(const std::vector<Invalidation>& all, const Invalidation& one) {
        return std::find(all.begin(), all.end(), one) != all.end();
    }

    FakeCatalogue catalogue;
    ItemTree tree{FakeCatalogue::root()};
    std::int64_t anchor = 0;
};

using Names = std::vector<std::string>;

TEST_F(TreeOverCatalogue, ShowsWhatCameAndWentAndTellsTheKernelExactlyThat) {
    catalogue.makeFile("b/docs/a.md");
    catalogue.makeFile("b/docs/b.md");
    sync();
    const Inode docs = lookIn("b/docs");
    const Inode a = walk("b/docs/a.md");
    EXPECT_EQ(names(docs), (Names{"a.md", "b.md"}));
    EXPECT_EQ(sync(), std::vector<Invalidation>{}) << "what had been listed already is no change";

    catalogue.makeFile("b/docs/c.md");
    catalogue.remove("b/docs/a.md");
    const auto told = sync();
    EXPECT_EQ(names(docs), (Names{"b.md", "c.md"}));
    EXPECT_TRUE(has(told, EntryDeleted{docs, a, "a.md"}));
    EXPECT_TRUE(has(told, EntryChanged{docs, "c.md"}));
    EXPECT_TRUE(has(told, InodeChanged{docs, true}));
    EXPECT_EQ(tree.find(a)->place, Node::Place::gone);
    tree.forget(a, 1);
    EXPECT_EQ(tree.find(a), nullptr);
}

TEST_F(TreeOverCatalogue, AChangeSetOutsideOfWhatWasListedChangesNothing) {
    catalogue.makeFile("b/docs/deep/a.md");
    sync();
    lookIn("b");
    const auto before = tree.size();
    catalogue.makeFile("b/docs/deep/b.md");
    catalogue.edit("b/docs/deep/a.md");
    EXPECT_TRUE(sync().empty());
    EXPECT_EQ(tree.size(), before);
}

TEST_F(TreeOverCatalogue, EditsInPlaceUnlessTheFileIsOpen) {
    catalogue.makeFile("b/a.md");
    sync();
    const Inode a = walk("b/a.md");
    tree.setContentSize(a, 5);
    EXPECT_EQ(tree.kernelSize(a, 5), KernelSize::unsure);
    tree.answeredWithSize(a, 0);
    tree.answeredWithSize(a, 5);
    EXPECT_EQ(tree.kernelSize(a, 5), KernelSize::tooSmall) << "the first answer may be taken in last";
    tree.filled(a, 5);
    EXPECT_EQ(tree.kernelSize(a, 5), KernelSize::right);
    catalogue.edit("b/a.md");
    const auto told = sync();
    EXPECT_TRUE(has(told, InodeChanged{a, true}));
    EXPECT_TRUE(has(told, EntryChanged{walk("b"), "a.md"}));
    EXPECT_EQ(tree.kernelSize(a, 5), KernelSize::unsure) << "as long as nobody has asked by name";
    EXPECT_EQ(walk("b/a.md"), a);
    EXPECT_FALSE(tree.find(a)->size().has_value()) << "the size belonged to the other content";

    tree.opened(a);
    tree.setContentSize(a, 7);
    catalogue.edit("b/a.md");
    const Inode b = walk("b");
    EXPECT_TRUE(has(sync(), EntryChanged{b, "a.md"}));
    const Inode fresh = walk("b/a.md");
    EXPECT_NE(fresh, a);
    EXPECT_EQ(tree.find(fresh)->contentVersion, "3");
    EXPECT_EQ(tree.find(a)->contentVersion, "2") << "who opened it keeps what he opened";
    EXPECT_EQ(tree.find(a)->size(), 7u);

    catalogue.setError("b/a.md", "too large");
    EXPECT_TRUE(has(sync(), InodeChanged{fresh, false})) << "an upload error is in no version";
    tree.closed(a);
    tree.forget(a, 3);
    EXPECT_EQ(tree.find(a), nullptr);
}

TEST_F(TreeOverCatalogue, AMovedFolderKeepsItsInodesThoughItsIdentifiersChange) {
    catalogue.makeFile("b/x/deep/file.md");
    catalogue.makeFolder("b/x/empty");
    catalogue.makeFolder("b/other");
    sync();
    lookIn("b/other");
    const Inode x = lookIn("b/x");
    const Inode deep = lookIn("b/x/deep");
    const Inode empty = walk("b/x/empty");
    const Inode file = walk("b/x/deep/file.md");

    catalogue.move("b/x", "b/other/y");
    const auto told = sync();
    EXPECT_TRUE(has(told, EntryChanged{walk("b"), "x"}));
    EXPECT_EQ(walk("b/other/y"), x);
    EXPECT_EQ(walk("b/other/y/deep"), deep);
    EXPECT_EQ(walk("b/other/y/empty"), empty);
    EXPECT_EQ(walk("b/other/y/deep/file.md"), file);
    EXPECT_EQ(walk("b/x"), 0u);
}

TEST_F(TreeOverCatalogue, AFolderThatWasNeverListedIsFollowedByItsDate) {
    catalogue.makeFile("b/x/file.md");
    catalogue.makeFile("b/y/file.md");
    sync();
    lookIn("b");
    const Inode x = walk("b/x");
    const Inode y = walk("b/y");
    catalogue.move("b/x", "b/renamed");
    catalogue.move("b/y", "b/new/y");
    sync();
    EXPECT_EQ(walk("b/renamed"), x);
    EXPECT_EQ(walk("b/new/y"), y);
}

TEST_F(TreeOverCatalogue, AResetDisturbsNobody) {
    catalogue.makeFile("b/x/deep/file.md");
    catalogue.makeFile("b/x/other.md");
    sync();
    lookIn("b/x/deep");
    const Inode x = walk("b/x");
    const Inode deep = walk("b/x/deep");
    const Inode file = walk("b/x/deep/file.md");
    const Inode other = walk("b/x/other.md");
    tree.opened(other);

    catalogue.reset("b");
    const auto told = sync();
    EXPECT_EQ(walk("b/x"), x);
    EXPECT_EQ(walk("b/x/deep"), deep);
    EXPECT_EQ(walk("b/x/deep/file.md"), file);
    EXPECT_EQ(tree.find(file)->identifier, catalogue.at("b/x/deep/file.md").identifier);
    EXPECT_TRUE(has(told, InodeChanged{file, true}));
    EXPECT_NE(walk("b/x/other.md"), other) << "an open file keeps its bytes";
    EXPECT_EQ(names(x), (Names{"deep", "other.md"}));
    for (const auto& one : told)
        EXPECT_FALSE(std::holds_alternative<EntryDeleted>(one));
}

TEST_F(TreeOverCatalogue, ChildrenThatOnlyTheirFolderSpeaksForFollowIt) {
    catalogue.makeFile("b/x/file.md");
    sync();
    const Inode x = lookIn("b/x");
    const Inode file = walk("b/x/file.md");
    // The folder's row alone is replaced; nothing is logged for the file in it.
    catalogue.removeRowOnly("b/x");
    catalogue.makeFolder("b/x");
    ChangeBatch batch;
    batch.deleted = {tree.find(x)->identifier};
    batch.updated = {*catalogue.find(catalogue.at("b/x").identifier)};
    batch.updated[0].itemIdentifier = "server:x";
    ChangeBatch::Listing listing{"server:x", catalogue.list(catalogue.at("b/x").identifier)};
    for (auto& item : listing.items)
        item.parentItemIdentifier = "server:x";
    const auto questions = std::get<Questions>(tree.apply(batch, {}));
    EXPECT_EQ(questions.containers, std::vector<ItemIdentifier>{"server:x"});
    EXPECT_NE(tree.find(x)->identifier, "server:x") << "nothing changes before the questions are answered";
    batch.answers.push_back(listing);
    EXPECT_TRUE(std::holds_alternative<std::vector<Invalidation>>(tree.apply(batch, {})));
    EXPECT_EQ(tree.find(x)->identifier, "server:x");
    EXPECT_EQ(tree.find(file)->parent, tree.find(x));
}

TEST_F(TreeOverCatalogue, WhatLosesItsFolderHangsUnderTheBrainUnderANameOfItsOwn) {
    catalogue.makeFile("b/x/file.md");
    catalogue.makeFile("b/file.md");
    sync();
    lookIn("b/x");
    const Inode file = walk("b/x/file.md");
    const Inode top = walk("b/file.md");
    catalogue.removeRowOnly("b/x");
    sync();
    EXPECT_EQ(walk("b/file.md"), top);
    const Node& orphan = *tree.find(file);
    EXPECT_EQ(orphan.parent, tree.find(walk("b")));
    EXPECT_EQ(orphan.filename, "file.md");
    EXPECT_TRUE(orphan.shownName().starts_with("file ~") && orphan.shownName().ends_with(".md"));
    EXPECT_EQ(tree.strays(), std::vector<ItemIdentifier>{orphan.identifier});

    const std::string substitute = orphan.shownName();
    catalogue.makeFile("b/new.md");
    sync();
    EXPECT_EQ(tree.find(file)->shownName(), substitute) << "stable";
    catalogue.remove("b/file.md");
    sync();
    EXPECT_EQ(tree.find(file)->shownName(), "file.md") << "the name is free now";

    catalogue.makeFolder("b/x");  // adopted again, without a row of its own
    sync();
    EXPECT_EQ(walk("b/x/file.md"), file);
    EXPECT_EQ(names(walk("b")), (Names{"new.md", "x"}));
}

TEST_F(TreeOverCatalogue, AnotherItemTakesThePlaceByName) {
    catalogue.makeFile("b/a.md");
    catalogue.makeFile("b/dir/x");
    catalogue.makeFile("b/new/y");
    catalogue.makeFile("b/newer/z");
    sync();
    const Inode a = walk("b/a.md");
    const Inode dir = lookIn("b/dir");
    const Inode folder = lookIn("b/new");
    const Inode newer = lookIn("b/newer");
    // A folder known all along moves over one in which a shell stands, and another stands in the one that
    // moves. With identifiers made of paths it's the first that survives,
    catalogue.replaceFile("b/a.md");
    catalogue.move("b/new", "b/dir");
    sync();
    EXPECT_EQ(walk("b/a.md"), a);
    EXPECT_EQ(tree.find(a)->identifier, catalogue.at("b/a.md").identifier);
    EXPECT_EQ(walk("b/dir"), dir);
    EXPECT_EQ(names(dir), (Names{"y"}));
    EXPECT_EQ(names(folder), (Names{"y"}));
    // with the server's the second.
    catalogue.reset("b");
    sync();
    catalogue.move("b/newer", "b/dir");
    sync();
    EXPECT_EQ(walk("b/dir"), newer);
    EXPECT_EQ(names(dir), (Names{"z"}));
    EXPECT_EQ(names(newer), (Names{"z"}));
}

TEST_F(TreeOverCatalogue, ASwapAndARenamedBrainAreRenames) {
    catalogue.makeFile("b/one");
    catalogue.makeFile("b/two");
    sync();
    const Inode brain = lookIn("b");
    const Inode one = walk("b/one");
    const Inode two = walk("b/two");
    catalogue.move("b/one", "b/three");
    catalogue.move("b/two", "b/one");
    catalogue.move("b/three", "b/two");
    catalogue.renameBrain("b", "team");
    const auto told = sync();
    EXPECT_EQ(walk("team"), brain);
    EXPECT_EQ(walk("team/one"), two);
    EXPECT_EQ(walk("team/two"), one);
    EXPECT_TRUE(has(told, EntryChanged{rootInode, "b"}));
    EXPECT_TRUE(has(told, EntryChanged{rootInode, "team"}));
    EXPECT_FALSE(has(told, EntryChanged{brain, "three"}));
}

TEST_F(TreeOverCatalogue, AnItemThatMovedToAnUnlistedFolderIsFoundThereLater) {
    catalogue.makeFile("b/x/file.md");
    catalogue.makeFolder("b/y");
    sync();
    lookIn("b/x");
    const Inode file = walk("b/x/file.md");
    catalogue.move("b/x/file.md", "b/y/file.md");
    sync();
    EXPECT_EQ(tree.find(file)->place, Node::Place::elsewhere);
    EXPECT_EQ(walk("b/y/file.md"), file);
}

TEST_F(TreeOverCatalogue, WhoWalksThroughAFolderInDetailIsRunAheadOf) {
    for (int i = 0; i < 5; ++i)
        catalogue.makeFile("b/" + std::to_string(i));
    catalogue.makeBlob("b/blob", 7);
    sync();
    const Inode brain = lookIn("b");
    const Inode first = walk("b/0");
    EXPECT_TRUE(tree.comingNext(first).empty() && tree.comingNext(first).empty()) << "no walk, just one file";
    tree.walked(brain);
    tree.setContentSize(walk("b/3"), 1);
    EXPECT_TRUE(tree.comingNext(first).empty()) << "one file may be chance";
    EXPECT_EQ(tree.comingNext(first).size(), 3u) << "neither the blob nor what is known";
    EXPECT_TRUE(tree.comingNext(walk("b/1")).empty()) << "once is enough";
    catalogue.edit("b/1");
    sync();
    EXPECT_EQ(tree.comingNext(first).size(), 3u);
}

TEST_F(TreeOverCatalogue, ListingsHaveStablePlaces) {
    for (int i = 0; i < 10; ++i)
        catalogue.makeFile("b/" + std::to_string(i));
    sync();
    const Inode brain = lookIn("b");
    const auto first = tree.children(*tree.find(brain), 0, 4);
    const Inode last = first.back()->inode;
    catalogue.remove("b/" + first[1]->filename);
    catalogue.makeFile("b/late");
    sync();
    const auto rest = tree.children(*tree.find(brain), last, 100);
    EXPECT_EQ(rest.size(), 7u) << "nobody twice, nobody left out";
}

TEST(ShownNames, HideNothingAndKeepWhatCanBeKept) {
    const std::string longName = std::string(300, 'x') + ".md";
    const std::string nameWithNul("n\0l", 3);
    const std::vector<NamedItem> items{{"a.txt", "id2"}, {"a.txt", "id1"},       {"", "id3"},
                                       {"..", "id4"},    {"x/y", "id5"},         {longName, "id6"},
                                       {"ok", "id7"},    {"a.txt", "id0", true}, {nameWithNul, "id8"}};
    const auto names = shownNames(items);
    EXPECT_EQ(names[1], "a.txt");
    EXPECT_EQ(names[6], "ok");
    for (const auto& name : names)
        EXPECT_TRUE(canBeShown(name)) << name;
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), items.size());
    EXPECT_TRUE(names[5].ends_with(".md") && names[5].size() == maximumNameBytes);
    // The others don't matter to a substitute.
    EXPECT_EQ(shownNames({items[4]})[0], names[4]);
    // A name already in use doesn't hide anybody either.
    EXPECT_EQ(shownNames({{"x/y", "id5"}, {names[4], "id9"}})[1], names[4]);
}

TEST(ShownNames, CutLongNamesBetweenCharacters) {
    std::string name;
    while (name.size() < 300)
        name += "ä";
    const auto shown = shownNames({{name, "id"}})[0];
    EXPECT_EQ(static_cast<unsigned char>(shown[shown.find(" ~") - 2]), 0xC3);
    EXPECT_LE(shown.size(), maximumNameBytes);
}

}  // namespace
}  // namespace vorlinden::tests
