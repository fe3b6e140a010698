// Changes of one brain: what is allowed, what the tree is afterwards, and the one feed entry that tells of
// it.
//
// Made inside a write transaction; each operation decides, changes the tree and notes its op. publish()
// appends the entry. What is refused throws Refusal and has changed nothing. Members' writes and an
// administrator's go through here alike; only members are held to the read-only subtrees.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "linux/server/brains.h"
#include "linux/server/feed.h"
#include "linux/server/storage.h"
#include "linux/server/tree.h"
#include "synckit/server/wire_model.h"

namespace vorlinden::server {

// A file's content that the transaction holds already.
struct FileContent {
    NodeKind kind = NodeKind::text;
    ContentRef ref;
};

class BrainEditor {
 public:
    // `readOnly`: paths under which this writer may change nothing. `keepFeed`: entries that stay.
    BrainEditor(WriteTransaction& transaction, const BrainRow& brain, Author author,
                std::vector<std::string> readOnly, std::int64_t keepFeed);

    // A new file, or new content for the one that is there. Missing folders are made. Without a title the
    // file is called by its name.
    NodeRef put(const std::string& path, const std::optional<std::string>& title, const FileContent& content);
    // A file or a folder with all in it. The source is judged before the destination is looked at.
    NodeRef move(const std::string& from, const std::string& to);
    // A file or a folder with all in it; false if nothing is there.
    bool remove(const std::string& path);
    NodeRef makeFolder(const std::string& path);

    const Tree& tree() const { return tree_; }
    std::size_t opCount() const { return ops_.size(); }
    // Appends the entry if there is anything to tell, and gives the cursor of the head. Called last.
    std::string publish();

 private:
    void checkWritable(const std::string& path) const;
    void checkSubtreeWritable(const std::string& path) const;
    void makeParents(const std::string& path);
    Node insertFolder(const std::string& path);
    NodeRef create(const std::string& path, const std::string& title, const FileContent& content);
    NodeRef update(const Node& node, const std::string& title, const FileContent& content);
    std::string freshId() const;

    WriteTransaction& transaction_;
    BrainRow brain_;
    Author author_;
    std::vector<std::string> readOnly_;
    std::int64_t keepFeed_;
    Tree tree_;
    Feed feed_;
    Feed::Position position_;  // of the entry in the making
    std::vector<Op> ops_;
};

}  // namespace vorlinden::server
