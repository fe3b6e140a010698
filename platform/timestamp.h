// Points in time, and the one text form in which they are stored and sent.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace vorlinden::platform {

// UTC, to the millisecond, which is as fine as the text form goes.
using Timestamp = std::chrono::sys_time<std::chrono::milliseconds>;

// YYYY-MM-DDThh:mm:ss.sssZ (ISO 8601 internet date-time in UTC, exactly three fractional digits).
std::string formatTimestamp(Timestamp time);
// That form and no other; absent for anything else, impossible dates included.
std::optional<Timestamp> parseTimestamp(std::string_view text);

}  // namespace vorlinden::platform
