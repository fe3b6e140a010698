#include "platform/files.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <thread>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/descriptor.h"
#include "tests/support/temporary_folder.h"

namespace vorlinden::platform {
namespace {

namespace fs = std::filesystem;

class Files : public ::testing::Test {
 protected:
    tests::TemporaryFolder folder;
    const std::shared_ptr<FileSystem> files = posixFileSystem();

    void write(const fs::path& name, std::string bytes) {
        files->writeAtomically(Data(std::move(bytes)), folder / name);
    }
    std::string read(const fs::path& name) { return std::string(files->read(folder / name).view()); }
    std::size_t temporaries() {
        std::size_t count = 0;
        for (const std::string& name : files->list(folder.path()))
            count += isTemporaryName(name) ? 1 : 0;
        return count;
    }
    unsigned mode(const fs::path& name) {
        struct stat status {};
        EXPECT_EQ(::stat((folder / name).c_str(), &status), 0);
        return status.st_mode & 07777U;
    }

    template <class Operation>
    int codeOf(Operation operation) {
        try {
            operation();
            return 0;
        } catch (const FileError& error) {
            return error.code;
        }
    }
};

TEST_F(Files, OnlyAFrozenFileIsMapped) {
    for (const auto& [mode, seen] : {std::pair{0400, "new"}, {0600, "old"}, {0444, "old"}}) {
        const fs::path file = folder / std::to_string(mode);
        std::ofstream(file) << "old";
        ASSERT_EQ(::chmod(file.c_str(), static_cast<mode_t>(mode)), 0);
        const Data bytes = files->readOrMap(file);
        EXPECT_EQ(bytes.view(), "old");
        EXPECT_EQ(files->size(file), 3u);
        ASSERT_EQ(::chmod(file.c_str(), 0600), 0);
        std::fstream(file, std::ios::in | std::ios::out) << "new";  // against the promise, to see the mapping
        fs::remove(file);
        EXPECT_EQ(bytes.view(), seen) << mode;
    }
    std::ofstream(folder / "empty").close();
    ASSERT_EQ(::chmod((folder / "empty").c_str(), 0400), 0);
    EXPECT_TRUE(files->readOrMap(folder / "empty").empty());
    EXPECT_EQ(codeOf([&] { files->readOrMap(folder / "none"); }), ENOENT);
    EXPECT_EQ(codeOf([&] { files->size(folder / "none"); }), ENOENT);
}

TEST_F(Files, WhatIsWrittenReadsBackWholeAndPrivate) {
    for (const std::size_t size : {0, 1, 4096, 10'000'000}) {
        const std::string bytes(size, static_cast<char>('a' + size % 7));
        write("entry", bytes);
        EXPECT_EQ(read("entry"), bytes);
    }
    EXPECT_EQ(mode("entry"), 0600u);
    EXPECT_EQ(temporaries(), 0u);
    files->createDirectories(folder / "a/b c/d/");
    files->createDirectories(folder / "a/b c/d");
    EXPECT_EQ(mode("a"), 0700u);
    EXPECT_EQ(mode("a/b c/d"), 0700u);
    const Data self = files->read("/proc/self/status");  // claims to be empty
    EXPECT_NE(self.view().find("Name:"), std::string_view::npos);
}

TEST_F(Files, WhatIsNotThereOrInTheWayIsTold) {
    const auto none = folder / "none", file = folder / "file";
    EXPECT_EQ(codeOf([&] { files->read(none); }), ENOENT);
    EXPECT_EQ(codeOf([&] { files->remove(none); }), ENOENT);
    EXPECT_EQ(codeOf([&] { files->list(none); }), ENOENT);
    EXPECT_EQ(codeOf([&] { files->sweepTemporaries(none); }), ENOENT);
    EXPECT_EQ(codeOf([&] { files->openLockFile(none / "lock"); }), ENOENT);
    EXPECT_EQ(codeOf([&] { write("none/entry", "x"); }), ENOENT);
    EXPECT_EQ(codeOf([&] { files->read(folder.path()); }), EISDIR);
    write("file", "x");
    EXPECT_EQ(codeOf([&] { files->createDirectories(file); }), ENOTDIR);
    EXPECT_EQ(codeOf([&] { files->createDirectories(file / "b"); }), ENOTDIR);
    EXPECT_FALSE(files->exists(file / "entry"));
    EXPECT_TRUE(files->exists(file));
    files->remove(file);
    EXPECT_FALSE(files->exists(file));
}

TEST_F(Files, FailedWriteLeavesTheOldBytesAndNoTemporary) {
    write("entry", "old");
    const pid_t child = ::fork();
    if (child == 0) {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit most{100'000, 100'000};
        ::setrlimit(RLIMIT_FSIZE, &most);
        ::_exit(codeOf([&] { write("entry", std::string(1'000'000, 'x')); }) == EFBIG ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(read("entry"), "old");

    files->createDirectories(folder / "occupied");
    EXPECT_EQ(codeOf([&] { write("occupied", "x"); }), EISDIR);
    EXPECT_EQ(temporaries(), 0u);
}

TEST_F(Files, KilledWriterLeavesOldOrNewBytesAndItsTemporaryIsSwept) {
    const std::string old(300'000, 'o'), fresh(300'000, 'n');
    write("entry", old);
    for (int i = 0; i < 20; ++i) {
        fs::remove(folder / "started");
        const pid_t child = ::fork();
        while (child == 0) {
            write("started", "");
            write("entry", fresh);
        }
        while (!files->exists(folder / "started"))
            std::this_thread::yield();
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        const std::string now = read("entry");
        EXPECT_TRUE(now == old || now == fresh);
        files->sweepTemporaries(folder.path());
        EXPECT_EQ(temporaries(), 0u);
    }
}

TEST_F(Files, SweepSparesTemporariesOfLivingWritersAndForeignNames) {
    const std::string living = ".vorlinden-00000000000000000000000000000001.tmp";
    const std::string dead = ".vorlinden-00000000000000000000000000000002.tmp";
    for (const std::string& name : {living, dead, std::string("edit-1"), std::string(".vorlinden-.tmp")})
        std::ofstream(folder / name) << "bytes";
    {
        const Descriptor writer = Descriptor::open(folder / living, O_WRONLY);
        ASSERT_EQ(::flock(writer.get(), LOCK_EX | LOCK_NB), 0);
        files->sweepTemporaries(folder.path());
        EXPECT_TRUE(files->exists(folder / living));
        EXPECT_FALSE(files->exists(folder / dead));
    }
    files->sweepTemporaries(folder.path());
    EXPECT_FALSE(files->exists(folder / living));
    EXPECT_EQ(files->list(folder.path()).size(), 2u);
}

TEST_F(Files, ReadersAmongWritersAndSweepersSeeOnlyWholeFiles) {
    const auto content = [](int writer, int round) {
        return std::string(static_cast<std::size_t>(20'000 + 1000 * writer + round),
                           static_cast<char>('a' + writer));
    };
    write("entry", content(0, 0));
    std::atomic<int> writing{3};
    std::vector<std::jthread> threads;
    for (int writer = 0; writer < 3; ++writer) {
        threads.emplace_back([&, writer] {
            for (int round = 0; round < 20; ++round)
                EXPECT_NO_THROW(write("entry", content(writer, round)));
            --writing;
        });
    }
    threads.emplace_back([&] {
        while (writing > 0)
            EXPECT_NO_THROW(files->sweepTemporaries(folder.path()));
    });
    while (writing > 0) {
        const std::string seen = read("entry");
        ASSERT_GE(seen.size(), 20'000u);
        EXPECT_EQ(seen.find_first_not_of(seen.front()), std::string::npos);
    }
    threads.clear();
    EXPECT_EQ(temporaries(), 0u);
}

TEST_F(Files, LocksExcludeEachOtherPerOpenFileAndEndWithIt) {
    auto first = files->openLockFile(folder / "lock");
    auto second = files->openLockFile(folder / "lock");
    EXPECT_EQ(mode("lock"), 0600u);
    EXPECT_EQ(first->tryLock(), 0);
    EXPECT_EQ(second->tryLock(), EWOULDBLOCK);
    first->unlock();
    EXPECT_EQ(second->tryLock(), 0);
    EXPECT_EQ(first->tryLock(), EWOULDBLOCK);
    second.reset();
    EXPECT_EQ(first->tryLock(), 0);
}

}  // namespace
}  // namespace vorlinden::platform
