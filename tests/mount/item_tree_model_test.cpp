// Random histories of a catalogue, seen through the tree by a kernel that caches everything it is told and
// forgets only what it is told to forget.
#include <algorithm>
#include <map>
#include <set>
#include <string>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "linux/mount/item_tree.h"
#include "tests/mount/fake_catalogue.h"

namespace vorlinden::tests {
namespace {

using namespace mount;

template <class... Cases>
struct Overloaded : Cases... {
    using Cases::operator()...;
};

class World {
 public:
    World() {
        catalogue.addBrain("b");
        catalogue.addBrain("c");
        lookups_[rootInode] = 1;
    }

    // A random act of the catalogue.
    void change() {
        const auto path = anyPath();
        switch (*rc::gen::inRange(0, 12)) {
            case 0:
            case 1:
                catalogue.makeFile(path);
                break;
            case 2:
                catalogue.makeFolder(path);
                break;
            case 3:
            case 4:
                catalogue.move(path, anyPath());
                break;
            case 5:
                if (catalogue.has(path)) catalogue.remove(path);
                break;
            case 6:
                if (catalogue.has(path)) catalogue.removeRowOnly(path);
                break;
            case 7:
                if (catalogue.has(path)) catalogue.edit(path);
                break;
            case 8:
                if (catalogue.has(path) && !catalogue.at(path).folder) catalogue.replaceFile(path);
                break;
            case 9:
                catalogue.reset(*rc::gen::element<std::string>("b", "c"));
                break;
            case 10:
                catalogue.renameBrain("b", *rc::gen::element<std::string>("b", "team", "c"));
                break;
            default:
                if (catalogue.has(path)) catalogue.setError(path, "error " + std::to_string(++errors_));
        }
    }

    // A random act of a program: a walk of a few steps, an open, a close, a forgetting kernel.
    void look() {
        Inode inode = rootInode;
        while (*rc::gen::inRange(0, 5) != 0 && isLivingFolder(inode)) {
            list(inode);
            const auto& folder = *tree.find(inode);
            auto name = *rc::gen::element<std::string>("a", "d", "x", "b", "c", "team");
            const auto all = tree.children(folder, 0, 1000);
            if (!all.empty() && *rc::gen::arbitrary<bool>())
                name = all[*rc::gen::inRange<std::size_t>(0, all.size())]->shownName();
            const Inode child = lookUp(inode, name);
            if (child == 0) break;
            inode = child;
        }
        const Node& node = *tree.find(inode);
        if (!node.isFolder() && node.place == Node::Place::shown && !open_.contains(inode)) {
            tree.opened(inode);
            open_[inode] = node.contentVersion;
        }
        if (!open_.empty() && *rc::gen::inRange(0, 3) == 0) {
            tree.closed(open_.begin()->first);
            open_.erase(open_.begin());
        }
        if (*rc::gen::inRange(0, 4) == 0) forgetLeaves();
    }

    void sync() {
        std::set<ItemIdentifier> shownBefore;
        for (const auto& [path, row] : catalogue.rows())
            if (const Node* node = tree.findItem(row.identifier); node && node->place == Node::Place::shown)
                shownBefore.insert(row.identifier);
        auto told = bring(tree, catalogue, catalogue.changesSince(anchor_));
        anchor_ = catalogue.anchor();
        if (*rc::gen::inRange(0, 6) == 0) listAnew(told);
        for (const auto& one : told)
            hear(one);
        checkShown(shownBefore);
        checkKernel();
    }

 private:
    std::string anyPath() {
        std::string path = *rc::gen::element<std::string>("b", "c");
        const int depth = *rc::gen::inRange(1, 4);
        for (int i = 0; i < depth; ++i)
            path += "/" + *rc::gen::element<std::string>("a", "d", "x");
        return path;
    }

    bool isLivingFolder(Inode inode) {
        const Node* node = tree.find(inode);
        return node && node->isFolder() && node->place != Node::Place::gone;
    }

    // What a change set says without the whole batch: the anchor expired and everything is listed again.
    void listAnew(std::vector<Invalidation>& told) {
        ChangeBatch batch;
        for (const auto& container : tree.listedContainers())
            batch.answers.push_back(ChangeBatch::Listing{container, catalogue.list(container)});
        const auto more = bring(tree, catalogue, batch);
        told.insert(told.end(), more.begin(), more.end());
    }

    void list(Inode inode) {
        const Node& folder = *tree.find(inode);
        if (folder.folder->listed) return;
        ChangeBatch batch;
        batch.answers.push_back(ChangeBatch::Listing{folder.identifier, catalogue.list(folder.identifier)});
        for (const auto& one : bring(tree, catalogue, batch))
            hear(one);
    }

    // The kernel asks, and remembers the answer.
    Inode lookUp(Inode folder, const std::string& name) {
        const auto cached = entries_.find({folder, name});
        if (cached != entries_.end()) return cached->second;
        const Node* child = tree.child(*tree.find(folder), name);
        const Inode inode = child ? child->inode : 0;
        entries_[{folder, name}] = inode;
        if (!child) return 0;
        attributes_.insert_or_assign(inode, child->item());
        tree.refer(inode);
        ++lookups_[inode];
        return inode;
    }

    void hear(const Invalidation& told) {
        std::visit(Overloaded{
                       [this](const EntryChanged& entry) {
                           entries_.erase({entry.folder, entry.name});
                       },
                       [this](const EntryDeleted& entry) {
                           entries_.erase({entry.folder, entry.name});
                       },
                       [this](const InodeChanged& node) { attributes_.erase(node.inode); },
                   },
                   told);
    }

    void forgetLeaves() {
        for (auto next = lookups_.begin(); next != lookups_.end();) {
            const auto [inode, count] = *next;
            const bool pinned = inode == rootInode || open_.contains(inode) || holdsEntry(inode);
            if (pinned) {
                ++next;
                continue;
            }
            std::erase_if(entries_, [inode](const auto& entry) {
                return entry.first.first == inode || entry.second == inode;
            });
            attributes_.erase(inode);
            tree.forget(inode, count);
            next = lookups_.erase(next);
        }
    }

    bool holdsEntry(Inode folder) const {
        return std::any_of(entries_.begin(), entries_.end(), [folder](const auto& entry) {
            return entry.first.first == folder && entry.second != 0;
        });
    }

    // What hangs under a file hangs under the brain.
    ItemIdentifier shownIn(const Item& item) {
        const auto parent = catalogue.find(item.parentItemIdentifier);
        if (parent && !parent->contentType.isDirectory())
            return "brain:" + catalogue.pathOf(item.itemIdentifier)->substr(0, 1);
        return item.parentItemIdentifier;
    }

    void checkItem(const Node& node) {
        auto expected = *catalogue.find(node.identifier);
        expected.parentItemIdentifier = shownIn(expected);
        RC_ASSERT(node.item() == expected);
    }

    // Every listed folder shows what the catalogue lists there, and beyond that only orphans of its own;
    // whoever was shown and still lives in a folder that is shown is there.
    void checkShown(const std::set<ItemIdentifier>& shownBefore) {
        for (const auto& container : tree.listedContainers()) {
            const Node& folder = *tree.findItem(container);
            std::set<ItemIdentifier> expected, strays;
            for (const auto& item : catalogue.list(container))
                expected.insert(item.itemIdentifier);
            for (const Node* child : tree.children(folder, 0, 100000)) {
                if (expected.erase(child->identifier) == 0) strays.insert(child->identifier);
                checkItem(*child);
                RC_ASSERT(tree.child(folder, child->shownName()) == child);
            }
            RC_ASSERT(expected.empty());
            for (const auto& stray : strays)
                RC_ASSERT(shownIn(*catalogue.find(stray)) == container);
        }
        for (const auto& identifier : shownBefore) {
            const auto item = catalogue.find(identifier);
            const Node* parent = item ? tree.findItem(shownIn(*item)) : nullptr;
            if (!parent || !parent->folder->listed) continue;
            if (parent->place != Node::Place::shown) continue;
            RC_ASSERT(tree.findItem(identifier) != nullptr);
            RC_ASSERT(tree.findItem(identifier)->parent == parent);
        }
    }

    // Nothing that the kernel still remembers is wrong, and everybody who holds a file has his bytes.
    void checkKernel() {
        for (const auto& [place, inode] : entries_) {
            const Node* folder = tree.find(place.first);
            RC_ASSERT(folder != nullptr);
            if (folder->inode != place.first || folder->place == Node::Place::gone) continue;
            const Node* child = tree.child(*folder, place.second);
            RC_ASSERT((child ? child->inode : 0) == inode);
        }
        for (const auto& [inode, item] : attributes_) {
            const Node* node = tree.find(inode);
            RC_ASSERT(node != nullptr);
            if (node->inode == inode && node->place == Node::Place::shown) RC_ASSERT(node->item() == item);
        }
        for (const auto& [inode, version] : open_)
            RC_ASSERT(tree.find(inode)->contentVersion == version);
    }

    FakeCatalogue catalogue;
    ItemTree tree{FakeCatalogue::root()};
    std::int64_t anchor_ = 0;
    int errors_ = 0;
    std::map<Inode, std::uint64_t> lookups_;
    std::map<std::pair<Inode, std::string>, Inode> entries_;
    std::map<Inode, Item> attributes_;
    std::map<Inode, std::string> open_;
};

RC_GTEST_PROP(ItemTreeModel, ShowsTheCatalogueAndLeavesNothingStaleInTheKernel, ()) {
    World world;
    const int rounds = *rc::gen::inRange(1, 12);
    for (int round = 0; round < rounds; ++round) {
        const int changes = *rc::gen::inRange(0, 8);
        for (int i = 0; i < changes; ++i)
            world.change();
        const int looks = *rc::gen::inRange(0, 4);
        world.sync();
        for (int i = 0; i < looks; ++i)
            world.look();
    }
    world.sync();
}

}  // namespace
}  // namespace vorlinden::tests
