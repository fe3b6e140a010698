// How long the host waits before it asks again.
#pragma once

#include <chrono>
#include <exception>

namespace vorlinden::host {

// After `failures` rounds in a row to which the server gave no answer: 1 s, 2 s, 4 s and so on up to 5
// minutes, times 0.8 to 1.2 by `chance` (0 up to 1), so that many clients don't come back at the same moment.
// Pure.
std::chrono::milliseconds pauseAfterFailures(unsigned failures, double chance);

// Whether a failure means that the server is out of reach or overloaded, so that asking soon again is no use.
bool serverIsAway(const std::exception_ptr& failure);

}  // namespace vorlinden::host
