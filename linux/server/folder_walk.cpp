#include "linux/server/folder_walk.h"

#include <algorithm>
#include <cerrno>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "linux/server/rules.h"
#include "platform/descriptor.h"
#include "platform/failure.h"

namespace vorlinden::server {

namespace {

namespace fs = std::filesystem;

class Walker {
 public:
    Walker(const fs::path& root, FolderWalk& walk, ImportReport& report)
        : root_(root), walk_(walk), report_(report) {}

    void run() {
        std::error_code problem;
        fs::directory_iterator top(root_, problem);
        if (problem) throw platform::FileError(problem.value(), root_.string());
        look(std::move(top), "");
        // A list of what is still to be opened instead of recursion: trees may be deep.
        while (!open_.empty()) {
            const auto folder = std::move(open_.back());
            open_.pop_back();
            fs::directory_iterator entries(root_ / folder, problem);
            if (problem) {
                unreadable(folder);
            } else {
                look(std::move(entries), folder + "/");
            }
        }
    }

 private:
    void look(fs::directory_iterator entries, const std::string& prefix) {
        std::error_code problem;
        for (; !problem && entries != fs::directory_iterator(); entries.increment(problem))
            visit(*entries, prefix);
        if (problem) unreadable(prefix.substr(0, prefix.empty() ? 0 : prefix.size() - 1));
    }

    void visit(const fs::directory_entry& entry, const std::string& prefix) {
        std::error_code problem;
        const auto type = entry.symlink_status(problem).type();
        const auto path = prefix + entry.path().filename().string();
        if (type == fs::file_type::symlink) {
            ++report_.links;
        } else if (!isValidPath(path) || isJunk(path)) {
            ++report_.unusableNames;
        } else if (problem || type == fs::file_type::none || type == fs::file_type::unknown) {
            unreadable(path);
        } else if (type == fs::file_type::directory) {
            walk_.folders.insert(path);
            open_.push_back(path);
        } else if (type == fs::file_type::regular) {
            walk_.files.insert(path);
        } else {
            ++report_.special;
        }
    }

    void unreadable(const std::string& path) {
        ++report_.unreadable;
        walk_.unreadable.insert(path);
    }

    const fs::path& root_;
    FolderWalk& walk_;
    ImportReport& report_;
    std::vector<std::string> open_;
};

}  // namespace

FolderWalk FolderWalk::of(const fs::path& folder, ImportReport& report) {
    FolderWalk walk;
    Walker(folder, walk, report).run();
    return walk;
}

bool FolderWalk::isKnown(const std::string& path) const {
    return std::ranges::none_of(unreadable,
                                [&](const std::string& place) { return isAtOrBelow(path, place); });
}

bool readInto(IncomingContent& content, const fs::path& path) {
    // A pipe that took the file's place mustn't hold the walk.
    const platform::Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
    std::vector<char> piece(
        std::clamp<std::size_t>(static_cast<std::size_t>(status.st_size) + 1, 1, 256 * 1024));
    while (true) {
        const auto count =
            platform::uninterrupted([&] { return ::read(file.get(), piece.data(), piece.size()); });
        if (count == 0) break;
        if (count < 0) return false;
        content.add({piece.data(), static_cast<std::size_t>(count)});
    }
    content.finish();
    return true;
}

}  // namespace vorlinden::server
