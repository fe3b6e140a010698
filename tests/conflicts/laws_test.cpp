// What always holds of conflict handling, over random catalogues, journals, feeds and snapshots.
//
// 2,000 cases each, fewer where a sanitizer makes each of them slow; RC_PARAMS="seed=N max_success=M" repeats
// a run or changes that.
#include <cstdlib>
#include <map>
#include <set>
#include <sstream>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "synckit/apply/tree_rules.h"
#include "synckit/conflicts/change_rules.h"
#include "synckit/upload/ignore_list.h"
#include "tests/conflicts/random_world.h"
#include "tests/conflicts/replica.h"
#include "tests/conflicts/server_tree.h"
#include "tests/support/catalogue.h"

namespace vorlinden::tests {

namespace {

#ifdef __SANITIZE_ADDRESS__
constexpr const char* cases = " max_success=300";
#else
constexpr const char* cases = " max_success=2000";
#endif

// RapidCheck reads its parameters when the first property runs.
const bool parametersSet = [] {
    const char* given = std::getenv("RC_PARAMS");
    std::string parameters = given ? given : "";
    if (parameters.find("max_success") == std::string::npos) parameters += cases;
    return setenv("RC_PARAMS", parameters.c_str(), 1) == 0;
}();

// Printed with a counterexample.
template <class Value>
const Value& logged(const Value& value) {
    std::ostringstream text;
    show(value, text);
    RC_LOG() << text.str();
    return value;
}

Beginning drawBeginning() {
    return logged(anyBeginning());
}

Step drawStep(RandomWorld& world) {
    return logged(anyStep(world.rows()));
}

int anySteps() {
    return *rc::gen::inRange(1, 4);
}

// Whether the step went through; a feed no server sends may break the rule of one node a path.
bool takes(RandomWorld& world, const Step& step) {
    try {
        world.take(step);
        return true;
    } catch (const SQLiteError& error) {
        RC_ASSERT(error.code == 19);  // SQLITE_CONSTRAINT
        return false;
    }
}

// Bytes that a row of the journal or a node still leads to, by where they lie.
std::set<const std::uint8_t*> reachableBytes(RandomWorld& world) {
    std::set<const std::uint8_t*> found;
    const auto add = [&](const std::string& key) {
        if (const auto bytes = world.spool.read(key)) found.insert(bytes->data());
    };
    for (const auto& change : world.store->pendingChanges(world.brain)) {
        add(ConflictSpool::editKey(*change.id));
        add(ConflictSpool::copyKey(*change.id));
    }
    for (const auto& row : world.rows())
        add(ConflictSpool::nodeKey(row.nodeId));
    return found;
}

bool isTooLarge(const Data& bytes) {
    return static_cast<std::int64_t>(bytes.size()) > UploadPlanner::maxUploadBytes;
}

bool aLargeCopyWent(RandomWorld& world) {
    return std::ranges::any_of(world.resolver->copies(), [&](const ConflictCopy& copy) {
        return copy.journalId == 0 && !world.store->nodeById(world.brain, copy.nodeId);
    });
}

RC_GTEST_PROP(ConflictLaws, NoBytesOfAJournalRowAreLost, ()) {
    RandomWorld world(drawBeginning());
    std::set<std::int64_t> droppedOverFolders;
    world.watchCollision = [&](const Op& op, const PendingChange& change) {
        const auto row = world.store->nodeByPath(change.brainId, change.path);
        const bool waits = world.store->pendingChange(*change.id).has_value();
        if (waits && row && row->isDirectory && !leavesContentAlone(op))
            droppedOverFolders.insert(*change.id);
    };
    for (int steps = anySteps(); steps > 0; --steps) {
        std::map<std::int64_t, Data> before;
        for (const auto& change : world.store->pendingChanges(world.brain))
            if (auto bytes = world.spool.pendingBytes(*change.id)) before.emplace(*change.id, *bytes);
        droppedOverFolders.clear();
        const auto step = drawStep(world);
        takes(world, step);
        world.spool.prune(*world.store);
        const auto reachable = reachableBytes(world);
        for (const auto& [id, bytes] : before) {
            if (droppedOverFolders.contains(id) && std::holds_alternative<Batch>(step)) continue;
            // A copy that is too large has no row in the journal: it goes with its folder.
            if (isTooLarge(bytes) && aLargeCopyWent(world)) continue;
            RC_ASSERT(reachable.contains(bytes.data()));
        }
    }
}

RC_GTEST_PROP(ConflictLaws, TheLogTellsTheTree, ()) {
    RandomWorld world(drawBeginning());
    Replica stepwise(*world.store);
    stepwise.take(world.store->changes(stepwise.anchor()));
    for (int steps = anySteps(); steps > 0; --steps) {
        takes(world, drawStep(world));
        stepwise.take(world.store->changes(stepwise.anchor()));
        Replica atOnce(*world.store);
        atOnce.take(world.store->changes(0));
        RC_ASSERT(atOnce.rows() == world.rows());
        RC_ASSERT(stepwise.rowsButOrphans() == atOnce.rowsButOrphans());
    }
}

// Whether a local row that waits for its upload stands at `path`.
bool waitsAt(RandomWorld& world, const NodeRecord& row) {
    return row.localOnly &&
           std::ranges::any_of(world.store->pendingChanges(world.brain), [&](const auto& change) {
               return change.nodeId == row.nodeId || change.path == row.path;
           });
}

RC_GTEST_PROP(ConflictLaws, ServerRowsFormATree, ()) {
    auto beginning = drawBeginning();
    ServerTree server(beginning.rows);
    RandomWorld world(beginning);
    for (int steps = anySteps(); steps > 0; --steps) {
        const bool reset = *rc::gen::inRange(0, 3) == 0;
        const Step step = reset ? Step(server.snapshot()) : Step(server.anyBatch());
        world.take(logged(step));

        std::map<std::string, NodeRecord> byPath;
        for (const auto& row : world.rows())
            RC_ASSERT(byPath.emplace(row.path, row).second);
        if (reset) {
            for (const auto& node : std::get<Snapshot>(step).nodes) {
                if (IgnoreList::isJunk(node.path)) continue;
                RC_ASSERT(byPath.contains(node.path));
                RC_ASSERT(byPath.at(node.path).nodeId == node.nodeId);
            }
        }
        for (const auto& [path, row] : byPath) {
            if (row.localOnly) continue;
            for (const auto ancestor : properAncestors(path)) {
                const auto above = byPath.find(std::string(ancestor));
                RC_ASSERT(above != byPath.end());
                if (waitsAt(world, above->second)) break;
                RC_ASSERT(above->second.isDirectory);
            }
        }
    }
}

std::vector<SnapshotNode> withoutIds(std::vector<SnapshotNode> nodes) {
    for (auto& node : nodes)
        node.nodeId.clear();
    return nodes;
}

RC_GTEST_PROP(ConflictLaws, WithoutLocalWorkTheTreeIsTheServers, ()) {
    RandomWorld world(Beginning{});
    ServerTree server({}, false);
    const auto nodes = [&] {
        std::vector<SnapshotNode> found;
        for (const auto& row : world.rows())
            found.push_back(nodeOf(row));
        return found;
    };
    for (int steps = anySteps(); steps > 0; --steps) {
        const auto batch = server.anyBatch();
        logged(Step(batch));
        const auto before = world.store->currentAnchor();
        const auto result =
            Reconciler::applyFeedEntries(*world.random, batch.entries, world.brain, batch.cursor,
                                         *world.store, world.resolver->conflictHandler());
        RC_ASSERT(withoutIds(nodes()) == withoutIds(server.snapshot().nodes));
        RC_ASSERT(result.changedAnchors == (world.store->currentAnchor() > before));
        std::vector<std::string> fetched;
        for (const auto& request : result.downloads) {
            const auto row = world.store->nodeById(world.brain, request.nodeId);
            RC_ASSERT(request == (DownloadRequest{world.brain, row->nodeId, row->path, row->kind,
                                                  row->contentVersion, batch.cursor}));
            fetched.push_back(request.path);
        }
        std::ranges::sort(fetched);
        RC_ASSERT(fetched == server.filesToFetch());
    }
    const auto snapshot = server.snapshot();
    world.take(snapshot);
    RC_ASSERT(nodes() == snapshot.nodes);
}

RC_GTEST_PROP(ConflictLaws, FailureChangesNothing, ()) {
    RandomWorld world(drawBeginning());
    const bool malformed = *rc::gen::arbitrary<bool>();
    const auto step = malformed ? logged(Step(anyMalformedSnapshot(world.rows()))) : drawStep(world);
    const auto before = dump(world.connection);
    const auto failsAsItWas = [&](int faultyStatement) {
        try {
            const StatementFault fault(world.connection, faultyStatement);
            world.take(step);
            return false;
        } catch (const SQLiteError&) {
        } catch (const FileError&) {
        }
        RC_ASSERT(dump(world.connection) == before);
        return true;
    };
    int statement = 0;
    for (int attempts = *rc::gen::inRange(1, 4); attempts > 0; --attempts)
        if (!failsAsItWas(statement += *rc::gen::inRange(1, 20))) return;
    world.files->before = [left = *rc::gen::inRange(0, 3)](FileOperation operation,
                                                           const auto& path) mutable {
        if (operation != FileOperation::write && operation != FileOperation::flush) return;
        if (left-- == 0) throw FileError(ENOSPC, path.string());
    };
    failsAsItWas(0);
}

RC_GTEST_PROP(ConflictLaws, NothingDependsOnChance, ()) {
    const auto beginning = drawBeginning();
    RandomWorld one(beginning, 1), other(beginning, 2);
    for (int steps = anySteps(); steps > 0; --steps) {
        // Fresh identifiers differ between the two, so the step names none of them.
        auto rows = one.rows();
        std::erase_if(rows, [](const NodeRecord& row) { return isLocalId(row.nodeId) && !row.localOnly; });
        const auto step = anyStep(rows);
        RC_ASSERT(takes(one, step) == takes(other, step));
        RC_ASSERT(one.dumpWithoutChance() == other.dumpWithoutChance());
    }
}

RC_GTEST_PROP(ConflictLaws, ResetWithoutAJournalIsThePlanners, ()) {
    auto beginning = drawBeginning();
    beginning.journal.clear();
    RandomWorld resolved(beginning), planned(beginning);
    const auto before = resolved.rows();
    const auto snapshot = anySnapshot(before);
    const auto claims = [&](const NodeRecord& row) {
        return std::ranges::any_of(snapshot.nodes, [&](const SnapshotNode& node) {
            return !node.path.ends_with(".gitkeep") &&
                   (node.path == row.path || isBelow(node.path, row.path));
        });
    };
    const auto plan = resolved.resolver->applyReset(snapshot.nodes, resolved.brain, snapshot.cursor).plan;
    bool anyClaimed = false;
    for (const auto& row : before) {
        if (!row.localOnly || !claims(row)) continue;
        anyClaimed = true;
        const auto now = resolved.store->nodeById(resolved.brain, row.nodeId);
        RC_ASSERT(now && now->localOnly);
        RC_ASSERT(now->path.find(" (conflicted copy M 2026-03-14") != std::string::npos);
        RC_ASSERT(resolved.spool.read(ConflictSpool::nodeKey(row.nodeId)).has_value());
    }
    if (anyClaimed) return;
    RC_ASSERT(plan ==
              ResetPlanner::applySnapshot(snapshot.nodes, planned.brain, snapshot.cursor, *planned.store));
    RC_ASSERT(dump(resolved.connection) == dump(planned.connection));
}

// What is remembered for a transaction is what reading everything anew would tell.
RC_GTEST_PROP(TakenPaths, FollowEveryWrite, ()) {
    RandomWorld world(drawBeginning());
    std::set<std::string> paths;
    const auto collect = [&](const TakenPaths& remembered) {
        for (const auto& row : world.rows())
            paths.insert(row.path);
        for (const auto& change : world.store->pendingChanges(world.brain))
            paths.insert({change.path, change.fromPath.value_or(change.path)});
        const TakenPaths anew(world.rows(), world.store->pendingChanges(world.brain));
        for (const auto& path : paths)
            RC_ASSERT(remembered.contains(path) == anew.contains(path));
    };
    undone(*world.store, [&] {
        const auto& remembered = world.store->takenPaths(world.brain);
        collect(remembered);
        if (!takes(world, drawStep(world))) return;
        collect(remembered);
        for (const auto& change : world.store->pendingChanges(world.brain))
            world.store->redirectPendingMove(*change.id, change.path + "!");
        collect(remembered);
    });
}

}  // namespace
}  // namespace vorlinden::tests
