#include "tests/support/temporary_folder.h"

#include <cerrno>
#include <cstdlib>
#include <system_error>

#include <unistd.h>

namespace vorlinden::tests {

namespace {

// In memory where there is plenty of it: no test cuts the power, and flushing costs nothing there. TMPDIR
// says otherwise.
std::filesystem::path place() {
    const std::filesystem::path memory = "/dev/shm";
    constexpr std::uintmax_t plenty = std::uintmax_t{1} << 30;
    std::error_code unknown;
    const auto space = std::filesystem::space(memory, unknown);
    const bool inMemory = !unknown && space.available >= plenty && std::getenv("TMPDIR") == nullptr;
    return inMemory ? memory : std::filesystem::temp_directory_path();
}

}  // namespace

TemporaryFolder::TemporaryFolder() {
    std::string pattern = (place() / "vorlinden-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::system_error(errno, std::generic_category(), pattern);
    path_ = pattern;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

FoldersInMemory::FoldersInMemory() : before_(std::filesystem::temp_directory_path()) {
    if (::access("/dev/shm", W_OK) == 0) ::setenv("TMPDIR", "/dev/shm", 1);
}

FoldersInMemory::~FoldersInMemory() {
    ::setenv("TMPDIR", before_.c_str(), 1);
}

}  // namespace vorlinden::tests
