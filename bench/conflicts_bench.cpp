// What it costs to keep 1,000 waiting edits as conflict copies, beside the bare statements and the bare
// writes of the same files, flushed together just before the commit.
#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

#include "bench/comparison.h"
#include "bench/workload.h"
#include "synckit/apply/reset_planner.h"
#include "synckit/conflicts/conflict_resolver.h"

namespace vorlinden::bench {
namespace {

namespace fs = std::filesystem;

constexpr int edits = 1'000;

std::string editedPath(int i) {
    return filePath(i * 97);
}
std::string editedText(int i) {
    return std::string(4'000, static_cast<char>('a' + i % 26));
}

void check(bool fine) {
    if (!fine) std::abort();
}

// The copies' files as the least code would write them: written, flushed each, their folder flushed once.
void writeBare(const fs::path& folder) {
    fs::remove_all(folder);
    fs::create_directory(folder);
    std::vector<int> files;
    for (int i = 0; i < edits; ++i) {
        const auto text = editedText(i);
        const int file = ::open((folder / std::to_string(i)).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        check(file >= 0 && ::write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size()));
        files.push_back(file);
    }
    for (const int file : files)
        check(::fsync(file) == 0 && ::close(file) == 0);
    const int directory = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    check(::fsync(directory) == 0 && ::close(directory) == 0);
}

// Journal and spool of a machine that was offline for a day.
void queueEdits(MetadataStore& store, const ConflictSpool& spool) {
    store.inTransaction([&] {
        for (int i = 0; i < edits; ++i) {
            PendingChange change;
            change.brainId = brain;
            change.changeKind = PendingChangeKind::update;
            change.path = editedPath(i);
            change.baseCursor = "before";
            spool.writeNewEdit(Data(editedText(i)), store.enqueue(change));
        }
    });
}

std::vector<FeedEntry> collidingFeed() {
    std::vector<FeedEntry> entries;
    for (int i = 0; i < edits; ++i)
        entries.push_back({"cursor-" + std::to_string(i),
                           Timestamp{},
                           {},
                           {{Op::Update{editedPath(i), std::nullopt, {}, true, NodeKind::text}}}});
    return entries;
}

void benchAll() {
    const Workplace place;
    const auto snapshot = makeSnapshot();
    const auto feed = collidingFeed();
    const ConflictSpool spool(platform::posixFileSystem(), place / "Spool");
    const auto prepare = [&](MetadataStore& store) {
        ResetPlanner::applySnapshot(snapshot, brain, "before", store);
        queueEdits(store, spool);
    };
    const auto pull = [&](MetadataStore& store) {
        const auto shared = std::shared_ptr<MetadataStore>(&store, [](auto*) {});
        const auto random = std::make_shared<RepeatingRandom>();
        const auto resolver = std::make_shared<ConflictResolver>(
            random, shared, "Bench", spool, [] { return Timestamp{}; },
            [&](const PendingChange& change, const auto&) { return spool.pendingBytes(*change.id); });
        Reconciler::applyFeedEntries(*random, feed, brain, "after", store, resolver->conflictHandler());
        check(resolver->copies().size() == edits);
    };
    Scenario scenario{prepare, pull};
    scenario.bareFiles = [&] { writeBare(place / "Bare"); };
    scenario.waitsForDisk = true;
    printHeading();
    printPair("feed that collides with 1,000 edits", measure(place, scenario));
}

}  // namespace
}  // namespace vorlinden::bench

int main() {
    vorlinden::bench::benchAll();
    return 0;
}
