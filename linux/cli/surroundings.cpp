#include "linux/cli/surroundings.h"

#include <filesystem>

#include "linux/mount/mount_state.h"

namespace vorlinden::cli {

host::TreeSurroundings treeSurroundings(const Machine& machine) {
    host::TreeSurroundings surroundings{std::filesystem::current_path(), std::nullopt};
    const auto state = mount::readMountState(*machine.system.files, machine.folders.state);
    if (state) surroundings.mountPoint = state->mountPoint;
    return surroundings;
}

}  // namespace vorlinden::cli
