#include "tests/support/fake_system.h"

namespace vorlinden::tests {

platform::System FakeSystem::system(platform::Executor executor) {
    platform::System system;
    system.executor = std::move(executor);
    system.clock = clock;
    system.timers = timers;
    system.random = random;
    system.files = files;
    system.secrets = secrets;
    system.notifications = notifications;
    system.groupContainer = [this](const std::string&) {
        if (container) std::filesystem::create_directories(*container);
        return container;
    };
    system.sharedDefaults = [this](const std::string&) { return defaults; };
    system.urlSession = [session = session] { return session; };
    system.managerForDomain = [manager = manager](const platform::fileprovider::Domain&) { return manager; };
    system.deviceName = deviceName;
    return system;
}

void FakeSystem::advance(std::chrono::milliseconds duration) {
    clock->advance(duration);
    timers->advance(duration);
    loop.runUntilIdle();
}

}  // namespace vorlinden::tests
