#include "bench/workload.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string_view>

#include "bench/comparison.h"
#include "bench/statement_replay.h"

namespace vorlinden::bench {

namespace {

namespace fs = std::filesystem;

constexpr int rounds = 3;

Timestamp dateOf(int i) {
    return Timestamp(std::chrono::milliseconds(1'700'000'000'000 + i));
}

double timed(const Scenario& scenario, const std::function<void()>& work) {
    if (!scenario.waitsForDisk) return milliseconds(work);
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

// Medians of both, taken in turns; each gives its milliseconds.
Pair inTurns(const std::function<double()>& ours, const std::function<double()>& bare) {
    std::vector<double> oursTimes, bareTimes;
    for (int i = 0; i < rounds; ++i) {
        oursTimes.push_back(ours());
        bareTimes.push_back(bare());
    }
    return {median(oursTimes), median(bareTimes)};
}

}  // namespace

std::string folderPath(int i) {
    return "Team area " + std::to_string(i % 10) + "/Project " + std::to_string(i);
}
std::string filePath(int i) {
    return folderPath(i / filesPerFolder) + "/Meeting notes " + std::to_string(i % filesPerFolder) + ".md";
}

std::vector<SnapshotNode> makeSnapshot(int folderCount) {
    std::vector<SnapshotNode> nodes;
    for (int i = 0; i < folderCount; ++i)
        nodes.push_back({"node-folder-" + std::to_string(i),
                         folderPath(i),
                         "Project " + std::to_string(i),
                         true,
                         NodeKind::text,
                         {},
                         {},
                         dateOf(i)});
    for (int i = 0; i < folderCount * filesPerFolder; ++i) {
        SnapshotNode node{"node-file-" + std::to_string(i),
                          filePath(i),
                          "Meeting notes",
                          false,
                          NodeKind::text,
                          {},
                          {},
                          dateOf(i)};
        if (i % 5 == 0) {
            node.kind = NodeKind::blob;
            node.blobHash = std::string(64, 'a');
            node.blobSize = i;
        }
        nodes.push_back(std::move(node));
    }
    return nodes;
}

std::vector<FeedEntry> makeFeed() {
    std::vector<FeedEntry> entries;
    for (int i = 0; i < feedOps; ++i) {
        const auto path = filePath(i * 9);
        FeedEntry entry{"cursor-" + std::to_string(i), dateOf(i), {}, {}};
        switch (i % 10) {
            case 0:
            case 1:
                entry.ops.push_back({Op::Create{path + ".new", "New", {}, false, NodeKind::text}});
                break;
            case 2:
                entry.ops.push_back(
                    {Op::Move{path, folderPath(i % folders) + "/moved " + std::to_string(i)}});
                break;
            case 3:
                entry.ops.push_back({Op::Delete{path}});
                break;
            case 4:
                entry.ops.push_back(
                    {Op::Mkdir{folderPath(i % folders) + "/sub " + std::to_string(i), "Sub"}});
                break;
            default:
                entry.ops.push_back({Op::Update{path, std::nullopt, {}, true, NodeKind::text}});
        }
        entries.push_back(std::move(entry));
    }
    return entries;
}

void printPair(const std::string& name, Pair pair) {
    std::printf("%-44s %10.1f %10.1f %7.2f\n", name.c_str(), pair.ours, pair.bare, pair.ours / pair.bare);
}

Pair measure(const Workplace& place, const Scenario& scenario) {
    const auto prepared = place / "prepared.sqlite";
    const auto used = (place / "used.sqlite").string();
    fs::remove(prepared);
    {
        MetadataStore store(prepared.string());
        store.upsertBrain({brain, "team", "Team", std::nullopt});
        scenario.prepare(store);
    }
    const auto freshCopy = [&] {
        for (const auto* suffix : {"", "-wal", "-shm"})
            fs::remove(used + suffix);
        fs::copy_file(prepared, used);
    };
    freshCopy();
    auto statements = recordStatements([&] {
        MetadataStore store(used);
        scenario.work(store);
    });
    // What opening ran is not part of the work.
    const auto begins = [](const Statement& it) { return std::string_view(it.sql) == "BEGIN IMMEDIATE"; };
    const auto migration = std::ranges::find_if(statements, begins);
    statements.erase(statements.begin(), std::find_if(migration + 1, statements.end(), begins));

    const auto ours = [&] {
        freshCopy();
        MetadataStore store(used);
        return timed(scenario, [&] { scenario.work(store); });
    };
    const auto bare = [&] {
        freshCopy();
        return timed(scenario, [&] { replay(statements, used, scenario.bareFiles); });
    };
    return inTurns(ours, bare);
}

}  // namespace vorlinden::bench
