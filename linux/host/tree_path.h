// Items by the name under which a person knows them: a brain's slug and the path in it.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "synckit/catalogue/metadata_store.h"

namespace vorlinden::host {

struct TreePath {
    BrainRecord brain;
    std::string path;  // in the brain; empty for the brain itself
    std::string text() const { return path.empty() ? brain.slug : brain.slug + "/" + path; }
};

// Where a text on the command line points to. `mountPoint` is where the tree is shown now, if it is.
struct TreeSurroundings {
    std::filesystem::path workingFolder;
    std::optional<std::filesystem::path> mountPoint;
};

// "BRAIN/FOLDER/FILE", or a path of the mounted folder: an absolute one, or any while the working folder is
// in it. What is below the brain need not exist. Throws NoSuchPlace.
TreePath treePath(MetadataStore& store, const std::string& text, const TreeSurroundings& surroundings);

}  // namespace vorlinden::host
