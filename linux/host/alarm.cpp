#include "linux/host/alarm.h"

#include <exception>
#include <utility>

namespace vorlinden::host {

void Alarm::ring() {
    platform::Signal signal = [this] {
        const std::lock_guard hold(mutex_);
        rung_ = true;
        return signal_;
    }();
    signal.set();
}

platform::Signal Alarm::current() {
    const std::lock_guard hold(mutex_);
    return signal_;
}

platform::Task<bool> Alarm::wait(const platform::System& system, std::chrono::milliseconds duration) {
    auto signal = current();
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
    const std::lock_guard hold(mutex_);
    signal_ = platform::Signal();
    co_return std::exchange(rung_, false);
}

}  // namespace vorlinden::host
