// A disk in memory, for tests that make thousands of small worlds.
#pragma once

#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/files.h"

namespace vorlinden::tests {

// Whole files by path; shares the bytes it is given. Nothing fails but reading or removing what isn't there.
// One thread. No lock files.
class MemoryFiles final : public platform::FileSystem {
 public:
    using Path = std::filesystem::path;

    bool exists(const Path& path) override { return files_.contains(path) || folders_.contains(path); }
    void createDirectories(const Path& path) override { folders_.insert(path); }
    platform::Data read(const Path& path) override {
        const auto file = files_.find(path);
        if (file == files_.end()) throw platform::FileError::noSuchFile(path.string());
        return file->second;
    }
    void writeAtomically(const platform::Data& data, const Path& path) override { files_[path] = data; }
    void flush(const std::vector<Path>&) override {}
    void remove(const Path& path) override {
        if (files_.erase(path) == 0) throw platform::FileError::noSuchFile(path.string());
    }
    std::vector<std::string> list(const Path& folder) override {
        std::vector<std::string> names;
        for (const auto& [path, data] : files_)
            if (path.parent_path() == folder) names.push_back(path.filename().string());
        return names;
    }
    void sweepTemporaries(const Path&) override {}
    std::unique_ptr<platform::LockFile> openLockFile(const Path&) override {
        throw std::logic_error("a disk in memory has no lock files");
    }

 private:
    std::map<Path, platform::Data> files_;
    std::set<Path> folders_;
};

}  // namespace vorlinden::tests
