// Extended attributes: what the mount tells of an item beyond what a file system knows.

#include <array>
#include <cerrno>

#include "linux/mount/domain_state.h"

namespace vorlinden::mount {

namespace {

constexpr std::string_view prefix = "user.vorlinden.";

std::string stateOf(const Item& item, ContentStore& contents) {
    if (item.uploadingError) return "error";
    return contents.isFetching(item.itemIdentifier) ? "fetching" : "synced";
}

// The value under a name without the prefix; absent if the item has none.
std::optional<std::string> valueOf(const Item& item, bool isSubstituted, std::string_view name,
                                   ContentStore& contents) {
    if (name == "id") return item.itemIdentifier;
    if (name == "version") return std::string(item.itemVersion.contentVersion.view());
    if (name == "state") return stateOf(item, contents);
    if (name == "error") {
        if (!item.uploadingError) return "";
        return item.uploadingError->text.value_or(item.uploadingError->what());
    }
    if (name == "name" && isSubstituted) return item.filename;
    return std::nullopt;
}

constexpr std::array<std::string_view, 5> names{"id", "version", "state", "error", "name"};

}  // namespace

std::vector<std::string> Domain::extendedAttributeNames(Inode inode) {
    std::vector<std::string> result;
    for (const std::string_view name : names) {
        std::string full = std::string(prefix) + std::string(name);
        if (std::holds_alternative<std::string>(extendedAttribute(inode, full)))
            result.push_back(std::move(full));
    }
    return result;
}

Outcome<std::string> Domain::extendedAttribute(Inode inode, std::string_view name) {
    if (!name.starts_with(prefix)) return ENODATA;
    name.remove_prefix(prefix.size());
    std::optional<Item> item;
    bool isSubstituted = false;
    {
        std::lock_guard hold(state_->mutex);
        const Node* node = state_->tree.find(inode);
        if (!node) return ESTALE;
        item = node->item();
        isSubstituted = node->substitute != nullptr;
    }
    auto value = valueOf(*item, isSubstituted, name, *state_->contents);
    if (!value) return ENODATA;
    return *std::move(value);
}

}  // namespace vorlinden::mount
