// What applying the server's state costs beyond the statements themselves, and planning content beyond its
// hash.
//
// Prints NAME OURS BARE RATIO. The bare side of the first rows replays the statements that ours ran, prepared
// per call in one transaction.
#include <cstdlib>
#include <fstream>

#include <openssl/evp.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench/comparison.h"
#include "bench/workload.h"
#include "synckit/apply/reconciler.h"
#include "synckit/apply/reset_planner.h"
#include "synckit/server/sync_json.h"
#include "synckit/upload/upload_planner.h"

namespace vorlinden::bench {
namespace {

namespace fs = std::filesystem;

constexpr int rounds = 3;
constexpr int waitingEdits = 1'000;

ConflictHandler neverAsked() {
    return [](const auto&, const auto&, const auto&) -> ConflictResolution { std::abort(); };
}

void applyFeed(MetadataStore& store, const std::vector<FeedEntry>& feed) {
    RepeatingRandom random;
    Reconciler::applyFeedEntries(random, feed, brain, "after", store, neverAsked());
}

void addWaitingEdits(MetadataStore& store) {
    for (int i = 0; i < waitingEdits; ++i) {
        PendingChange change;
        change.brainId = brain;
        change.changeKind = PendingChangeKind::update;
        change.path = filePath(i * 9 + 5);  // beside the feed's paths
        change.baseCursor = "before";
        store.enqueue(change);
    }
}

void writeResponse(const fs::path& file, const std::vector<SnapshotNode>& snapshot) {
    std::ofstream out(file, std::ios::binary);
    out << R"({"reset":true,"cursor":"after","snapshot":[)";
    const char* separator = "";
    for (const auto& node : snapshot) {
        out << separator << SyncJSON::encode(node).text;
        separator = ",";
    }
    out << "]}";
}

std::string contentOf(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::string content(fs::file_size(file), '\0');
    in.read(content.data(), static_cast<std::streamsize>(content.size()));
    return content;
}

// In a process of its own, so that nothing else of the bench counts: from the response's bytes to the commit.
double peakMegabytes(const fs::path& response, const fs::path& database) {
    const pid_t child = fork();
    if (child == 0) {
        execl("/proc/self/exe", "apply_bench", "--apply", response.c_str(), database.c_str(), nullptr);
        _exit(1);
    }
    int status = 0;
    struct rusage usage {};
    if (wait4(child, &status, 0, &usage) != child || status != 0) std::abort();
    return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

int applyResponse(const char* response, const char* database) {
    MetadataStore store(database);
    store.upsertBrain({brain, "team", "Team", std::nullopt});
    const Data body(contentOf(response));
    const auto changes = SyncJSON::decode<ChangesResponse>(body);
    const auto& reset = std::get<ChangesResponse::Reset>(changes.value);
    const auto plan = ResetPlanner::applySnapshot(reset.snapshot, brain, reset.cursor, store);
    return plan.downloads.size() == static_cast<std::size_t>(folders * filesPerFolder) ? 0 : 1;
}

void benchPlanning(const std::string& name, std::string bytes) {
    const Data data(std::move(bytes));
    const auto hash = [&] {
        unsigned char digest[EVP_MAX_MD_SIZE];
        unsigned int size = 0;
        EVP_Digest(data.data(), data.size(), digest, &size, EVP_sha256(), nullptr);
    };
    compare(
        name, rounds, [&] { UploadPlanner::planContentUpload(data); }, hash);
}

void benchAll() {
    const Workplace place;
    const auto snapshot = makeSnapshot();
    const auto feed = makeFeed();
    const auto nothing = [](MetadataStore&) {};
    const auto applySnapshot = [&](MetadataStore& store) {
        ResetPlanner::applySnapshot(snapshot, brain, "before", store);
    };
    const auto applySnapshotAndEdits = [&](MetadataStore& store) {
        applySnapshot(store);
        store.inTransaction([&] { addWaitingEdits(store); });
    };
    const auto pull = [&](MetadataStore& store) { applyFeed(store, feed); };

    printHeading();
    const auto applied = measure(place, {nothing, applySnapshot});
    printPair("snapshot of 100,000 nodes, new", applied);
    const auto quiet = measure(place, {applySnapshot, pull});
    printPair("feed of 10,000 ops over it", quiet);
    const auto waiting = measure(place, {applySnapshotAndEdits, pull});
    printPair("the same with 1,000 waiting edits", waiting);
    printPair("  beside the one with an empty journal", {waiting.ours, quiet.ours});

    writeResponse(place / "response.json", snapshot);
    const Data body(contentOf(place / "response.json"));
    std::vector<double> decodes;
    for (int i = 0; i < rounds; ++i)
        decodes.push_back(milliseconds([&] { SyncJSON::decode<ChangesResponse>(body); }));
    printPair("snapshot's JSON decoded, beside its applying", {median(decodes), applied.ours});
    printPair("peak memory of the snapshot, limit 400 MB",
              {peakMegabytes(place / "response.json", place / "peak.sqlite"), 400});

    const auto limit = static_cast<std::size_t>(UploadPlanner::maxUploadBytes);
    std::string noise(limit, '\0');
    for (std::size_t i = 0; i < noise.size(); ++i)
        noise[i] = static_cast<char>(1 + i * i % 255);
    benchPlanning("planContentUpload, 100 MB of a blob", std::move(noise));
    benchPlanning("planContentUpload, 100 MB of text", std::string(limit, 'a'));
}

}  // namespace
}  // namespace vorlinden::bench

int main(int argc, char** argv) {
    if (argc == 4 && std::string_view(argv[1]) == "--apply")
        return vorlinden::bench::applyResponse(argv[2], argv[3]);
    vorlinden::bench::benchAll();
    return 0;
}
