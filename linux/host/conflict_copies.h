// The conflict copies that exist, each with the file that it came from.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "linux/host/event_history.h"
#include "synckit/catalogue/metadata_store.h"

namespace vorlinden::host {

struct ConflictCopyListing {
    std::string brain;     // its slug
    std::string copy;      // its path in the brain
    std::string original;  // the path of the file that it came from
    bool originalExists = false;
    bool shown = true;      // false while its folder, deleted elsewhere, waits to be made again with it
    bool waits = false;     // its upload has yet to succeed
    bool onlyHere = false;  // the server doesn't have it
    std::optional<std::string> uploadError;
};

// The path of the file of which `path` is a copy, going by the copy's name; absent for any other name.
std::optional<std::string> originalByName(std::string_view path);

// Copies of all brains, by brain and path, those of other devices too. What `told` knows of a copy counts
// more than its name. Throws what the store throws.
std::vector<ConflictCopyListing> conflictCopies(MetadataStore& store, const std::vector<ToldEvent>& told);

// For a script, one line of JSON; for a person, a line per copy.
std::string conflictCopiesJSON(const std::vector<ConflictCopyListing>& copies);
std::string conflictCopiesText(const std::vector<ConflictCopyListing>& copies);

}  // namespace vorlinden::host
