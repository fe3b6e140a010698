// A whole daemon at a real mount point over a fake extension, used as programs use it: by system calls.
#include <atomic>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <functional>
#include <mutex>
#include <thread>

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "linux/mount/daemon.h"
#include "linux/mount/mount_point.h"
#include "linux/mount/mount_state.h"
#include "platform/descriptor.h"
#include "platform/fileprovider/manager.h"
#include "tests/mount/catalogue_extension.h"
#include "tests/support/fake_system.h"

namespace vorlinden::tests {
namespace {

namespace fp = platform::fileprovider;
using namespace std::chrono_literals;
using platform::Descriptor;

// The outcome of a system call that gives a descriptor or an error.
struct Opened {
    Descriptor descriptor;
    int error = 0;
};

Opened openFile(const std::filesystem::path& path) {
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    return {Descriptor(descriptor), descriptor < 0 ? errno : 0};
}

std::string readAll(int descriptor) {
    std::string result(4096, '\0');
    const auto size = ::pread(descriptor, result.data(), result.size(), 0);
    if (size < 0) return std::strerror(errno);
    result.resize(static_cast<std::size_t>(size));
    return result;
}

// The content, or the word for the error.
std::string cat(const std::filesystem::path& path) {
    const Opened file = openFile(path);
    return file.error ? std::strerror(file.error) : readAll(file.descriptor.get());
}

int statError(const std::filesystem::path& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? 0 : errno;
}

struct stat statusOf(const std::filesystem::path& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path << ": " << std::strerror(errno);
    return status;
}

std::string attribute(const std::filesystem::path& path, const std::string& name) {
    std::string value(1000, '\0');
    const auto size =
        ::getxattr(path.c_str(), ("user.vorlinden." + name).c_str(), value.data(), value.size());
    if (size < 0) return std::strerror(errno);
    value.resize(static_cast<std::size_t>(size));
    return value;
}

std::set<std::string> names(const std::filesystem::path& folder) {
    std::set<std::string> result;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        result.insert(entry.path().filename());
    return result;
}

const std::string ioError = std::strerror(EIO);

// Breaks the connection of a mount after some minutes, so that a test that hangs fails instead.
class Watchdog {
 public:
    explicit Watchdog(std::filesystem::path mountPoint)
        : thread_([this, mountPoint = std::move(mountPoint)] {
              std::unique_lock hold(mutex_);
              while (!ended_.wait_for(hold, 3min, [this] { return done_; }))
                  ::umount2(mountPoint.c_str(), MNT_FORCE);
          }) {}
    ~Watchdog() {
        {
            std::lock_guard hold(mutex_);
            done_ = true;
        }
        ended_.notify_one();
        thread_.join();
    }

 private:
    std::mutex mutex_;  // guards done_
    bool done_ = false;
    std::condition_variable ended_;
    std::thread thread_;
};

class Mounted : public testing::Test {
 protected:
    Mounted() {
        std::filesystem::create_directories(top);
        backend.change([](FakeCatalogue& catalogue) {
            catalogue.addBrain("b");
            catalogue.makeFile("b/docs/one.md");
            catalogue.makeFile("b/docs/two.md");
            catalogue.makeFile("b/docs/deep/three.md");
            catalogue.makeBlob("b/picture", 15);
        });
    }

    mount::DaemonSurroundings surroundings() {
        mount::DaemonSurroundings result;
        result.system = machine.system(pool.executor());
        result.folders = {machine.folder / "data", machine.folder / "config", machine.folder / "state",
                          machine.folder / "cache"};
        result.domain = {"test", "Test"};
        result.makeExtension = [this] { return backend.makeExtension(); };
        result.openFailure = [] { return std::nullopt; };
        result.completeState = [](mount::MountState&) {};
        result.unmounted = [] {};
        return result;
    }

    void start() {
        mount::DaemonOptions options;
        options.folder = top;
        options.deadline = 10s;
        daemon = std::make_unique<mount::Daemon>(options, surroundings());
    }

    // Changes the catalogue and tells the daemon.
    template <class Change>
    void change(Change body) {
        backend.change(body);
        signal();
    }
    void signal() {
        machine.notifications->post(fp::enumeratorSignalName("test", fp::workingSetContainerItemIdentifier));
    }

    // Looks again and again, as the daemon takes its time.
    static void eventually(const std::function<bool()>& holds) {
        while (!holds())
            std::this_thread::yield();
    }

    std::optional<mount::MountState> state() {
        return mount::readMountState(*machine.files, machine.folder / "state");
    }

    FakeSystem machine;
    // A call into a mount of one's own process that is never answered can't even be killed.
    Watchdog watchdog{machine.folder / "mounted"};
    FakeBackend backend{machine.folder / "temporary"};
    const std::filesystem::path top = machine.folder / "mounted";
    platform::TaskPool pool{3};
    std::unique_ptr<mount::Daemon> daemon;  // first to go, also when a test fails: it unmounts
};

TEST_F(Mounted, ShowsNamesWithoutFetchingAndContentOnDemand) {
    start();
    std::set<std::string> walked;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(top))
        walked.insert(entry.path().lexically_relative(top));
    EXPECT_EQ(walked, (std::set<std::string>{"b", "b/docs", "b/docs/deep", "b/docs/deep/three.md",
                                             "b/docs/one.md", "b/docs/two.md", "b/picture"}));
    EXPECT_EQ(backend.fetches(), 0u) << "a walk by names fetches nothing";
    const auto listings = backend.listings();

    const auto content = backend.contentAt("b/docs/one.md");
    EXPECT_EQ(cat(top / "b/docs/one.md"), content);
    EXPECT_EQ(statusOf(top / "b/docs/one.md").st_size, static_cast<off_t>(content.size()));
    EXPECT_EQ(statusOf(top / "b/docs/two.md").st_size,
              static_cast<off_t>(backend.contentAt("b/docs/two.md").size()))
        << "a size is never made up";
    EXPECT_EQ(statusOf(top / "b/picture").st_size, 15);
    EXPECT_EQ(backend.fetches(), 2u);

    const auto folder = statusOf(top / "b/docs");
    EXPECT_TRUE(S_ISDIR(folder.st_mode));
    EXPECT_EQ(folder.st_uid, ::geteuid());
    EXPECT_EQ(attribute(top / "b/docs/one.md", "version"), "1");
    EXPECT_EQ(attribute(top / "b/docs/one.md", "state"), "synced");
    EXPECT_EQ(attribute(top / "b/docs/one.md", "error"), "");
    EXPECT_EQ(attribute(top / "b", "id"), "brain:b");
    EXPECT_EQ(attribute(top / "b/docs/one.md", "name"), std::strerror(ENODATA));
    EXPECT_EQ(::open((top / "b/docs/one.md").c_str(), O_WRONLY), -1);
    EXPECT_EQ(errno, EROFS);
    EXPECT_EQ(::mkdir((top / "b/new").c_str(), 0700), -1);
    EXPECT_EQ(errno, EROFS);
    struct statvfs disk {};
    EXPECT_EQ(::statvfs(top.c_str(), &disk), 0);
    EXPECT_GT(disk.f_blocks, 0u);

    names(top / "b/docs");
    EXPECT_EQ(backend.listings(), listings) << "folders are listed once";
}

TEST_F(Mounted, ManyReadersAtOnceGetTheirBytesFromOneFetchEach) {
    backend.change([](FakeCatalogue& catalogue) {
        for (int i = 0; i < 60; ++i)
            catalogue.makeFile("b/many/" + std::to_string(i));
    });
    start();
    {
        std::vector<std::jthread> readers;
        for (int reader = 0; reader < 6; ++reader)
            readers.emplace_back([&, reader] {
                for (int i = 0; i < 60; ++i) {
                    const auto name = "b/many/" + std::to_string((i + reader * 7) % 60);
                    struct stat st {};
                    auto c = cat(top / name);
                    ::stat((top / name).c_str(), &st);
                    EXPECT_EQ(c, backend.contentAt(name)) << st.st_ino;
                }
            });
    }
    EXPECT_EQ(backend.fetches(), 60u);
}

TEST_F(Mounted, FollowsTheCatalogueUnderOpenFilesAndCachedNames) {
    start();
    const auto one = top / "b/docs/one.md";
    const auto old = backend.contentAt("b/docs/one.md");
    const Opened held = openFile(one);
    EXPECT_EQ(readAll(held.descriptor.get()), old);
    EXPECT_EQ(cat(top / "b/docs/two.md"), backend.contentAt("b/docs/two.md"));
    EXPECT_EQ(statError(top / "b/docs/new.md"), ENOENT);
    names(top / "b/docs");

    change([](FakeCatalogue& catalogue) {
        for (int i = 0; i < 9; ++i)
            catalogue.edit("b/docs/one.md");  // longer than before
        catalogue.edit("b/docs/two.md");
        catalogue.makeFile("b/docs/new.md");
        catalogue.remove("b/docs/deep");
    });
    eventually([&] { return statError(top / "b/docs/new.md") == 0; });
    eventually([&] { return cat(one) == backend.contentAt("b/docs/one.md"); });
    EXPECT_EQ(readAll(held.descriptor.get()), old) << "who opened it keeps the bytes he opened";
    struct stat status {};
    EXPECT_EQ(::fstat(held.descriptor.get(), &status), 0);
    EXPECT_EQ(status.st_size, static_cast<off_t>(old.size()));
    EXPECT_EQ(statusOf(one).st_size, static_cast<off_t>(old.size() + 1));
    eventually([&] { return cat(top / "b/docs/two.md") == backend.contentAt("b/docs/two.md"); });
    EXPECT_EQ(names(top / "b/docs"), (std::set<std::string>{"new.md", "one.md", "two.md"}));
    EXPECT_EQ(statError(top / "b/docs/deep"), ENOENT);
}

TEST_F(Mounted, WhoStandsInAFolderLivesThroughResetsAndMoves) {
    start();
    const auto docs = openFile(top / "b/docs");
    const auto deep = openFile(top / "b/docs/deep");
    const auto readInside = [&] {
        const Descriptor file(::openat(deep.descriptor.get(), "three.md", O_RDONLY));
        return file ? readAll(file.get()) : std::string(std::strerror(errno));
    };
    const auto inode = statusOf(top / "b/docs/deep").st_ino;
    EXPECT_EQ(readInside(), backend.contentAt("b/docs/deep/three.md"));

    const auto identifier = attribute(top / "b/docs/deep", "id");
    change([](FakeCatalogue& catalogue) { catalogue.reset("b"); });
    eventually([&] { return attribute(top / "b/docs/deep", "id") != identifier; });
    EXPECT_EQ(statusOf(top / "b/docs/deep").st_ino, inode);
    EXPECT_EQ(readInside(), backend.contentAt("b/docs/deep/three.md"));
    EXPECT_EQ(names("/proc/self/fd/" + std::to_string(docs.descriptor.get())),
              (std::set<std::string>{"deep", "one.md", "two.md"}));

    change([](FakeCatalogue& catalogue) {
        catalogue.makeFolder("b/elsewhere");
        catalogue.move("b/docs/deep", "b/elsewhere/moved");
        catalogue.renameBrain("b", "team");
    });
    eventually([&] { return statError(top / "team/elsewhere/moved") == 0; });
    EXPECT_EQ(statusOf(top / "team/elsewhere/moved").st_ino, inode);
    EXPECT_EQ(readInside(), backend.contentAt("b/elsewhere/moved/three.md"));
    EXPECT_EQ(std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(deep.descriptor.get())),
              top / "team/elsewhere/moved");
    EXPECT_EQ(statError(top / "b"), ENOENT);
}

TEST_F(Mounted, AnInterruptedReaderIsLetGoAtOnce) {
    start();
    backend.holdFetches();
    struct sigaction quiet {};
    quiet.sa_handler = [](int) {};
    ::sigaction(SIGUSR1, &quiet, nullptr);
    std::atomic<int> outcome = 0;
    std::thread reader([&] { outcome = openFile(top / "b/docs/one.md").error; });
    eventually([&] { return backend.waiting() == 1; });
    EXPECT_EQ(attribute(top / "b/docs/one.md", "state"), "fetching");
    while (outcome == 0)
        ::pthread_kill(reader.native_handle(), SIGUSR1);
    reader.join();
    EXPECT_EQ(outcome, EINTR);
    eventually([&] { return backend.waiting() == 0; });
    backend.releaseFetches();
    EXPECT_EQ(cat(top / "b/docs/one.md"), backend.contentAt("b/docs/one.md"));
}

TEST_F(Mounted, AServerThatDoesntAnswerCostsAReaderItsDeadlineAndNoMore) {
    start();
    EXPECT_EQ(cat(top / "b/docs/one.md"), backend.contentAt("b/docs/one.md"));
    backend.holdFetches();
    std::string outcome;
    std::thread reader([&] { outcome = cat(top / "b/docs/two.md"); });
    eventually([&] { return backend.waiting() == 1 && machine.timers->sleeping() > 0; });
    EXPECT_EQ(cat(top / "b/docs/one.md"), backend.contentAt("b/docs/one.md"))
        << "what is here stays readable";
    EXPECT_EQ(names(top / "b"), (std::set<std::string>{"docs", "picture"}));
    machine.clock->advance(10s);
    machine.timers->advance(10s);
    reader.join();
    EXPECT_EQ(outcome, ioError);
    backend.releaseFetches();
}

TEST_F(Mounted, OutOfReachAndSignedOutAreToldApart) {
    start();
    EXPECT_EQ(cat(top / "b/docs/one.md"), backend.contentAt("b/docs/one.md"));
    names(top / "b/docs/deep");
    backend.failFetches(fp::serverUnreachable);
    EXPECT_EQ(cat(top / "b/docs/two.md"), ioError);
    eventually([&] { return state() && state()->lastFailedFetch; });
    EXPECT_EQ(state()->lastFailedFetch->path, "b/docs/two.md");
    EXPECT_FALSE(state()->lastFailedFetch->sentence.empty());

    backend.failFetches({});
    backend.failEverything(fp::notAuthenticated);
    change([](FakeCatalogue&) {});
    EXPECT_EQ(cat(top / "b/docs/deep/three.md"), std::strerror(EACCES));
    EXPECT_EQ(cat(top / "b/docs/one.md"), backend.contentAt("b/docs/one.md"));
    EXPECT_EQ(names(top / "b/docs"), (std::set<std::string>{"deep", "one.md", "two.md"}));
}

TEST_F(Mounted, ContentThatIsAheadOfTheItemBringsTheItemAlong) {
    start();
    const auto one = top / "b/docs/one.md";
    EXPECT_EQ(cat(one), backend.contentAt("b/docs/one.md"));
    // The catalogue moves on and nobody says so.
    backend.change([](FakeCatalogue& catalogue) {
        for (int i = 0; i < 12; ++i)
            catalogue.edit("b/docs/two.md");
    });
    const Opened two = openFile(top / "b/docs/two.md");
    struct stat status {};
    EXPECT_EQ(::fstat(two.descriptor.get(), &status), 0);
    EXPECT_EQ(readAll(two.descriptor.get()), backend.contentAt("b/docs/two.md"));
    EXPECT_EQ(status.st_size, static_cast<off_t>(backend.contentAt("b/docs/two.md").size()));
    EXPECT_EQ(attribute(top / "b/docs/two.md", "version"), "13");
}

TEST_F(Mounted, AnExpiredAnchorMakesItEnumerateAnew) {
    start();
    names(top / "b/docs");
    EXPECT_EQ(cat(top / "b/docs/one.md"), backend.contentAt("b/docs/one.md"));
    change([&](FakeCatalogue& catalogue) {
        catalogue.edit("b/docs/one.md");
        catalogue.makeFile("b/docs/new.md");
        catalogue.remove("b/docs/two.md");
    });
    backend.expireAnchors();
    signal();
    eventually([&] { return names(top / "b/docs") == std::set<std::string>{"deep", "new.md", "one.md"}; });
    eventually([&] { return cat(top / "b/docs/one.md") == backend.contentAt("b/docs/one.md"); });
}

TEST_F(Mounted, OrphansAndImpossibleNamesAreShownAlsoAfterARestart) {
    backend.change([](FakeCatalogue& catalogue) {
        catalogue.makeFile("b/lost/one.md");
        catalogue.makeFile("b/one.md");
        catalogue.removeRowOnly("b/lost");
        catalogue.makeFile("b/" + std::string(300, 'n'));
    });
    std::set<std::string> before;
    for (int run = 0; run < 2; ++run) {
        start();
        eventually([&] { return names(top / "b").size() == 5; });
        const auto shown = names(top / "b");
        for (const auto& name : shown) {
            const bool isSubstitute = name.find(" ~") != std::string::npos;
            EXPECT_EQ(attribute(top / "b" / name, "name") != std::strerror(ENODATA), isSubstitute) << name;
        }
        EXPECT_TRUE(run == 0 || shown == before);
        before = shown;
        daemon.reset();
    }
}

TEST_F(Mounted, WhatWasFetchedOutlivesTheDaemon) {
    start();
    const auto content = cat(top / "b/docs/one.md");
    daemon.reset();
    EXPECT_TRUE(std::filesystem::is_empty(top)) << "unmounted";
    backend.failFetches(fp::serverUnreachable);
    start();
    EXPECT_EQ(cat(top / "b/docs/one.md"), content);
    EXPECT_EQ(cat(top / "b/docs/two.md"), ioError);
}

TEST_F(Mounted, AnExtensionWhoseCatalogueDidNotOpenIsReplaced) {
    backend.failEverything(fp::cannotSynchronize);
    start();
    eventually([&] { return state() && state()->extensionTrouble; });
    EXPECT_EQ(statError(top), 0);
    const auto made = backend.extensions();
    backend.failEverything({});
    eventually([&] { return statError(top / "b/docs/one.md") == 0; });
    EXPECT_GT(backend.extensions(), made);
    eventually([&] { return !state()->extensionTrouble; });
}

TEST_F(Mounted, RefusesAFolderThatCantCarryAMount) {
    const auto refusal = [this](const std::filesystem::path& folder) -> std::string {
        try {
            return "accepted " + mount::prepareMountPoint(folder).string();
        } catch (const mount::MountPointError& error) {
            return error.what();
        }
    };
    std::filesystem::create_directories(machine.folder / "full" / "inside");
    EXPECT_NE(refusal(machine.folder / "full").find("not empty"), std::string::npos);
    EXPECT_NE(refusal(machine.folder / "missing").find("no folder"), std::string::npos);
    EXPECT_EQ(refusal(top), "accepted " + top.string());
    start();
    EXPECT_NE(refusal(top).find("mounted"), std::string::npos);
    mount::DaemonOptions second;
    second.folder = machine.folder / "other";
    std::filesystem::create_directories(second.folder);
    EXPECT_THROW(mount::Daemon(second, surroundings()), mount::MountPointError) << "one daemon per domain";
}

}  // namespace
}  // namespace vorlinden::tests
