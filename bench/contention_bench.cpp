// Two processes that write to one catalogue, as host and extension do: whether one ever finds it locked for
// too long, and how large a snapshot may be before that happens.
//
//     contention_bench [SECONDS]
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <new>
#include <thread>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench/workload.h"
#include "synckit/conflicts/conflict_resolver.h"
#include "synckit/upload/local_mutations.h"

namespace vorlinden::bench {
namespace {

using namespace std::chrono_literals;
using Steady = std::chrono::steady_clock;

constexpr auto requestTime = 20ms;  // the server is asked before each batch and before each refusal
constexpr int opsPerBatch = 500;
constexpr int files = 10'000;

// What both processes see.
struct Signals {
    std::atomic<bool> begun{false}, done{false};
};

Signals& sharedSignals() {
    void* memory = mmap(nullptr, sizeof(Signals), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) std::abort();
    return *new (memory) Signals;
}

void waitUntil(const std::atomic<bool>& signal) {
    while (!signal)
        std::this_thread::sleep_for(1ms);
}

// Runs `other` in a second process beside `own`. No store may be open.
void besideEachOther(const std::function<void()>& other, const std::function<void()>& own) {
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        other();
        std::fflush(stdout);
        _exit(0);
    }
    own();
    int status = 0;
    if (waitpid(child, &status, 0) != child || status != 0) std::abort();
}

// How often and how long one process wrote, and how often it found the catalogue locked for too long.
class Tally {
 public:
    void add(const std::function<void()>& write) {
        const auto start = Steady::now();
        try {
            write();
        } catch (const SQLiteError& error) {
            std::fprintf(stderr, "%s\n", error.what());
            ++failures_;
        }
        longest_ =
            std::max(longest_, std::chrono::duration<double, std::milli>(Steady::now() - start).count());
        ++count_;
    }
    void print(const char* what) const {
        std::printf("%-10s %8d, longest %7.0f ms, locked %d times\n", what, count_, longest_, failures_);
    }

 private:
    int count_ = 0, failures_ = 0;
    double longest_ = 0;
};

// One process's view of catalogue and spool.
struct Process {
    explicit Process(const Workplace& place)
        : store(MetadataStore::open(place / "shared.sqlite")),
          spool(platform::posixFileSystem(), place / "Spool") {
        resolver = std::make_shared<ConflictResolver>(
            random, store, "Bench", spool, [] { return Timestamp{}; },
            [this](const PendingChange& change, const auto&) { return spool.pendingBytes(*change.id); });
    }

    std::shared_ptr<RepeatingRandom> random = std::make_shared<RepeatingRandom>();
    std::shared_ptr<MetadataStore> store;
    ConflictSpool spool;
    std::shared_ptr<ConflictResolver> resolver;
};

// An edit that the server refuses, now and then a move or a deletion.
void bounce(Process& process, int i) {
    const auto path = filePath(i * 31 % files);
    const Data bytes(std::string(4'000, 'b'));
    auto& store = *process.store;
    if (i % 8 == 0) {
        const auto row =
            LocalMutations::journalMove(store, brain, std::nullopt, path, path + "~", Timestamp{});
        return process.resolver->bounceMove(brain, path, path + "~", row);
    }
    if (i % 8 == 1)
        return process.resolver->bounceDelete(
            brain, path, LocalMutations::journalDelete(store, brain, std::nullopt, path, Timestamp{}));
    const auto row = store.inTransaction([&] {
        const auto id = LocalMutations::journalUpsert(store, brain, path, std::nullopt, false, Timestamp{});
        process.spool.writeNewEdit(bytes, id);
        return id;
    });
    const auto copy = process.resolver->bounceUpsert(brain, path, row, bytes).copy;
    process.resolver->copyUploadBounced(brain, copy.nodeId, copy.copyPath, copy.journalId);
}

void pull(Process& process, int i) {
    std::vector<FeedEntry> entries;
    for (int op = 0; op < opsPerBatch; ++op)
        entries.push_back(
            {"batch-" + std::to_string(i) + "-" + std::to_string(op),
             Timestamp{},
             {},
             {{Op::Update{filePath((i * opsPerBatch + op) % files), {}, {}, true, NodeKind::text}}}});
    Reconciler::applyFeedEntries(*process.random, entries, brain, entries.back().cursor, *process.store,
                                 process.resolver->conflictHandler());
    if (i % 50 == 0) process.spool.prune(*process.store);
}

void benchTwoProcesses(std::chrono::seconds duration) {
    const Workplace place;
    auto& signals = sharedSignals();
    const auto extension = [&] {
        Process process(place);
        Tally bounces;
        signals.begun = true;
        for (int i = 0; !signals.done; ++i) {
            bounces.add([&] { bounce(process, i); });
            std::this_thread::sleep_for(requestTime);
        }
        bounces.print("bounces");
    };
    const auto host = [&] {
        waitUntil(signals.begun);
        Process process(place);
        Tally batches;
        const auto end = Steady::now() + duration;
        for (int i = 0; Steady::now() < end; ++i) {
            batches.add([&] { pull(process, i); });
            std::this_thread::sleep_for(requestTime);
        }
        signals.done = true;
        batches.print("batches");
    };
    {
        Process process(place);
        process.store->upsertBrain({brain, "team", "Team", std::nullopt});
        ResetPlanner::applySnapshot(makeSnapshot(files / 100), brain, "before", *process.store);
    }
    besideEachOther(extension, host);
}

// A writer that comes just after the reset has begun.
void benchReset(int nodes) {
    const Workplace place;
    auto& signals = sharedSignals();
    const auto writer = [&] {
        Process process(place);
        waitUntil(signals.begun);
        Tally write;
        write.add([&] { process.store->setMeta("value", "key"); });
        write.print("  writer");
    };
    const auto host = [&] {
        Process process(place);
        const auto snapshot = makeSnapshot(nodes / 100);
        process.store->upsertBrain({brain, "team", "Team", std::nullopt});
        std::this_thread::sleep_for(1s);  // the writer has opened its store by then
        Tally reset;
        reset.add([&] {
            process.store->inTransaction([&] {
                signals.begun = true;
                process.resolver->applyReset(snapshot, brain, "after");
            });
        });
        reset.print("  reset");
    };
    std::printf("snapshot of %d new nodes\n", nodes);
    besideEachOther(writer, host);
}

}  // namespace
}  // namespace vorlinden::bench

int main(int argc, char** argv) {
    using namespace vorlinden::bench;
    benchTwoProcesses(std::chrono::seconds(argc > 1 ? std::atoi(argv[1]) : 120));
    for (const int nodes : {25'000, 50'000, 75'000, 100'000})
        benchReset(nodes);
    return 0;
}
