#include "synckit/conflicts/conflict_detector.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "synckit/conflicts/collision_index.h"
#include "tests/support/catalogue.h"

namespace vorlinden {
namespace {

using tests::pendingChange;

const UUID brain = tests::numberedUUID(1);

Op createAt(std::string path) {
    return {Op::Create{std::move(path), "", {}, false, {}}};
}
Op updateAt(std::string path) {
    return {Op::Update{std::move(path), {}, {}, false, {}}};
}
Op mkdirAt(std::string path) {
    return {Op::Mkdir{std::move(path), ""}};
}
Op moveOf(std::string from, std::string to) {
    return {Op::Move{std::move(from), std::move(to)}};
}
Op deleteOf(std::string path) {
    return {Op::Delete{std::move(path)}};
}

PendingChange edit(std::string path) {
    return pendingChange(brain, PendingChangeKind::update, std::move(path));
}

PendingChange moveFrom(std::string from, std::string to) {
    auto change = pendingChange(brain, PendingChangeKind::move, std::move(to));
    change.fromPath = std::move(from);
    return change;
}

TEST(ConflictDetector, MatchesPathsByTheReachOfTheOp) {
    struct Case {
        Op op;
        PendingChange pending;
        bool collides;
    };
    const std::vector<Case> cases{
        {createAt("A"), edit("A"), true},
        {updateAt("A"), edit("A"), true},
        {mkdirAt("A"), edit("A"), true},
        {updateAt("A/B"), edit("A"), false},
        {mkdirAt("A"), edit("A/B"), false},
        {createAt("A"), edit("a"), false},
        {createAt("caf\u00e9"), edit("cafe\u0301"), false},
        {updateAt("A"), moveFrom("A", "B"), true},
        {updateAt("B"), moveFrom("A", "B"), true},
        {updateAt("A"), moveFrom("A/x", "B/x"), false},
        {moveOf("A", "B"), edit("A/x"), true},
        {moveOf("A", "B"), edit("B/C"), true},
        {moveOf("A", "B"), edit("B"), true},
        {moveOf("A", "B"), edit("C"), false},
        {moveOf("A/x", "B/x"), edit("A"), false},
        {moveOf("A", "B"), moveFrom("B/x", "C"), true},
        {deleteOf("A"), edit("A"), true},
        {deleteOf("A"), edit("A/B/C"), true},
        {deleteOf("A"), edit("AB"), false},
        {deleteOf("A"), moveFrom("C", "A/x"), true},
        {deleteOf("A/B"), edit("A"), false},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        EXPECT_EQ(ConflictDetector::remoteChangeCollides(cases[i].op, cases[i].pending, true),
                  cases[i].collides)
            << "case " << i;
        EXPECT_FALSE(ConflictDetector::remoteChangeCollides(cases[i].op, cases[i].pending, false))
            << "a change that knew about it, case " << i;
    }
}

// Paths over a tiny alphabet, among them such as no well-behaved server sends.
rc::Gen<std::string> anyPath() {
    return rc::gen::map(rc::gen::container<std::string>(rc::gen::elementOf(std::string("aab//.0\xC3"))),
                        [](std::string path) { return path.substr(0, 6); });
}

rc::Gen<Op> anyOp() {
    return rc::gen::mapcat(rc::gen::pair(anyPath(), anyPath()), [](const auto& paths) {
        return rc::gen::element(createAt(paths.first), updateAt(paths.first), mkdirAt(paths.first),
                                moveOf(paths.first, paths.second), deleteOf(paths.first));
    });
}

rc::Gen<PendingChange> anyChange() {
    return rc::gen::map(
        rc::gen::tuple(anyPath(), rc::gen::maybe(anyPath()),
                       rc::gen::element<std::optional<std::string>>(std::nullopt, "c0", "c1", "elsewhere")),
        [](const auto& parts) {
            auto change = edit(std::get<0>(parts));
            if (const auto& from = std::get<1>(parts)) change.fromPath = *from;
            change.baseCursor = std::get<2>(parts);
            return change;
        });
}

RC_GTEST_PROP(CollisionIndex, FindsWhatAskingEachChangeFinds, ()) {
    const auto journal = *rc::gen::scale(0.3, rc::gen::container<std::vector<PendingChange>>(anyChange()));
    CollisionIndex index(journal);
    std::unordered_set<std::string> seen;
    for (const std::string cursor : {"c0", "c1", "c2"}) {
        index.beginEntry(cursor);
        seen.insert(cursor);
        for (const auto& op : *rc::gen::scale(0.3, rc::gen::container<std::vector<Op>>(anyOp()))) {
            std::vector<std::size_t> expected;
            for (std::size_t i = 0; i < journal.size(); ++i) {
                const auto& base = journal[i].baseCursor;
                const bool entryFollowsBase = !base || !seen.contains(*base);
                if (ConflictDetector::remoteChangeCollides(op, journal[i], entryFollowsBase))
                    expected.push_back(i);
            }
            RC_ASSERT(index.collisions(op) == expected);
        }
    }
}

}  // namespace
}  // namespace vorlinden
