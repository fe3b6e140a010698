#include "linux/host/alarm.h"

#include <array>
#include <exception>

namespace vorlinden::host {

void Alarm::ring() {
    platform::Signal signal = [this] {
        const std::lock_guard hold(mutex_);
        return rung_;
    }();
    signal.set();
}

void Alarm::end() {
    auto signals = [this] {
        const std::lock_guard hold(mutex_);
        ended_ = true;
        return std::array{rung_, sleeper_};
    }();
    for (auto& signal : signals)
        signal.set();
}

bool Alarm::hasEnded() const {
    const std::lock_guard hold(mutex_);
    return ended_;
}

platform::Task<> Alarm::wait(const platform::System& system, std::chrono::milliseconds duration) {
    const auto signal = [this] {
        const std::lock_guard hold(mutex_);
        return rung_;
    }();
    co_await either(system, duration, signal);
    const std::lock_guard hold(mutex_);
    if (!ended_) rung_ = platform::Signal();
}

platform::Task<> Alarm::sleep(const platform::System& system, std::chrono::milliseconds duration) {
    const auto signal = [this] {
        const std::lock_guard hold(mutex_);
        if (!ended_) sleeper_ = platform::Signal();  // the last one was set by its time
        return sleeper_;
    }();
    co_await either(system, duration, signal);
}

platform::Task<> Alarm::either(platform::System system, std::chrono::milliseconds duration,
                               platform::Signal signal) {
    const auto timer = platform::spawn(
        system.executor,
        [timers = system.timers, duration, signal]() mutable -> platform::Task<> {
            co_await timers->sleep(duration);
            signal.set();
        },
        [](std::exception_ptr) {});
    try {
        co_await signal.wait();
    } catch (...) {
        timer.cancel();
        throw;
    }
    timer.cancel();
}

}  // namespace vorlinden::host
