// Whatever step of an operation fails, rows, journal, log and settings stay as they were, and what waits in
// the spool stays there.
#include <gtest/gtest.h>

#include "synckit/apply/brain_grants.h"
#include "synckit/upload/local_mutations.h"
#include "tests/conflicts/conflict_world.h"

namespace vorlinden::tests {
namespace {

using Kind = PendingChangeKind;

const Data mine(std::string("mine"));

// d/ with the file f, whose edit waits as row 1; moved, a file that the catalogue shows where its waiting
// move, row 2, took it; l, which exists only here; and the copy d/c, whose upload waits as row 3.
class PopulatedWorld : public ConflictWorld {
 public:
    PopulatedWorld() {
        givenFolder("d");
        givenFile("d/f", "F");
        givenFile("moved", "M");
        givenLocalFile("l", "local:L");
        givenLocalFile("d/c", "local:C");
        waitingEdit(Kind::update, "d/f", "mine", "F");
        waitingMove("source", "moved");
        auto copy = pendingChange(brain, Kind::create, "d/c");
        copy.nodeId = "local:C";
        spool.writeNewCopy(mine, waiting(copy));
        ConflictEventLog::append({{ConflictEvent::Kind::noWriteAccess, brain, "p", {}, "m", now}},
                                 *catalogue);
        catalogue->recordOwnWrite(brain, "d/f");
    }

    // Inside a caller's transaction, with bytes of the spool, as the drains and the write paths use them.
    void upload(const std::string& path) {
        catalogue->inTransaction([&] {
            LocalMutations::applyUpload(*random, *catalogue, brain, {{"S", path}, "c9"}, NodeKind::blob, "h",
                                        1, 1, now);
            spool.write(mine, ConflictSpool::nodeKey("S"));
        });
    }
    void keepHere(const std::string& path) {
        catalogue->inTransaction([&] {
            const auto file =
                LocalMutations::applyLocalOnly(*random, *catalogue, brain, path, "refused", now);
            spool.write(mine, ConflictSpool::nodeKey(file.nodeId));
            catalogue->removePending(1);
        });
    }
    void journal(const std::string& path) {
        catalogue->inTransaction([&] {
            spool.writeNewEdit(
                mine, LocalMutations::journalUpsert(*catalogue, brain, path, std::nullopt, true, now));
        });
    }
    void reset() {
        auto node = SnapshotNode{"N", "l", "L", false, NodeKind::text, {}, {}, now};
        resolver->applyReset({node}, brain, "c9");
    }
};

struct Operation {
    std::string name;
    std::function<void(PopulatedWorld&)> run;
};

std::vector<Operation> operations() {
    using World = PopulatedWorld;
    const auto edit = Op{Op::Update{"d/f", {}, {}, true, {}}}, remove = Op{Op::Delete{"d"}};
    return {
        {"batch",
         [=](World& w) {
             w.pull({edit, remove});
         }},
        {"reset", [](World& w) { w.reset(); }},
        {"refused edit", [](World& w) { w.resolver->bounceUpsert(w.brain, "d/f", 1, mine); }},
        {"refused new file", [](World& w) { w.resolver->bounceCreate(w.brain, "l", 1, mine); }},
        {"refused move", [](World& w) { w.resolver->bounceMove(w.brain, "x/source", "moved", 2); }},
        {"refused delete", [](World& w) { w.resolver->bounceDelete(w.brain, "d", 2); }},
        {"refused copy", [](World& w) { w.resolver->copyUploadBounced(w.brain, "local:C", "d/c", 3); }},
        {"refused copy without a row",
         [](World& w) { w.resolver->copyUploadBounced(w.brain, "?", "x/c", 3); }},
        {"journalled edit", [](World& w) { w.journal("d/f"); }},
        {"upload", [](World& w) { w.upload("d/f"); }},
        {"upload in place of a folder", [](World& w) { w.upload("d"); }},
        {"local file", [](World& w) { w.keepHere("x/y"); }},
        {"local file in place of a folder", [](World& w) { w.keepHere("d"); }},
        {"local folder",
         [](World& w) {
             LocalMutations::applyLocalDirectory(*w.random, *w.catalogue, w.brain, "l/x", w.now);
         }},
        {"move",
         [](World& w) { LocalMutations::applyMove(*w.random, *w.catalogue, w.brain, "d", "x/y", 2, w.now); }},
        {"delete",
         [](World& w) { LocalMutations::applyDelete(*w.random, *w.catalogue, w.brain, "d", 2, w.now); }},
        {"upload error",
         [](World& w) { LocalMutations::markUploadError(*w.catalogue, w.brain, "F", "refused"); }},
        {"grants", [](World& w) { BrainGrants::apply({}, *w.catalogue); }},
    };
}

// Runs the operation again and again, the first step failing, then the second, till one run gets through;
// gives how many failed.
template <class Fail>
int failEachStep(const Operation& operation, const Fail& failAt) {
    PopulatedWorld world;
    const auto before = dump(world.catalogue.connection());
    const auto spooled = world.spooled();
    for (int step = 1;; ++step) {
        [[maybe_unused]] const auto fault = failAt(world, step);
        try {
            operation.run(world);
            return step - 1;
        } catch (const Failure&) {
            EXPECT_EQ(dump(world.catalogue.connection()), before) << operation.name << ", step " << step;
            const auto left = world.spooled();
            EXPECT_TRUE(std::ranges::includes(left, spooled)) << operation.name << ", step " << step;
        }
    }
}

TEST(Failure, OfAnyStatementChangesNothing) {
    for (const auto& operation : operations()) {
        const int failed = failEachStep(operation, [](PopulatedWorld& world, int step) {
            return std::make_unique<StatementFault>(world.catalogue.connection(), step);
        });
        EXPECT_GE(failed, 4) << operation.name << " begins, looks, writes and commits";
    }
}

TEST(Failure, OfAnyFileOperationChangesNothing) {
    int failed = 0;
    for (const auto& operation : operations())
        failed += failEachStep(operation, [](PopulatedWorld& world, int step) {
            world.files->before = [step](FileOperation, const auto& path) mutable {
                if (--step == 0) throw FileError(EIO, path.string());
            };
            return 0;
        });
    EXPECT_GE(failed, 50);
}

}  // namespace
}  // namespace vorlinden::tests
