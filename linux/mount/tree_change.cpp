#include "linux/mount/tree_change.h"

#include <algorithm>
#include <utility>

#include "linux/mount/shown_names.h"

namespace vorlinden::mount {
namespace {

std::size_t depth(const Node& node) {
    std::size_t result = 0;
    for (const Node* above = node.parent; above; above = above->parent)
        ++result;
    return result;
}

bool isAboveOrSame(const Node& node, const Node* below) {
    for (; below; below = below->parent)
        if (below == &node) return true;
    return false;
}

bool isKnownToKernel(const Node& node) {
    return node.lookups > 0 || node.inode == rootInode;
}

}  // namespace

TreeChange::TreeChange(ItemTree& tree, const ChangeBatch& batch, Timestamp now)
    : tree_(tree), now_(now), plan_(planChanges(tree, batch)) {}

std::vector<Invalidation> TreeChange::apply() {
    leaveFolders();
    bindSuccessors();
    buryGone();
    bindKnown();
    makeNew();
    markListed();
    enterFolders();
    auto result = report();
    for (const Inode inode : loose_)
        if (Node* node = tree_.nodeOf(inode)) tree_.dropIfUnused(*node);
    return result;
}

// Deepest first, so that the kernel hears of a folder's children before it hears of the folder.
void TreeChange::leaveFolders() {
    std::vector<std::pair<std::size_t, Node*>> leaving;
    for (const auto identifier : plan_.fates.mentioned()) {
        Node* node = tree_.nodeOfItem(identifier);
        if (node && node->parent && !staysInPlace(*node, *plan_.fates.of(identifier)))
            leaving.emplace_back(depth(*node), node);
    }
    std::stable_sort(leaving.begin(), leaving.end(),
                     [](const auto& a, const auto& b) { return a.first > b.first; });
    for (const auto& [level, node] : leaving)
        takeOut(*node);
}

bool TreeChange::staysInPlace(const Node& node, const Fate& fate) const {
    if (!fate.item || node.isFolder() != fate.item->contentType.isDirectory()) return false;
    if (fate.container != node.parent->identifier) return false;
    const bool opensOtherContent = node.opens > 0 && !hasContentOf(node, *fate.item);
    return fate.item->filename == node.filename && !opensOtherContent;
}

void TreeChange::takeOut(Node& node) {
    Node& folder = *node.parent;
    if (touched_[&folder].insert(node.shownName()).second)
        before_.push_back({&folder, node.shownName(), node.inode});
    if (folder.folder->hasSubstitutes) toRename_.insert(&folder);
    tree_.detach(node);
    loose_.push_back(node.inode);
}

void TreeChange::bindSuccessors() {
    for (const auto& [known, item] : plan_.succession.successors) {
        Node& node = *tree_.nodeOf(known->inode);
        if (node.opens > 0) continue;  // keeps the bytes it was opened with; the item gets a new inode
        tree_.bind(node, *item);
        arrive(node);
        changed(node, !node.isFolder());
    }
}

void TreeChange::buryGone() {
    for (const auto identifier : plan_.fates.mentioned()) {
        Node* node = plan_.fates.isGone(identifier) ? tree_.nodeOfItem(identifier) : nullptr;
        if (!node || node->inode == rootInode) continue;
        const auto replacement = plan_.succession.replacements.find(node);
        tree_.unbind(*node);
        if (replacement != plan_.succession.replacements.end()) node->successor = replacement->second->inode;
        if (node->folder) emptyOut(*node);
        changed(*node, node->isFolder());
        loose_.push_back(node->inode);
    }
}

// Whoever still hangs in a folder that is gone has found no other.
void TreeChange::emptyOut(Node& folder) {
    while (!folder.folder->byInode.empty())
        takeOut(*folder.folder->byInode.back());
    folder.folder->listed = false;
}

void TreeChange::bindKnown() {
    for (const auto identifier : plan_.fates.mentioned()) {
        const Fate& fate = *plan_.fates.of(identifier);
        Node* node = fate.item ? tree_.nodeOfItem(identifier) : nullptr;
        const bool boundAlready = node && plan_.succession.successors.contains(node);
        if (node && !boundAlready) bindKnown(*node, fate);
    }
}

void TreeChange::bindKnown(Node& node, const Fate& fate) {
    const Item& item = *fate.item;
    const bool sameContent = hasContentOf(node, item);
    if (node.inode == rootInode || node.parent) {
        if (!fate.inChangeSet && node.item() == item) return vouchFor(node, fate);
        tree_.refresh(node, item);
        vouchFor(node, fate);
        if (!sameContent && node.parent) node.parent->folder->aheadUntil = 0;
    } else if (node.isFolder() != item.contentType.isDirectory() || (node.opens > 0 && !sameContent)) {
        tree_.unbind(node);
        if (node.folder) emptyOut(node);
        arrive(tree_.makeNode(item));
        return changed(node, false);
    } else {
        tree_.bind(node, item);
        arrive(node);
    }
    changed(node, !sameContent && !node.isFolder());
}

// Only a listing of its folder shows that a node isn't a stray.
void TreeChange::vouchFor(Node& node, const Fate& fate) {
    if (!node.parent) return;
    const bool flipped = std::exchange(node.stray, !fate.listed) == fate.listed;
    if (flipped && node.parent->folder->hasSubstitutes) toRename_.insert(node.parent);
}

void TreeChange::makeNew() {
    for (const auto identifier : plan_.fates.mentioned()) {
        const Fate& fate = *plan_.fates.of(identifier);
        if (!fate.item || tree_.findItem(identifier)) continue;
        if (isShownAfterwards(tree_, plan_.fates, fate.container)) arrive(tree_.makeNode(*fate.item));
    }
}

void TreeChange::changed(const Node& node, bool data) {
    if (isKnownToKernel(node)) changed_[node.inode] |= data;
}

void TreeChange::markListed() {
    for (const auto container : plan_.fates.listings()) {
        Node* node = tree_.nodeOfItem(container);
        if (node && node->folder && !std::exchange(node->folder->listed, true)) newlyListed_.insert(node);
    }
}

void TreeChange::enterFolders() {
    std::vector<Node*> folders;
    std::unordered_map<Node*, std::vector<Node*>> byFolder;
    for (Node* node : arrivals_) {
        loose_.push_back(node->inode);
        const Fate* fate = plan_.fates.of(node->identifier);
        node->stray = !fate->listed;
        *node->container = fate->container;
        Node* folder = tree_.nodeOfItem(fate->container);
        if (!folder || !folder->folder || !folder->folder->listed) continue;
        auto& arrivals = byFolder[folder];
        if (arrivals.empty()) folders.push_back(folder);
        arrivals.push_back(node);
    }
    for (Node* folder : folders)
        enter(*folder, byFolder[folder]);
    for (Node* folder : std::vector<Node*>(toRename_.begin(), toRename_.end()))
        enterWithNewNames(*folder);
}

// An item that claims to lie below itself is left out of the tree until it is told otherwise.
void TreeChange::enter(Node& folder, const std::vector<Node*>& arrivals) {
    std::vector<Node*> possible;
    for (Node* node : arrivals)
        if (!node->isFolder() || !isAboveOrSame(*node, &folder)) possible.push_back(node);
    if (enterPlainly(folder, possible)) return;
    for (Node* node : possible)
        if (!node->parent)
            attach(*node, folder, std::to_string(node->inode) + "/");  // a name that nobody has
    toRename_.insert(&folder);
}

// What nearly always happens: everybody under their own name.
bool TreeChange::enterPlainly(Node& folder, const std::vector<Node*>& arrivals) {
    if (folder.folder->hasSubstitutes || toRename_.contains(&folder)) return false;
    for (Node* node : arrivals) {
        if (!canBeShown(node->filename) || tree_.child(folder, node->filename)) return false;
        attach(*node, folder, node->filename);
    }
    return true;
}

void TreeChange::enterWithNewNames(Node& folder) {
    const std::vector<Node*> children = folder.folder->byInode;
    std::vector<NamedItem> named;
    for (const Node* node : children)
        named.push_back({node->filename, node->identifier, node->stray});
    const auto names = shownNames(named);
    std::vector<std::pair<Node*, std::string>> renamed;
    for (std::size_t index = 0; index < children.size(); ++index)
        if (children[index]->shownName() != names[index]) renamed.emplace_back(children[index], names[index]);
    for (const auto& [node, name] : renamed)
        takeOut(*node);
    for (const auto& [node, name] : renamed)
        attach(*node, folder, name);
    folder.folder->hasSubstitutes = std::any_of(children.begin(), children.end(),
                                                [](const Node* node) { return node->substitute != nullptr; });
}

void TreeChange::attach(Node& node, Node& folder, std::string shownName) {
    if (touched_[&folder].insert(shownName).second) before_.push_back({&folder, shownName, 0});
    tree_.attach(node, folder, std::move(shownName));
}

// A folder's time never stands still when it changes: by it the kernel tells a listing of before from one of
// now.
void TreeChange::stamp(Folder& folder) const {
    const auto last = folder.listingChanged;
    if (last && *last >= now_)
        folder.listingChanged = *last + std::chrono::milliseconds(1);
    else
        folder.listingChanged = now_;
}

void TreeChange::reportNames() {
    std::unordered_set<const Node*> stamped;
    for (const auto& [folder, name, before] : before_) {
        const Node* now = tree_.child(*folder, name);
        if (newlyListed_.contains(folder) || (now ? now->inode : 0) == before) continue;
        if (stamped.insert(folder).second) stamp(*folder->folder);
        if (!isKnownToKernel(*folder)) continue;
        changed(*folder, true);
        const Node* was = before == 0 ? nullptr : tree_.nodeOf(before);
        if (was && was->lookups == 0) continue;  // the kernel has no entry for it
        if (was && !now && was->place == Node::Place::gone)
            report_.push_back(EntryDeleted{folder->inode, before, name});
        else
            report_.push_back(EntryChanged{folder->inode, name});
    }
}

std::vector<Invalidation> TreeChange::report() {
    reportNames();
    for (const auto& [inode, data] : changed_) {
        const Node* file = data ? tree_.nodeOf(inode) : nullptr;
        // By its name it is found anew, and with it the size by which the kernel ends a read.
        if (file && !file->isFolder() && file->parent)
            report_.push_back(EntryChanged{file->parent->inode, file->shownName()});
        report_.push_back(InodeChanged{inode, data});
    }
    return std::move(report_);
}

}  // namespace vorlinden::mount
