// Plays the daemon for one call: an extension object in this process, called as the platform calls it.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "linux/cli/machine.h"
#include "platform/fileprovider/protocol.h"

namespace vorlinden::cli {

// What an operation answered. A listing has many items, a fetch has the file, a deletion nothing.
struct ItemReply {
    std::vector<platform::fileprovider::Item> items;
    std::optional<std::filesystem::path> file;
    bool fetchContent = false;
    std::optional<platform::fileprovider::Error> error;
};

// Each operation blocks until the extension has answered; Ctrl-C cancels it as the platform would, and its
// answer is then that of a cancelled operation. Items are found by their names, from the root down; one that
// isn't there is answered with noSuchItem.
class ItemDriver {
 public:
    explicit ItemDriver(const Machine& machine);

    ItemReply list(const std::string& path);
    ItemReply fetch(const std::string& path);
    // Without `contents` a folder is made.
    ItemReply create(const std::string& path, const platform::fileprovider::Contents& contents);
    // With the base version of `base`, or that of the item as it is now.
    ItemReply edit(const std::string& path, const std::filesystem::path& contents,
                   const std::optional<std::string>& base);
    ItemReply rename(const std::string& path, const std::string& name);
    ItemReply move(const std::string& path, const std::string& folder);
    ItemReply remove(const std::string& path);

 private:
    class Call;

    platform::fileprovider::Item at(const std::string& path);
    std::vector<platform::fileprovider::Item> children(const std::string& container);
    ItemReply modify(const platform::fileprovider::Item& changed,
                     const platform::fileprovider::ItemVersion& base, std::uint32_t fields,
                     const platform::fileprovider::Contents& contents);

    const Machine& machine_;
    const std::shared_ptr<platform::fileprovider::ReplicatedExtension> extension_;
};

// For a person, and one line of JSON for a script.
std::string replyText(const ItemReply& reply);
std::string replyJSON(const ItemReply& reply);

}  // namespace vorlinden::cli
