// Marks by which other processes see what one of them is doing: lock files that are held meanwhile, so that a
// mark ends with its process, however that ends.
#pragma once

#include <filesystem>
#include <memory>

#include "platform/system.h"
#include "platform/uuid.h"

namespace vorlinden::host {

struct Mark {
    std::filesystem::path file;

    // That somebody keeps the catalogue current, round after round.
    static Mark syncRuns(const platform::Folders& folders) { return {folders.state / "sync-running.lock"}; }
    // That a brain is being synced at this moment.
    static Mark syncs(const platform::Folders& folders, const platform::UUID& brain) {
        return {folders.state / "syncing" / (brain.lowerText() + ".lock")};
    }

    // Held until the result goes; null if another holds it. Throws FileError.
    std::unique_ptr<platform::LockFile> hold(const platform::System& system) const;
    bool isHeld(const platform::System& system) const;
};

}  // namespace vorlinden::host
