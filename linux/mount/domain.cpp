#include "linux/mount/domain.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "linux/mount/domain_state.h"
#include "platform/fileprovider/manager.h"

namespace vorlinden::mount {

namespace {

namespace fp = platform::fileprovider;

// The root is there whatever the extension says: a folder must stand at the mount point, signed in or not.
Item rootItem() {
    Item root;
    root.itemIdentifier = fp::rootContainerItemIdentifier;
    root.parentItemIdentifier = fp::rootContainerItemIdentifier;
    root.contentType = platform::FileType::folder();
    root.capabilities = fp::allowsReading | fp::allowsWriting;
    return root;
}

Timestamp modifiedAt(const Node& node) {
    Timestamp result = node.contentModificationDate.value_or(Timestamp{});
    if (node.folder && node.folder->listingChanged) result = std::max(result, *node.folder->listingChanged);
    return result;
}

Attributes attributesOf(const Node& node) {
    return {node.inode, node.isFolder(), node.size(), modifiedAt(node)};
}

bool lacksSize(const Attributes& attributes) {
    return !attributes.isFolder && !attributes.size;
}

}  // namespace

Domain::State::State(platform::System theSystem, fp::Domain theDomain, DomainSurroundings around)
    : system(std::move(theSystem)),
      domain(std::move(theDomain)),
      surroundings(std::move(around)),
      tree(rootItem()) {}

Domain::Domain(platform::System system, fp::Domain domain, DomainSurroundings surroundings)
    : state_(std::make_unique<State>(std::move(system), std::move(domain), std::move(surroundings))) {}

Domain::~Domain() {
    stop();
}

void Domain::setContentStore(std::shared_ptr<ContentStore> store) {
    state_->contents = std::move(store);
}

void Domain::start() {
    const std::string signal =
        fp::enumeratorSignalName(state_->domain.identifier, fp::workingSetContainerItemIdentifier);
    state_->registration =
        state_->system.notifications->listen(signal, [state = state_.get()] { state->wakeUp(); });
    state_->makeExtensionIfMissing();
    state_->wakeUp();  // for what was signalled while nobody listened
    state_->thread = std::thread([state = state_.get()] { state->follow(); });
}

void Domain::stop() {
    state_->registration.reset();
    {
        std::lock_guard hold(state_->mutex);
        state_->stopping = true;
    }
    state_->changed.notify_one();
    if (state_->thread.joinable()) state_->thread.join();
}

std::shared_ptr<ReplicatedExtension> Domain::extension() {
    return state_->currentExtension();
}

int Domain::prepareListing(Inode folder) {
    ItemIdentifier container;
    {
        std::lock_guard hold(state_->mutex);
        const Node* node = state_->tree.find(folder);
        if (!node) return ESTALE;
        if (!node->isFolder()) return ENOTDIR;
        if (node->folder->listed) return 0;
        if (node->place == Node::Place::gone) return 0;  // empty, whoever stands in it
        container = node->identifier;
    }
    return state_->listFolder(container);
}

Outcome<Attributes> Domain::lookup(Inode folder, std::string_view name) {
    if (const int code = prepareListing(folder)) return code;
    Attributes attributes;
    std::optional<Item> unsized;
    {
        std::lock_guard hold(state_->mutex);
        const Node* parent = state_->tree.find(folder);
        const Node* child = parent && parent->isFolder() ? state_->tree.child(*parent, name) : nullptr;
        if (!child) return ENOENT;
        attributes = attributesOf(*child);
        state_->tree.refer(child->inode);
        if (lacksSize(attributes)) unsized = child->item();
    }
    if (unsized) attributes.size = state_->contents->knownSize(*unsized);
    return attributes;
}

Outcome<Attributes> Domain::attributes(Inode inode) {
    Attributes attributes;
    std::optional<Item> unsized;
    {
        std::lock_guard hold(state_->mutex);
        const Node* node = state_->tree.find(inode);
        if (!node) return ESTALE;
        attributes = attributesOf(*node);
        if (lacksSize(attributes)) unsized = node->item();
    }
    attributes.inode = inode;  // as the kernel knows it, also when another took its place
    if (unsized) attributes.size = state_->contents->knownSize(*unsized);
    return attributes;
}

Inode Domain::parent(Inode folder) {
    std::lock_guard hold(state_->mutex);
    const Node* node = state_->tree.find(folder);
    return node && node->parent ? node->parent->inode : rootInode;
}

std::vector<DirectoryEntry> Domain::entries(Inode folder, Inode after, std::size_t count, bool refer) {
    std::vector<DirectoryEntry> result;
    std::vector<std::pair<std::size_t, Item>> unsized;
    {
        std::lock_guard hold(state_->mutex);
        const Node* node = state_->tree.find(folder);
        if (!node || !node->isFolder()) return {};
        for (const Node* child : state_->tree.children(*node, after, count)) {
            result.push_back({child->shownName(), attributesOf(*child)});
            if (lacksSize(result.back().attributes)) unsized.emplace_back(result.size() - 1, child->item());
        }
    }
    if (!refer) return result;
    for (const auto& [index, item] : unsized)
        result[index].attributes.size = state_->contents->knownSize(item);
    std::lock_guard hold(state_->mutex);
    for (const DirectoryEntry& entry : result)
        if (!lacksSize(entry.attributes)) state_->tree.refer(entry.attributes.inode);
    return result;
}

void Domain::forget(Inode inode, std::uint64_t count) {
    std::lock_guard hold(state_->mutex);
    state_->tree.forget(inode, count);
}

Outcome<Item> Domain::fileItem(Inode inode) {
    std::lock_guard hold(state_->mutex);
    const Node* node = state_->tree.find(inode);
    if (!node) return ESTALE;
    if (node->isFolder()) return EISDIR;
    return node->item();
}

void Domain::contentWanted(Inode inode) {
    std::vector<Item> ahead;
    {
        std::lock_guard hold(state_->mutex);
        const Node* node = state_->tree.find(inode);
        if (!node || !node->parent || !state_->tree.demandsDetail(node->parent->inode)) return;
        for (const Node* sibling : node->parent->folder->byInode)
            if (!sibling->isFolder() && !sibling->size()) ahead.push_back(sibling->item());
    }
    state_->contents->fetchAhead(std::move(ahead));
}

void Domain::contentArrived(Inode inode, const Content& content) {
    {
        std::lock_guard hold(state_->mutex);
        const Node* node = state_->tree.find(inode);
        if (!node) return;
        if (hasContentOf(*node, content.item())) return state_->tree.setContentSize(inode, content.size());
    }
    state_->wakeUp();  // the item has moved on, and nobody has told us yet
}

void Domain::opened(Inode inode) {
    std::lock_guard hold(state_->mutex);
    state_->tree.opened(inode);
}

void Domain::closed(Inode inode) {
    std::lock_guard hold(state_->mutex);
    state_->tree.closed(inode);
}

std::string Domain::pathOf(const ItemIdentifier& identifier) {
    std::lock_guard hold(state_->mutex);
    const Node* node = state_->tree.findItem(identifier);
    return node ? state_->tree.path(*node) : identifier;
}

}  // namespace vorlinden::mount
