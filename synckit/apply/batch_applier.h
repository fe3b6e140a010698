// Changing the tree by path: the row operations that feed, resolver and local mutations share.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "platform/seams.h"
#include "synckit/apply/download_request.h"
#include "synckit/catalogue/metadata_store.h"
#include "synckit/types.h"

namespace vorlinden {

// An object that lives for one batch over one brain, used by one thread, inside the caller's transaction.
// Every row that it writes or deletes it also appends to `changes_log`. It touches neither journal nor spool.
// Throws what the store throws; the caller's rollback then takes back what was done.
class BatchApplier {
 public:
    BatchApplier(const UUID& brainId, MetadataStore& store, platform::Random& random, Timestamp entryDate);

    // The `updatedAt` of rows that the operations make or refresh.
    void setEntryDate(Timestamp date) { entryDate_ = date; }
    // Whether any operation appended to `changes_log`.
    bool changed() const { return changed_; }

    // A new row with its ancestors; a file is scheduled for download.
    void insertNode(const std::string& path, const std::string& title, bool isDirectory, NodeKind kind);
    // A folder at `path`, in place of a file that stands there; one that is there stays as it is.
    void ensureDirectory(const std::string& path);
    // ensureDirectory() on each proper ancestor, shallowest first.
    void ensureAncestors(const std::string& path);
    // The folders above a conflict copy, as far as they can be had: a file of the server's that stands where
    // one would be stays, and the copy is left without its folder.
    void ensureAncestorsOfCopy(const std::string& path);
    // Deletes the node at `path` and what lies below, but for the ids in `preserving`. Whether a row went.
    bool deleteSubtree(const std::string& path, const std::unordered_set<std::string>& preserving = {});
    void applyUpdate(const std::string& path, const std::optional<std::string>& title, bool bodyChanged,
                     std::optional<NodeKind> nodeKind);
    // Moves a node with its subtree; what occupies the destination goes. Nothing happens if there is nothing
    // at `from`, or if `to` lies at or below it.
    void applyMove(const std::string& from, const std::string& to);
    // Gives a moved derived directory the identifier of its new path: to the platform the old item goes and a
    // new one comes.
    void rekeyDirectory(const NodeRecord& record, const std::string& newPath);
    void retitle(NodeRecord record, const std::string& title);

    void scheduleDownload(const std::string& nodeId);
    // The scheduled files that still exist, as they stand now, in the order in which they were first
    // scheduled.
    std::vector<DownloadRequest> makeDownloads(const std::optional<std::string>& cursor);

 private:
    void write(const NodeRecord& record);
    void erase(const NodeRecord& record);
    void unscheduleDownload(const std::string& nodeId);
    void logChange(const std::string& nodeId, bool deleted);

    const UUID brainId_;
    MetadataStore& store_;
    platform::Random& random_;
    Timestamp entryDate_;
    bool changed_ = false;
    std::vector<std::optional<std::string>> downloadNodeIds_;   // absent: taken back
    std::unordered_map<std::string, std::size_t> downloadSet_;  // id to its place in downloadNodeIds_
};

}  // namespace vorlinden
