#include "platform/notifications.h"

#include <filesystem>
#include <semaphore>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/failure.h"
#include "tests/support/temporary_folder.h"

namespace vorlinden::platform {
namespace {

namespace fs = std::filesystem;

class Wakeups : public ::testing::Test {
 protected:
    tests::TemporaryFolder folder;
    const fs::path signals = folder / "Wakeups";
    std::shared_ptr<NotificationCenter> here = fileNotificationCenter(signals.string());
    const std::shared_ptr<NotificationCenter> there = fileNotificationCenter(signals.string());
};

// Counts its calls; a test waits for one.
struct Heard {
    std::counting_semaphore<> calls{0};
    std::function<void()> listener() {
        return [this] { calls.release(); };
    }
    void wait() { calls.acquire(); }
    bool any() { return calls.try_acquire(); }
};

TEST_F(Wakeups, NobodyHearsAPostAndNothingIsLeftOfIt) {
    here->post("wake");
    EXPECT_FALSE(fs::exists(signals));
    Heard heard;
    const auto registration = here->listen("wake", heard.listener());
    here->post("unheard");
    here->post("");
    here->post("../escape");
    here->post(".");
    EXPECT_EQ(std::distance(fs::directory_iterator(signals), {}), 1);
    for (const char* name : {"", ".hidden", "a/b"})
        EXPECT_THROW(here->listen(name, heard.listener()), FileError) << name;
    EXPECT_THROW(fileNotificationCenter("/proc/none")->listen("wake", [] {}), FileError);
}

TEST_F(Wakeups, AreNotHeardAfterTheRegistrationIsGone) {
    Heard control;
    const auto stays = here->listen("wake", control.listener());
    for (int round = 0; round < 50; ++round) {
        auto alive = std::make_unique<int>(0);
        auto registration = here->listen("wake", [&count = *alive] { ++count; });
        std::jthread poster([&] { there->post("wake"); });
        registration.reset();
        alive.reset();  // a later call would touch freed memory
    }
    control.wait();
}

TEST_F(Wakeups, ListenerMayEndItselfAndTheCentreMayGoFirst) {
    Heard heard;
    std::unique_ptr<NotificationCenter::Registration> self;
    std::binary_semaphore assigned{0};
    self = here->listen("wake", [&] {
        assigned.acquire();
        self.reset();
        heard.calls.release();
    });
    assigned.release();
    here->post("wake");
    heard.wait();
    const auto left = here->listen("wake", heard.listener());
    here.reset();
    there->post("wake");
    EXPECT_FALSE(heard.any());
}

TEST_F(Wakeups, GoOnAfterTheirFolderWasTidiedAway) {
    Heard heard;
    const auto registration = here->listen("wake", heard.listener());
    fs::rename(signals, folder / "elsewhere");
    heard.wait();  // it may have missed something
    while (heard.any()) {
    }
    there->post("wake");
    heard.wait();
    fs::remove(signals / "wake");
    heard.wait();
    there->post("wake");
    heard.wait();
}

TEST_F(Wakeups, ReachEveryListenerOfTheNameInEveryCentreAndNoOthers) {
    constexpr std::size_t names = 8;
    Heard other;
    std::vector<Heard> first(names), second(names);
    std::vector<std::unique_ptr<NotificationCenter::Registration>> registrations;
    registrations.push_back(here->listen("other", other.listener()));
    for (std::size_t i = 0; i < names; ++i) {
        registrations.push_back(here->listen("name" + std::to_string(i), first[i].listener()));
        registrations.push_back(there->listen("name" + std::to_string(i), second[i].listener()));
    }
    std::vector<std::jthread> posters;
    for (std::size_t i = 0; i < names; ++i) {
        posters.emplace_back([&, i] {
            for (int round = 0; round < 100; ++round) {
                (round % 2 == 0 ? here : there)->post("name" + std::to_string(i));
                first[i].wait();
                second[i].wait();
            }
        });
    }
    posters.clear();
    EXPECT_FALSE(other.any());
}

}  // namespace
}  // namespace vorlinden::platform
