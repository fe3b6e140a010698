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

Attributes attributesOf(const Node& node, Timestamp otherwise) {
    Timestamp modified = node.contentModificationDate.value_or(otherwise);
    if (node.folder && node.folder->listingChanged)
        modified = std::max(modified, *node.folder->listingChanged);
    const bool isGone = node.place == Node::Place::gone;
    return {node.inode, node.isFolder(), node.size(), modified, isGone ? 0U : 1U};
}

// The name too: who finds the file by it is answered with the size.
std::vector<Invalidation> sizeChanged(const Node& node) {
    std::vector<Invalidation> result;
    if (node.parent) result.push_back(EntryChanged{node.parent->inode, node.shownName()});
    result.push_back(InodeChanged{node.inode, false});
    return result;
}

bool lacksSize(const Attributes& attributes) {
    return !attributes.isFolder && !attributes.size;
}

}  // namespace

Domain::State::State(platform::System theSystem, fp::Domain theDomain, DomainSurroundings around)
    : system(std::move(theSystem)),
      domain(std::move(theDomain)),
      surroundings(std::move(around)),
      started(system.clock->now()),
      tree(rootItem()) {}

Domain::Domain(platform::System system, fp::Domain domain, DomainSurroundings surroundings)
    : state_(std::make_unique<State>(std::move(system), std::move(domain), std::move(surroundings))) {}

Domain::~Domain() {
    stop();
}

// False if it is other content than the inode shows.
bool Domain::State::takeIn(Inode inode, const Content& content) {
    const Node* node = tree.find(inode);
    if (!node || node->place == Node::Place::gone || !hasContentOf(*node, content.item())) return false;
    if (tree.setContentSize(inode, content.size())) surroundings.invalidate(sizeChanged(*node));
    return true;
}

void Domain::setContentStore(std::shared_ptr<ContentStore> store) {
    state_->contents = std::move(store);
}

void Domain::start() {
    const std::string signal =
        fp::enumeratorSignalName(state_->domain.identifier, fp::workingSetContainerItemIdentifier);
    state_->registration =
        state_->system.notifications->listen(signal, [state = state_.get()] { state->wakeUp(); });
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
    state_->jobs.clear();
}

std::shared_ptr<ReplicatedExtension> Domain::extension() {
    return state_->currentExtension();
}

std::optional<int> Domain::listingState(Inode folder) {
    std::lock_guard hold(state_->mutex);
    const Node* node = state_->tree.find(folder);
    if (!node) return ESTALE;
    if (!node->isFolder()) return ENOTDIR;
    const bool isEmptyForGood = node->place == Node::Place::gone;  // whoever stands in it
    return node->folder->listed || isEmptyForGood ? std::optional(0) : std::nullopt;
}

void Domain::list(Inode folder, std::function<void(int)> then) {
    state_->enqueue(
        [state = state_.get(), folder, then = std::move(then)] { then(state->listFolder(folder)); });
}

void Domain::refresh(std::function<void()> then) {
    state_->enqueue([state = state_.get(), then = std::move(then)] {
        state->bringUpToDate();
        then();
    });
}

Outcome<Attributes> Domain::lookup(Inode folder, std::string_view name) {
    std::lock_guard hold(state_->mutex);
    const Node* parent = state_->tree.find(folder);
    if (!parent) return ESTALE;
    const Node* child = parent->isFolder() ? state_->tree.child(*parent, name) : nullptr;
    if (!child) return ENOENT;
    Attributes attributes = attributesOf(*child, state_->started);
    state_->tree.refer(child->inode);
    if (lacksSize(attributes)) attributes.size = state_->contents->knownSize(child->item());
    if (!attributes.isFolder) state_->tree.answeredWithSize(child->inode, attributes.size.value_or(0));
    return attributes;
}

Outcome<Attributes> Domain::attributes(Inode inode) {
    std::lock_guard hold(state_->mutex);
    const Node* node = state_->tree.find(inode);
    if (!node) return ESTALE;
    Attributes attributes = attributesOf(*node, state_->started);
    attributes.inode = inode;  // as the kernel knows it, also when another took its place
    if (lacksSize(attributes)) attributes.size = state_->contents->knownSize(node->item());
    return attributes;
}

Inode Domain::parent(Inode folder) {
    std::lock_guard hold(state_->mutex);
    const Node* node = state_->tree.find(folder);
    return node && node->parent ? node->parent->inode : rootInode;
}

std::vector<DirectoryEntry> Domain::entries(Inode folder, Inode after, std::size_t count, bool refer) {
    std::vector<DirectoryEntry> result;
    std::lock_guard hold(state_->mutex);
    const Node* node = state_->tree.find(folder);
    if (!node || !node->isFolder()) return {};
    state_->tree.walked(node->inode);
    for (const Node* child : state_->tree.children(*node, after, count)) {
        Attributes attributes = attributesOf(*child, state_->started);
        if (refer && lacksSize(attributes)) attributes.size = state_->contents->knownSize(child->item());
        if (refer && !lacksSize(attributes)) state_->tree.refer(child->inode);
        if (refer && attributes.size) state_->tree.answeredWithSize(child->inode, *attributes.size);
        result.push_back({child->shownName(), attributes});
    }
    return result;
}

void Domain::forget(Inode inode, std::uint64_t count) {
    std::lock_guard hold(state_->mutex);
    state_->tree.forget(inode, count);
}

Outcome<Item> Domain::fileItem(Inode inode) {
    std::lock_guard hold(state_->mutex);
    const Node* node = state_->tree.find(inode);
    if (!node || node->place == Node::Place::gone) return ESTALE;
    if (node->isFolder()) return EISDIR;
    return node->item();
}

void Domain::contentWanted(Inode inode) {
    std::vector<Item> next;
    {
        std::lock_guard hold(state_->mutex);
        next = state_->tree.comingNext(inode);
    }
    if (!next.empty()) state_->contents->fetchAhead(std::move(next));
}

bool Domain::contentArrived(Inode inode, const Content& content) {
    std::lock_guard hold(state_->mutex);
    return state_->takeIn(inode, content);
}

Opening Domain::open(Inode inode, const std::shared_ptr<const Content>& content) {
    std::lock_guard hold(state_->mutex);
    if (!state_->takeIn(inode, *content)) return Opening::moved;
    auto& tree = state_->tree;
    tree.opened(inode);
    switch (tree.kernelSize(inode, content->size())) {
        case KernelSize::unsure:
            return Opening::besideTheKernel;
        case KernelSize::tooSmall:
            state_->surroundings.fill(inode, content);
            tree.filled(inode, content->size());
            return Opening::throughTheKernel;
        case KernelSize::right:
            return Opening::throughTheKernel;
    }
    return Opening::besideTheKernel;
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
