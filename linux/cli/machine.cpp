#include "linux/cli/machine.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <exception>
#include <utility>

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "platform/failure.h"

namespace vorlinden::cli {
namespace {

constexpr auto patienceAtTheEnd = std::chrono::seconds(2);
std::atomic<bool> leftWorkBehind = false;

sigset_t endingSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    return signals;
}

platform::Folders foldersWithSignalsBlocked() {
    const sigset_t signals = endingSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return platform::Folders::ofUser();
}

class Descriptor {
 public:
    explicit Descriptor(int value) : value_(value) {
        if (value_ < 0) throw platform::FileError(errno, "");
    }
    ~Descriptor() { ::close(value_); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return value_; }

 private:
    int value_;
};

// How a signal ends a task: by asking, and by cancelling if that isn't heard for `grace`.
struct Ending {
    std::function<void()> ask;
    std::chrono::milliseconds grace;
};

// Waits until `ended` is readable, meanwhile passing the first ending signal on to the task.
void awaitEnd(const Descriptor& ended, const Descriptor& signals, const platform::TaskHandle& task,
              const Ending& ending) {
    std::uint32_t asked = 0;  // the signal that asked first
    int patience = -1;        // milliseconds for poll
    while (true) {
        std::array<pollfd, 2> waits{pollfd{ended.get(), POLLIN, 0}, pollfd{signals.get(), POLLIN, 0}};
        const int ready = ::poll(waits.data(), waits.size(), patience);
        if (ready < 0 && errno != EINTR) throw platform::FileError(errno, "");
        if (ready < 0) continue;
        if (waits[0].revents != 0) return;
        if (ready == 0) {
            task.cancel();
            patience = -1;
        }
        if (waits[1].revents == 0) continue;
        signalfd_siginfo signal{};
        if (::read(signals.get(), &signal, sizeof signal) != sizeof signal) continue;
        if (asked == signal.ssi_signo) ::_exit(128 + static_cast<int>(asked));
        if (asked != 0) continue;  // a script's SIGTERM after the terminal's SIGINT is no impatience
        asked = signal.ssi_signo;
        ending.ask();
        patience = static_cast<int>(ending.grace.count());
    }
}

}  // namespace

Machine::Machine()
    : folders(foldersWithSignalsBlocked()),
      pool_(std::make_unique<platform::TaskPool>(4)),
      system(platform::linuxSystem(pool_->executor(), folders)) {}

Machine::~Machine() {
    if (pool_->finish(patienceAtTheEnd)) return;
    leftWorkBehind = true;
    static_cast<void>(pool_.release());
}

bool Machine::hasLeftWorkBehind() {
    return leftWorkBehind;
}

void Machine::runInterruptibly(std::function<platform::Task<>()> body) const {
    runUntilAsked(
        std::move(body), [] {}, std::chrono::milliseconds(0));
}

void Machine::runUntilAsked(std::function<platform::Task<>()> body, std::function<void()> ask,
                            std::chrono::milliseconds grace) const {
    const sigset_t set = endingSignals();
    const Descriptor signals(::signalfd(-1, &set, SFD_CLOEXEC));
    const Descriptor ended(::eventfd(0, EFD_CLOEXEC));
    std::exception_ptr failure;
    const auto task = platform::spawn(system.executor, std::move(body), [&](std::exception_ptr thrown) {
        failure = std::move(thrown);
        const std::uint64_t one = 1;
        [[maybe_unused]] const auto written = ::write(ended.get(), &one, sizeof one);
    });
    awaitEnd(ended, signals, task, {std::move(ask), grace});
    if (failure) std::rethrow_exception(failure);
}

}  // namespace vorlinden::cli
