#include "platform/seams.h"

#include <cstdlib>

#include <boost/asio/redirect_error.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <openssl/rand.h>

namespace vorlinden::platform {

namespace {

class SystemClock final : public Clock {
 public:
    Timestamp now() override {
        return std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
    }
};

class SystemTimers final : public Timers {
 public:
    Task<> sleep(std::chrono::nanoseconds duration) override { return sleepFor(duration); }

 private:
    static Task<> sleepFor(std::chrono::nanoseconds duration) {
        co_await checkCancellation();
        boost::asio::steady_timer timer(co_await boost::asio::this_coro::executor, duration);
        boost::system::error_code ended;
        co_await timer.async_wait(boost::asio::redirect_error(boost::asio::use_awaitable, ended));
        co_await checkCancellation();
    }
};

class SystemRandom final : public Random {
 public:
    void fill(std::span<std::uint8_t> bytes) override {
        if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) std::abort();
    }
};

template <class T>
std::shared_ptr<T> shared() {
    static const std::shared_ptr<T> object = std::make_shared<T>();
    return object;
}

}  // namespace

std::shared_ptr<Clock> systemClock() {
    return shared<SystemClock>();
}
std::shared_ptr<Timers> systemTimers() {
    return shared<SystemTimers>();
}
std::shared_ptr<Random> systemRandom() {
    return shared<SystemRandom>();
}

}  // namespace vorlinden::platform
