#include "linux/server/brain_editor.h"

#include <algorithm>

#include "linux/server/refusal.h"
#include "linux/server/rules.h"
#include "platform/uuid.h"

namespace vorlinden::server {

namespace {

void checkNewPath(const std::string& path) {
    if (!isValidPath(path)) throw Refusal::invalidPath(path);
    if (isJunk(path)) throw Refusal(400, "INVALID_PATH", "\"" + path + "\" has a name that is never shared.");
}

Refusal occupied(const std::string& path) {
    return Refusal::conflict("Something else is already at \"" + path + "\".");
}

}  // namespace

BrainEditor::BrainEditor(WriteTransaction& transaction, const BrainRow& brain, Author author,
                         std::vector<std::string> readOnly, std::int64_t keepFeed)
    : transaction_(transaction),
      brain_(brain),
      author_(std::move(author)),
      readOnly_(std::move(readOnly)),
      keepFeed_(keepFeed),
      tree_(transaction.database(), brain.key),
      feed_(transaction.database(), brain.key),
      position_(feed_.next(transaction.storage().random(), transaction.storage().clock().now())) {}

NodeRef BrainEditor::put(const std::string& path, const std::optional<std::string>& title,
                         const FileContent& content) {
    checkNewPath(path);
    checkWritable(path);
    const auto name = title.value_or(titleOf(path));
    const auto existing = tree_.find(path);
    if (!existing) return create(path, name, content);
    if (existing->isDirectory) throw occupied(path);
    return update(*existing, name, content);
}

NodeRef BrainEditor::create(const std::string& path, const std::string& title, const FileContent& content) {
    makeParents(path);
    const Node node{.path = path,
                    .nodeId = freshId(),
                    .title = title,
                    .kind = content.kind,
                    .content = content.ref,
                    .updatedAt = position_.at};
    tree_.insert(node, position_.seq);
    ops_.push_back({Op::Create{path, title, {}, false, content.kind}});
    return {node.nodeId, path};
}

NodeRef BrainEditor::update(const Node& node, const std::string& title, const FileContent& content) {
    const bool bodyChanged = node.content.hash != content.ref.hash || node.kind != content.kind;
    Op::Update op{node.path, std::nullopt, std::nullopt, bodyChanged, content.kind};
    if (title != node.title) op.title = title;
    if (bodyChanged) {
        Node changed = node;
        changed.title = title;
        changed.kind = content.kind;
        changed.content = content.ref;
        changed.updatedAt = position_.at;
        tree_.retire(node, position_.seq);
        tree_.insert(changed, position_.seq);
    } else {
        tree_.setTitle(node, title);
    }
    ops_.push_back({std::move(op)});
    return {node.nodeId, node.path};
}

NodeRef BrainEditor::move(const std::string& from, const std::string& to) {
    if (!isValidPath(from)) throw Refusal::invalidPath(from);
    const auto source = tree_.find(from);
    if (!source) throw Refusal::notFound(from);
    checkSubtreeWritable(from);
    checkNewPath(to);
    checkWritable(to);
    if (from == to) return {source->nodeId, from};
    if (isAtOrBelow(to, from)) throw Refusal::conflict("A folder can't be moved into itself.");
    if (tree_.find(to)) throw occupied(to);
    makeParents(to);
    tree_.moveSubtree(from, to, position_.seq);
    // A folder is called by its name until somebody gives it another; a file keeps its title.
    if (source->isDirectory && source->title == lastComponent(from)) {
        tree_.setTitle(tree_.find(to).value(), std::string(lastComponent(to)));
    }
    ops_.push_back({Op::Move{from, to}});
    return {source->nodeId, to};
}

bool BrainEditor::remove(const std::string& path) {
    if (!isValidPath(path)) throw Refusal::invalidPath(path);
    if (!tree_.find(path)) return false;
    checkSubtreeWritable(path);
    tree_.retireSubtree(path, position_.seq);
    ops_.push_back({Op::Delete{path}});
    return true;
}

NodeRef BrainEditor::makeFolder(const std::string& path) {
    checkNewPath(path);
    checkWritable(path);
    if (const auto existing = tree_.find(path)) {
        if (!existing->isDirectory) throw occupied(path);
        return {existing->nodeId, path};
    }
    makeParents(path);
    const auto folder = insertFolder(path);
    ops_.push_back({Op::Mkdir{path, folder.title}});
    return {folder.nodeId, path};
}

std::string BrainEditor::publish() {
    if (ops_.empty()) return feed_.head().cursor;
    feed_.append(position_, author_, ops_);
    for (const auto& hash : feed_.forget(keepFeed_))
        Contents::dropIfUnused(transaction_, hash);
    return position_.cursor;
}

void BrainEditor::checkWritable(const std::string& path) const {
    for (const auto& subtree : readOnly_) {
        if (isAtOrBelow(path, subtree)) throw Refusal::readOnly(path);
    }
}

// Taking a folder away takes what is read-only below it, too.
void BrainEditor::checkSubtreeWritable(const std::string& path) const {
    checkWritable(path);
    for (const auto& subtree : readOnly_) {
        if (isAtOrBelow(subtree, path)) throw Refusal::readOnly(subtree);
    }
}

// Folders that only a file implies are nodes here, but the feed doesn't speak of them: the file's path does.
void BrainEditor::makeParents(const std::string& path) {
    std::vector<std::string> missing;
    for (auto folder = parentOf(path); !folder.empty(); folder = parentOf(folder)) {
        const auto existing = tree_.find(std::string(folder));
        if (existing && !existing->isDirectory) throw occupied(existing->path);
        if (existing) break;
        missing.emplace_back(folder);
    }
    std::ranges::for_each(missing, [&](const std::string& folder) { insertFolder(folder); });
}

Node BrainEditor::insertFolder(const std::string& path) {
    Node folder;
    folder.path = path;
    folder.nodeId = freshId();
    folder.title = lastComponent(path);
    folder.isDirectory = true;
    folder.updatedAt = position_.at;
    tree_.insert(folder, position_.seq);
    return folder;
}

std::string BrainEditor::freshId() const {
    return platform::UUID::random(transaction_.storage().random()).lowerText();
}

}  // namespace vorlinden::server
