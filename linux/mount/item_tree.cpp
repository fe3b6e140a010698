#include "linux/mount/item_tree.h"

#include <algorithm>
#include <utility>

#include "linux/mount/change_plan.h"
#include "linux/mount/tree_change.h"

namespace vorlinden::mount {
namespace {

constexpr unsigned demandsOfAWalk = 2;  // one alone may be chance
constexpr std::size_t filesAhead = 2000;

auto firstAbove(const std::vector<Node*>& byInode, Inode after) {
    return std::upper_bound(byInode.begin(), byInode.end(), after,
                            [](Inode inode, const Node* node) { return inode < node->inode; });
}

}  // namespace

ItemTree::ItemTree(const Item& root) {
    nextInode_ = rootInode;
    makeNode(root).place = Node::Place::shown;
    nextInode_ = firstFreeInode;
}

const Node* ItemTree::find(Inode inode) const {
    const Node* node = nullptr;
    while (true) {
        const auto found = nodes_.find(inode);
        if (found == nodes_.end()) return node;
        node = found->second.get();
        if (node->place != Node::Place::gone || node->successor == 0) return node;
        inode = node->successor;
    }
}

const Node* ItemTree::findItem(std::string_view identifier) const {
    const auto found = byIdentifier_.find(identifier);
    return found == byIdentifier_.end() ? nullptr : found->second;
}

const Node* ItemTree::child(const Node& folder, std::string_view shownName) const {
    const auto found = folder.folder->byName.find(shownName);
    return found == folder.folder->byName.end() ? nullptr : found->second;
}

std::vector<const Node*> ItemTree::children(const Node& folder, Inode after, std::size_t count) const {
    const auto& all = folder.folder->byInode;
    const auto begin = firstAbove(all, after);
    const auto left = static_cast<std::size_t>(all.end() - begin);
    return {begin, begin + static_cast<std::ptrdiff_t>(std::min(count, left))};
}

std::string ItemTree::path(const Node& node) const {
    std::string result = node.shownName();
    for (const Node* above = node.parent; above && above->inode != rootInode; above = above->parent)
        result.insert(0, above->shownName() + "/");
    return result;
}

std::vector<ItemIdentifier> ItemTree::listedContainers() const {
    std::vector<ItemIdentifier> result;
    std::vector<const Node*> open;
    for (const auto& [inode, node] : nodes_)
        if (!node->parent && node->isFolder() && node->place != Node::Place::gone) open.push_back(node.get());
    for (std::size_t next = 0; next < open.size(); ++next) {
        const Node& node = *open[next];
        if (!node.folder->listed) continue;
        result.push_back(node.identifier);
        for (const Node* child : node.folder->byInode)
            if (child->isFolder()) open.push_back(child);
    }
    return result;
}

std::vector<ItemIdentifier> ItemTree::strays() const {
    std::vector<ItemIdentifier> result;
    for (const Node* top : find(rootInode)->folder->byInode) {
        if (!top->isFolder()) continue;
        for (const Node* child : top->folder->byInode)
            if (child->stray) result.push_back(child->identifier);
    }
    return result;
}

void ItemTree::refer(Inode inode) {
    if (Node* node = nodeOf(inode)) ++node->lookups;
}

void ItemTree::forget(Inode inode, std::uint64_t count) {
    Node* node = nodeOf(inode);
    if (!node) return;
    node->lookups -= std::min(count, node->lookups);
    dropIfUnused(*node);
}

void ItemTree::opened(Inode inode) {
    if (Node* node = nodeOf(inode)) ++node->opens;
}

void ItemTree::closed(Inode inode) {
    Node* node = nodeOf(inode);
    if (!node || node->opens == 0) return;
    --node->opens;
    dropIfUnused(*node);
}

bool ItemTree::setContentSize(Inode inode, std::uint64_t bytes) {
    Node* node = nodeOf(inode);
    if (!node) return false;
    const auto shown = node->size();
    node->contentSize = bytes;
    const bool changed = shown && *shown != bytes;
    if (changed) node->kernelSize.reset();
    return changed;
}

// Of several answers, the one that the kernel takes in last counts, and that may be any.
void ItemTree::answeredWithSize(Inode inode, std::uint64_t bytes) {
    if (Node* node = nodeOf(inode)) node->kernelSize = std::min(node->kernelSize.value_or(bytes), bytes);
}

KernelSize ItemTree::kernelSize(Inode inode, std::uint64_t bytes) const {
    const Node* node = find(inode);
    if (!node || !node->kernelSize || *node->kernelSize > bytes) return KernelSize::unsure;
    return *node->kernelSize < bytes ? KernelSize::tooSmall : KernelSize::right;
}

void ItemTree::filled(Inode inode, std::uint64_t bytes) {
    if (Node* node = nodeOf(inode)) node->kernelSize = bytes;
}

void ItemTree::walked(Inode folder) {
    Node* node = nodeOf(folder);
    if (node && node->folder) node->folder->walked = true;
}

std::vector<Item> ItemTree::comingNext(Inode file) {
    const Node* node = find(file);
    if (!node || !node->parent) return {};
    Folder& folder = *node->parent->folder;
    if (!folder.walked || ++folder.demands < demandsOfAWalk) return {};
    if (file >= folder.aheadFrom && file < folder.aheadUntil) return {};
    const auto next = children(*node->parent, file, filesAhead);
    if (next.empty()) return {};
    folder.aheadFrom = file;
    folder.aheadUntil = next.back()->inode + 1;
    std::vector<Item> result;
    for (const Node* child : next)
        if (!child->isFolder() && !child->size()) result.push_back(child->item());
    return result;
}

std::variant<Questions, std::vector<Invalidation>> ItemTree::apply(const ChangeBatch& batch, Timestamp now) {
    TreeChange change(*this, batch, now);
    if (!change.questions().empty()) return change.questions();
    return change.apply();
}

Node& ItemTree::makeNode(const Item& item) {
    auto made = std::make_unique<Node>();
    made->inode = nextInode_++;
    Node& node = *made;
    nodes_.emplace(node.inode, std::move(made));
    bind(node, item);
    return node;
}

Node* ItemTree::nodeOf(Inode inode) {
    const auto found = nodes_.find(inode);
    return found == nodes_.end() ? nullptr : found->second.get();
}

Node* ItemTree::nodeOfItem(std::string_view identifier) {
    return const_cast<Node*>(std::as_const(*this).findItem(identifier));
}

// The node must not be shown, since its names are keys of its folder.
void ItemTree::bind(Node& node, const Item& item) {
    unbind(node);
    node.place = Node::Place::elsewhere;
    node.successor = 0;
    node.identifier = item.itemIdentifier;
    node.filename = item.filename;
    node.container = std::make_unique<ItemIdentifier>(item.parentItemIdentifier);
    if (item.contentType.isDirectory() && !node.folder) node.folder = std::make_unique<Folder>();
    refresh(node, item);
    byIdentifier_.erase(node.identifier);  // the key must be this node's own text
    byIdentifier_.emplace(node.identifier, &node);
}

void ItemTree::refresh(Node& node, const Item& item) {
    if (!hasContentOf(node, item)) {
        node.contentSize.reset();
        node.kernelSize.reset();
    }
    node.contentType = &*contentTypes_.insert(item.contentType.name).first;
    node.contentVersion = item.itemVersion.contentVersion.view();
    node.metadataVersion = item.itemVersion.metadataVersion.view();
    node.capabilities = item.capabilities;
    node.documentSize = item.documentSize;
    node.contentModificationDate = item.contentModificationDate;
    node.creationDate = item.creationDate;
    node.uploadingError =
        item.uploadingError ? std::make_unique<platform::fileprovider::Error>(*item.uploadingError) : nullptr;
}

void ItemTree::unbind(Node& node) {
    if (const auto found = byIdentifier_.find(node.identifier);
        found != byIdentifier_.end() && found->second == &node)
        byIdentifier_.erase(found);
    node.place = Node::Place::gone;
}

void ItemTree::attach(Node& node, Node& parent, std::string shownName) {
    node.place = Node::Place::shown;
    node.parent = &parent;
    node.container.reset();
    node.substitute =
        shownName == node.filename ? nullptr : std::make_unique<std::string>(std::move(shownName));
    auto& folder = *parent.folder;
    folder.hasSubstitutes |= node.substitute != nullptr;
    folder.byName.emplace(node.shownName(), &node);
    folder.byInode.insert(firstAbove(folder.byInode, node.inode), &node);
}

void ItemTree::detach(Node& node) {
    if (!node.parent) return;
    auto& folder = *node.parent->folder;
    folder.byName.erase(node.shownName());
    folder.byInode.erase(firstAbove(folder.byInode, node.inode) - 1);
    if (folder.byInode.empty()) folder.hasSubstitutes = false;
    node.container = std::make_unique<ItemIdentifier>(node.parent->identifier);
    node.parent = nullptr;
    node.place = Node::Place::elsewhere;
}

// What isn't shown is kept only for the kernel's sake.
void ItemTree::dropIfUnused(Node& node) {
    if (node.place != Node::Place::shown && !node.isReferred()) erase(node);
}

void ItemTree::erase(Node& node) {
    detach(node);
    if (node.folder)
        while (!node.folder->byInode.empty()) {
            Node& child = *node.folder->byInode.back();
            detach(child);
            dropIfUnused(child);
        }
    unbind(node);
    nodes_.erase(node.inode);
}

}  // namespace vorlinden::mount
