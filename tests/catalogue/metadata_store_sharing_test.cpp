// One store under many threads, one file under two processes, and a disk that refuses.
#include <csignal>
#include <functional>
#include <thread>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/catalogue.h"

namespace vorlinden::tests {
namespace {

const UUID brain = numberedUUID(1);

std::int64_t counter(MetadataStore& store) {
    return std::stoll(store.meta("counter").value_or("0"));
}

// A unit that loses an update or shows a half if anything else comes between its steps.
void count(MetadataStore& store, const std::string& name) {
    store.inTransaction([&] {
        const auto before = counter(store);
        store.upsert(fileNode(brain, name));
        store.appendChange(SyncItemIdentifier::node(brain, "id:" + name), false);
        store.setMeta(std::to_string(before + 1), "counter");
    });
}

TEST(StoreSharing, ManyThreadsMakeWholeUnits) {
    constexpr int writers = 4, readers = 2, units = 30;
    Catalogue store;
    std::vector<std::thread> threads;
    for (int writer = 0; writer < writers; ++writer) {
        threads.emplace_back([&, writer] {
            for (int unit = 0; unit < units; ++unit)
                count(*store, std::to_string(writer) + "-" + std::to_string(unit));
        });
    }
    for (int reader = 0; reader < readers; ++reader) {
        threads.emplace_back([&] {
            for (ChangeSet seen; seen.anchor < writers * units;) {
                seen = store->changes(0);
                EXPECT_EQ(seen.changed.size(), static_cast<std::size_t>(seen.anchor));
                EXPECT_TRUE(seen.deleted.empty());
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(counter(*store), writers * units);
    EXPECT_EQ(store->allNodes(brain).size(), static_cast<std::size_t>(writers * units));
}

// Runs `body` in a process of its own and gives its id.
pid_t inProcess(const std::function<void()>& body) {
    const pid_t child = fork();
    if (child != 0) return child;
    try {
        body();
        _exit(0);
    } catch (const std::exception& error) {
        fprintf(stderr, "child process: %s\n", error.what());
        _exit(1);
    }
}

bool succeeded(pid_t child) {
    int status = -1;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Each opens the file itself, at the same time and as the first ones: SQLite connections don't survive a
// fork.
TEST(StoreSharing, TwoProcessesMakeWholeUnitsInOneFile) {
    constexpr int units = 40;
    for (int round = 0; round < 3; ++round) {
        TemporaryFolder folder;
        const auto file = folder / "sync.sqlite";
        std::vector<pid_t> children;
        for (const char* name : {"host", "extension"}) {
            children.push_back(inProcess([&] {
                const auto store = MetadataStore::open(file);
                for (int unit = 0; unit < units; ++unit)
                    count(*store, name + std::to_string(unit));
            }));
        }
        for (const pid_t child : children)
            EXPECT_TRUE(succeeded(child));
        const auto store = MetadataStore::open(file);
        EXPECT_EQ(counter(*store), 2 * units);
        EXPECT_EQ(store->changes(0).changed.size(), 2u * units);
        EXPECT_EQ(store->currentAnchor(), 2 * units);
    }
}

// No file may grow past `bytes` while this lives, as on a disk without room.
class FullDisk {
 public:
    explicit FullDisk(std::uintmax_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FullDisk() {
        setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

 private:
    void (*handler_)(int);
    rlimit before_{};
};

TEST(StoreSharing, ACommitWithoutRoomLeavesTheOldStateAndAUsableStore) {
    Catalogue store;
    count(*store, "before");
    {
        const FullDisk full(std::filesystem::file_size(store.file().string() + "-wal") + 100);
        EXPECT_THROW(count(*store, "lost"), SQLiteError);
        EXPECT_EQ(paths(store->allNodes(brain)), std::vector<std::string>{"before"});
        EXPECT_THROW(store->setMeta("x", "y"), SQLiteError);
    }
    count(*store, "after");
    EXPECT_EQ(counter(*store), 2);
    EXPECT_EQ(paths(store->allNodes(brain)), (std::vector<std::string>{"after", "before"}));
}

}  // namespace
}  // namespace vorlinden::tests
