#include "tests/support/temporary_folder.h"

#include <cerrno>
#include <cstdlib>
#include <system_error>

namespace vorlinden::tests {

TemporaryFolder::TemporaryFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "vorlinden-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::system_error(errno, std::generic_category(), pattern);
    path_ = pattern;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace vorlinden::tests
