// A catalogue in memory that behaves as the real one does towards the mount: paths with parents found by
// path, folders whose identifiers change with their paths, orphans under their brain, resets that hand out
// new identifiers, and a log of what changed that knows nothing of children. Not thread-safe.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "linux/mount/change_batch.h"
#include "linux/mount/item_tree.h"

namespace vorlinden::tests {

using mount::Item;
using mount::ItemIdentifier;

class FakeCatalogue {
 public:
    struct Row {
        ItemIdentifier identifier;
        bool folder = false;
        std::int64_t version = 1;
        std::int64_t date = 0;                     // milliseconds
        std::optional<std::int64_t> documentSize;  // blobs only
        std::optional<std::string> uploadError;
        int origin = 0;  // the same thing keeps it through new identifiers
    };

    // Paths begin with the brain's name.
    void addBrain(const std::string& name);
    void renameBrain(const std::string& name, const std::string& slug);
    void makeFolder(const std::string& path);      // with its missing parents
    const Row& makeFile(const std::string& path);  // likewise
    void makeBlob(const std::string& path, std::int64_t size);
    void edit(const std::string& path);  // new version and date
    void setError(const std::string& path, std::optional<std::string> text);
    void move(const std::string& from, const std::string& to);  // what lies at `to` goes
    void remove(const std::string& path);                       // with all below it
    void removeRowOnly(const std::string& path);                // what lies below is orphaned
    void replaceFile(const std::string& path);                  // another item takes its place
    void reset(const std::string& brain);  // the server's identifiers for everything in it

    bool has(const std::string& path) const { return rows_.contains(path); }
    const Row& at(const std::string& path) const { return rows_.at(path); }
    const std::map<std::string, Row>& rows() const { return rows_; }
    std::optional<std::string> pathOf(const ItemIdentifier& identifier) const;

    // As the extension answers.
    static Item root();
    std::vector<Item> list(const ItemIdentifier& container) const;
    std::optional<Item> find(const ItemIdentifier& identifier) const;
    std::int64_t anchor() const { return static_cast<std::int64_t>(log_.size()); }
    mount::ChangeBatch changesSince(std::int64_t anchor) const;
    // Answers a batch's questions as they stand now.
    void answer(const mount::Questions& questions, mount::ChangeBatch& batch) const;

 private:
    Row& put(const std::string& path, bool folder);
    void ensureParents(const std::string& path);
    void log(const ItemIdentifier& identifier) { log_.push_back(identifier); }
    void erase(const std::string& path);
    std::vector<std::string> subtree(const std::string& path) const;
    ItemIdentifier parentOf(const std::string& path) const;
    Item item(const std::string& path, const Row& row) const;

    std::map<std::string, std::string> slugs_;  // brain to its shown name
    std::map<std::string, Row> rows_;           // by path
    std::map<ItemIdentifier, std::string> paths_;
    std::vector<ItemIdentifier> log_;
    int counter_ = 0;
};

// Asks until nothing is left to ask, then applies.
std::vector<mount::Invalidation> bring(mount::ItemTree& tree, const FakeCatalogue& catalogue,
                                       mount::ChangeBatch batch);

}  // namespace vorlinden::tests
