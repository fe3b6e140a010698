// Rows of "name  ours  bare  ratio": our code beside the least that any code would have to do.
#pragma once

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

namespace vorlinden::bench {

inline double processorMilliseconds() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) * 1e-6;
}

// Processor time, system calls included: other programs of the machine don't lengthen it, and work on warm
// caches has no waits that it would hide.
template <class Work>
double milliseconds(Work&& work) {
    const double start = processorMilliseconds();
    work();
    return processorMilliseconds() - start;
}

inline double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

inline void printHeading() {
    std::printf("%-44s %10s %10s %7s\n", "", "ours ms", "bare ms", "ratio");
}

// Runs both in turn, so that whatever else the machine does falls on both, and prints the medians. The first
// round fills caches and isn't counted.
template <class Ours, class Bare>
void compare(const std::string& name, int rounds, Ours&& ours, Bare&& bare) {
    std::vector<double> oursTimes, bareTimes;
    for (int round = 0; round <= rounds; ++round) {
        const double oursTime = milliseconds(ours);
        const double bareTime = milliseconds(bare);
        if (round == 0) continue;
        oursTimes.push_back(oursTime);
        bareTimes.push_back(bareTime);
    }
    const double oursMedian = median(oursTimes), bareMedian = median(bareTimes);
    std::printf("%-44s %10.1f %10.1f %7.2f\n", name.c_str(), oursMedian, bareMedian, oursMedian / bareMedian);
}

}  // namespace vorlinden::bench
