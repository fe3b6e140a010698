// What becomes of a waiting local change that a remote one touches.
#include <gtest/gtest.h>

#include "tests/conflicts/conflict_world.h"

namespace vorlinden::tests {
namespace {

Op create(std::string path, std::string title) {
    return {Op::Create{std::move(path), std::move(title), {}, false, {}}};
}
Op edit(std::string path) {
    return {Op::Update{std::move(path), {}, {}, true, {}}};
}
Op retitle(std::string path) {
    return {Op::Update{std::move(path), "New title", {}, false, {}}};
}
Op move(std::string from, std::string to) {
    return {Op::Move{std::move(from), std::move(to)}};
}
Op mkdir(std::string path) {
    return {Op::Mkdir{std::move(path), "Folder"}};
}
Op remove(std::string path) {
    return {Op::Delete{std::move(path)}};
}

enum class Local { edited, added, editedFolder, addedOverFolder, deleted, moved, madeFolder };

// The world before: d/ holds the files f and p; q and the folder e/ stand beside it.
// The local change: update or delete of d/p; create or mkdir of d/n, which isn't there; update of the folder
// e, or create at it; move of d/p to e/m.
struct Case {
    Local local;
    Op op;
    Lines tree;
    Lines log;
    Lines journal = {};
    Lines spool = {};
};

std::string path(Local local) {
    switch (local) {
        case Local::added:
        case Local::madeFolder:
            return "d/n";
        case Local::editedFolder:
        case Local::addedOverFolder:
            return "e";
        case Local::moved:
            return "e/m";
        default:
            return "d/p";
    }
}

void queue(Local local, ConflictWorld& world) {
    using Kind = PendingChangeKind;
    switch (local) {
        case Local::edited:
        case Local::editedFolder:
            world.waitingEdit(Kind::update, path(local));
            break;
        case Local::added:
        case Local::addedOverFolder:
            world.waitingEdit(Kind::create, path(local));
            break;
        case Local::deleted:
            world.waiting(pendingChange(world.brain, Kind::remove, path(local)));
            break;
        case Local::moved:
            world.waitingMove("d/p", path(local));
            break;
        case Local::madeFolder:
            world.waiting(pendingChange(world.brain, Kind::mkdir, path(local)));
            break;
    }
}

const std::string d = "d = dir:d v0", e = "e = dir:e v0", f = "d/f = F v1", p = "d/p = P v1", q = "q = Q v1";
const std::string pCopy = "d/p~ = local:* v1 local-only", nCopy = "d/n~ = local:* v1 local-only";
const Lines pWaits{"create d/p~ @c0"}, nWaits{"create d/n~ @c0"};
const Lines kept{"copy-2=mine", "edit-1=mine"};  // the edit's own entry waits for the next sweep
const Lines left{"edit-1=mine"};

// clang-format off
std::vector<Case> cases() {
    using enum Local;
    return {
        // An edit of a file.
        {edited, edit("d/p"), {d, f, "d/p = P v2", pCopy, e, q}, {"+local:*", "+P"}, pWaits, kept},
        {edited, retitle("d/p"), {d, f, p, e, q}, {"+P"}, {"update d/p @c0"}, left},
        {edited, remove("d/p"), {d, f, pCopy, e, q}, {"+local:*", "-P"}, pWaits, kept},
        {edited, remove("d"), {e, q}, {"+local:*", "-dir:d", "-F", "-P", "-local:*"}, pWaits, kept},
        {edited, move("d/p", "x"), {d, f, pCopy, e, q, "x = P v1"}, {"+local:*", "+P"}, pWaits, kept},
        {edited, move("d", "x"),
         {e, q, "x = dir:x v0", "x/f = F v1", "x/p = P v1", "x/p~ = local:* v1 local-only"},
         {"+local:*", "-dir:d", "+dir:x", "+F", "+P", "+local:*"}, pWaits, kept},
        {edited, move("q", "d/p"), {d, f, "d/p = Q v1", pCopy, e}, {"+local:*", "-P", "+Q"}, pWaits, kept},
        {edited, create("d/p", "Title of d/p"), {d, f, "d/p = P v2", pCopy, e, q}, {"+local:*", "+P"},
         pWaits, kept},
        {edited, create("d/p", "Another"), {d, f, "d/p = local:* v1", pCopy, e, q},
         {"+local:*", "-P", "+local:*"}, pWaits, kept},
        {edited, mkdir("d/p"), {d, f, "d/p = dir:d/p v0", pCopy, e, q}, {"+local:*", "-P", "+dir:d/p"},
         pWaits, kept},
        // A new file.
        {added, create("d/n", "N"), {d, f, "d/n = local:* v1", nCopy, p, e, q}, {"+local:*", "+local:*"},
         nWaits, kept},
        {added, edit("d/n"), {d, f, "d/n = local:* v1", nCopy, p, e, q}, {"+local:*", "+local:*"}, nWaits,
         kept},
        {added, retitle("d/n"), {d, f, "d/n = local:* v1", p, e, q}, {"+local:*"}, {"create d/n @c0"}, left},
        {added, mkdir("d/n"), {d, f, "d/n = dir:d/n v0", nCopy, p, e, q}, {"+local:*", "+dir:d/n"}, nWaits,
         kept},
        {added, remove("d/n"), {d, f, nCopy, p, e, q}, {"+local:*"}, nWaits, kept},
        {added, remove("d"), {e, q}, {"+local:*", "-dir:d", "-F", "-local:*", "-P"}, nWaits, kept},
        {added, move("d/n", "x"), {d, f, nCopy, p, e, q}, {"+local:*"}, nWaits, kept},
        {added, move("d", "x"),
         {e, q, "x = dir:x v0", "x/f = F v1", "x/n~ = local:* v1 local-only", "x/p = P v1"},
         {"+local:*", "-dir:d", "+dir:x", "+F", "+local:*", "+P"}, nWaits, kept},
        {added, move("q", "d/n"), {d, f, "d/n = Q v1", nCopy, p, e}, {"+local:*", "+Q"}, nWaits, kept},
        // A folder stands where the file was meant to be: the bytes stay in the spool, and no row refers to
        // them.
        {editedFolder, mkdir("e"), {d, f, p, e, q}, {"+dir:e"}, {}, left},
        {editedFolder, retitle("e"), {d, f, p, e, q}, {"+dir:e"}, {"update e @c0"}, left},
        {editedFolder, remove("e"), {d, f, p, q}, {"-dir:e"}, {}, left},
        {addedOverFolder, move("e", "x"), {d, f, p, q, "x = dir:x v0"}, {"-dir:e", "+dir:x"}, {}, left},
        {addedOverFolder, create("e", "E"), {d, f, p, "e = local:* v1", q}, {"-dir:e", "+local:*"}, {}, left},
        // A deletion.
        {deleted, edit("d/p"), {d, f, "d/p = P v2", e, q}, {"+P"}},
        {deleted, retitle("d/p"), {d, f, p, e, q}, {"+P"}},
        {deleted, remove("d/p"), {d, f, e, q}, {"-P"}},
        {deleted, remove("d"), {e, q}, {"-dir:d", "-F", "-P"}},
        {deleted, create("d/p", "Another"), {d, f, "d/p = local:* v1", e, q}, {"-P", "+local:*"}},
        {deleted, move("d/p", "x"), {d, f, e, q, "x = P v1"}, {"+P"}},
        {deleted, move("d", "x"), {e, q, "x = dir:x v0", "x/f = F v1", "x/p = P v1"},
         {"-dir:d", "+dir:x", "+F", "+P"}},
        {deleted, move("q", "d/p"), {d, f, "d/p = Q v1", e}, {"-P", "+Q"}},
        // A move from d/p to e/m.
        {moved, move("d/p", "x"), {d, f, e, q, "x = P v1"}, {"+P"}},
        {moved, edit("d/p"), {d, f, "d/p = P v2", e, q}, {"+P"}},
        {moved, remove("d/p"), {d, f, e, q}, {"-P"}},
        {moved, remove("d"), {e, q}, {"-dir:d", "-F", "-P"}},
        {moved, create("e/m", "M"), {d, f, p, e, "e/m = local:* v1", q}, {"+local:*"}},
        {moved, remove("e"), {d, f, p, q}, {"-dir:e"}},
        {moved, move("e", "x"), {d, f, p, q, "x = dir:x v0"}, {"-dir:e", "+dir:x"}},
        // A new folder.
        {madeFolder, create("d/n", "N"), {d, f, "d/n = local:* v1", p, e, q}, {"+local:*"}},
        {madeFolder, mkdir("d/n"), {d, f, "d/n = dir:d/n v0", p, e, q}, {"+dir:d/n"}},
        {madeFolder, remove("d"), {e, q}, {"-dir:d", "-F", "-P"}},
    };
}
// clang-format on

TEST(RemoteCollisions, EndAsTheTableSays) {
    int number = 0;
    for (const auto& it : cases()) {
        SCOPED_TRACE("case " + std::to_string(++number) + ", " + path(it.local) + " against an op on " +
                     it.op.path());
        ConflictWorld world;
        world.givenFolder("d");
        world.givenFolder("e");
        world.givenFile("d/f", "F");
        world.givenFile("d/p", "P");
        world.givenFile("q", "Q");
        queue(it.local, world);
        world.pull({it.op});
        EXPECT_EQ(world.tree(), it.tree);
        EXPECT_EQ(world.log(), it.log);
        EXPECT_EQ(world.journal(), it.journal);
        EXPECT_EQ(world.spooled(), it.spool);
        const bool copied = it.spool == kept;
        const auto name = path(it.local).substr(path(it.local).rfind('/') + 1);
        EXPECT_EQ(world.messages(),
                  copied ? Lines{"“" + name +
                                 "” changed on another device while you were editing it. Your version "
                                 "was saved as “" +
                                 name + "~”."}
                         : Lines{});
        EXPECT_EQ(world.resolver->copies().size(), copied ? 1U : 0U);
        EXPECT_EQ(world.catalogue->cursor(world.brain), "c1");
    }
}

}  // namespace
}  // namespace vorlinden::tests
