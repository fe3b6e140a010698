#include "platform/timestamp.h"

#include <algorithm>
#include <cstdio>

namespace vorlinden::platform {

// Written out by hand: libstdc++ 12 has neither std::chrono::parse nor std::format, and strptime(3) accepts
// blanks, signs and short fields.
namespace {

using namespace std::chrono_literals;

constexpr std::string_view pattern = "dddd-dd-ddTdd:dd:dd.dddZ";

bool matchesPattern(std::string_view text) {
    return std::equal(text.begin(), text.end(), pattern.begin(), pattern.end(), [](char c, char expected) {
        return expected == 'd' ? c >= '0' && c <= '9' : c == expected;
    });
}

int number(std::string_view digits) {
    int value = 0;
    for (const char digit : digits)
        value = value * 10 + (digit - '0');
    return value;
}

// What four digits of a year can say. A time outside is written as the nearest one inside.
constexpr Timestamp earliest = std::chrono::sys_days{std::chrono::year{0} / 1 / 1};
constexpr Timestamp latest = std::chrono::sys_days{std::chrono::year{10000} / 1 / 1} - 1ms;

}  // namespace

std::string formatTimestamp(Timestamp time) {
    time = std::clamp(time, earliest, latest);
    const auto day = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day date{day};
    const std::chrono::hh_mm_ss clock{time - day};
    char text[80];  // far more than needed: the compiler can't know the ranges
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                  static_cast<int>(clock.seconds().count()), static_cast<int>(clock.subseconds().count()));
    return text;
}

std::optional<Timestamp> parseTimestamp(std::string_view text) {
    if (!matchesPattern(text)) return std::nullopt;
    const std::chrono::year_month_day date{
        std::chrono::year{number(text.substr(0, 4))},
        std::chrono::month{static_cast<unsigned>(number(text.substr(5, 2)))},
        std::chrono::day{static_cast<unsigned>(number(text.substr(8, 2)))}};
    const int hour = number(text.substr(11, 2));
    const int minute = number(text.substr(14, 2));
    const int second = number(text.substr(17, 2));
    if (!date.ok() || hour > 23 || minute > 59 || second > 59) return std::nullopt;
    return std::chrono::sys_days{date} + std::chrono::hours{hour} + std::chrono::minutes{minute} +
           std::chrono::seconds{second} + std::chrono::milliseconds{number(text.substr(20, 3))};
}

}  // namespace vorlinden::platform
