// A team's brain of 100,000 nodes, a day's feed over it, and how work on them is timed.
#pragma once

#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "platform/seams.h"
#include "synckit/catalogue/metadata_store.h"
#include "synckit/server/wire_model.h"

namespace vorlinden::bench {

inline constexpr int folders = 1'000;
inline constexpr int filesPerFolder = 99;  // with the folders themselves, 100,000 nodes
inline constexpr int feedOps = 10'000;
inline const UUID brain = *UUID::parse("00000000-0000-4000-8000-000000000001");

std::string folderPath(int i);
std::string filePath(int i);
std::vector<SnapshotNode> makeSnapshot(int folderCount = folders);  // 100 nodes a folder
// A day's work of a team: mostly edits, some new files, renames, deletions.
std::vector<FeedEntry> makeFeed();

// The same bytes in every run.
class RepeatingRandom : public platform::Random {
 public:
    void fill(std::span<std::uint8_t> bytes) override {
        for (auto& byte : bytes)
            byte = static_cast<std::uint8_t>(engine_());
    }

 private:
    std::mt19937_64 engine_;
};

// A folder that goes with the bench.
class Workplace {
 public:
    Workplace() {
        std::string name = (std::filesystem::temp_directory_path() / "vorlinden-bench-XXXXXX").string();
        if (!mkdtemp(name.data())) std::abort();
        path_ = name;
    }
    ~Workplace() { std::filesystem::remove_all(path_); }
    std::filesystem::path operator/(const char* name) const { return path_ / name; }

 private:
    std::filesystem::path path_;
};

struct Pair {
    double ours;
    double bare;
};

void printPair(const std::string& name, Pair pair);

// One piece of work on a catalogue: what stands there before, and what is done to it.
struct Scenario {
    std::function<void(MetadataStore&)> prepare;
    std::function<void(MetadataStore&)> work;
    std::function<void()> bareFiles = [] {};  // what a bare loop does besides, just before it commits
    bool waitsForDisk = false;                // whether waiting counts, as it does for flushed files
};

// Medians of the work and of the statements that it ran, replayed bare, in milliseconds. Each round of either
// starts with the prepared catalogue.
Pair measure(const Workplace& place, const Scenario& scenario);

}  // namespace vorlinden::bench
