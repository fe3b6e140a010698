// A whole machine for a test: real files in a folder of its own, everything else in memory and in the test's
// hands.
#pragma once

#include <memory>

#include "platform/system.h"
#include "tests/support/fake_url_session.h"
#include "tests/support/hooked_files.h"
#include "tests/support/manual_clock.h"
#include "tests/support/manual_timers.h"
#include "tests/support/memory_defaults.h"
#include "tests/support/memory_secret_store.h"
#include "tests/support/recording_manager.h"
#include "tests/support/recording_notification_center.h"
#include "tests/support/seeded_random.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/test_loop.h"

namespace vorlinden::tests {

// Change the parts before or after taking system(); a System refers to the same parts. Tasks run on `loop`,
// in the test's own thread, unless system() is given another executor. What a System or a task of it is used
// for must end before this object does.
class FakeSystem {
 public:
    TemporaryFolder folder;
    const std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
    const std::shared_ptr<ManualTimers> timers = std::make_shared<ManualTimers>();
    const std::shared_ptr<SeededRandom> random = std::make_shared<SeededRandom>();
    const std::shared_ptr<HookedFiles> files = std::make_shared<HookedFiles>(platform::posixFileSystem());
    const std::shared_ptr<MemorySecretStore> secrets = std::make_shared<MemorySecretStore>();
    const std::shared_ptr<RecordingNotificationCenter> notifications =
        std::make_shared<RecordingNotificationCenter>();
    const std::shared_ptr<FakeURLSession> session = std::make_shared<FakeURLSession>();
    const std::shared_ptr<RecordingManager> manager = std::make_shared<RecordingManager>(folder / "Taken");
    std::shared_ptr<MemoryDefaults> defaults = std::make_shared<MemoryDefaults>();  // null: none to be had
    std::optional<std::filesystem::path> container = folder / "Container";          // absent: none to be had
    std::string deviceName = "Test Machine";
    TestLoop loop;  // last, so that it goes first, and with it all tasks

    platform::System system() { return system(loop.executor()); }
    platform::System system(platform::Executor executor);

    // Both clocks move, and what became ready runs.
    void advance(std::chrono::milliseconds duration);
};

}  // namespace vorlinden::tests
