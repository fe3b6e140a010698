// A folder of a test's own.
#pragma once

#include <filesystem>
#include <string>

namespace vorlinden::tests {

// Made empty under the system's temporary folder, removed with all that is in it by the destructor.
class TemporaryFolder {
 public:
    TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder();

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::filesystem::path& name) const { return path_ / name; }

 private:
    std::filesystem::path path_;
};

// While it lives, temporary folders are made in memory where the machine offers that: for a test of many
// small worlds, which would otherwise spend its time waiting for the disk. One thread, one at a time.
class FoldersInMemory {
 public:
    FoldersInMemory();
    FoldersInMemory(const FoldersInMemory&) = delete;
    FoldersInMemory& operator=(const FoldersInMemory&) = delete;
    ~FoldersInMemory();

 private:
    const std::string before_;
};

}  // namespace vorlinden::tests
