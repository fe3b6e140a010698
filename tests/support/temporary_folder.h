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

}  // namespace vorlinden::tests
