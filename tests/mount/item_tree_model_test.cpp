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

// One act, as numbers that World reads modulo what there is: such a history shrinks well.
struct Act {
    unsigned kind = 0, path = 0, other = 0;
};

void showValue(const Act& act, std::ostream& out) {
    out << "{" << act.kind << ", " << act.path << ", " << act.other << "}";
}

class World {
 public:
    World() {
        catalogue.addBrain("b");
        catalogue.addBrain("c");
        lookups_[rootInode] = 1;
    }

    void perform(const Act& act) {
        if (act.kind < 12) return change(act.kind, pathOf(act.path), pathOf(act.other));
        if (act.kind < 16) return look(act.path, act.other);
        if (act.kind < 17) return close();
        if (act.kind < 18) return forgetLeaves();
        sync(act.other % 6 == 0);
    }

    void sync(bool anew) {
        std::set<ItemIdentifier> shownBefore;
        for (const auto& [path, row] : catalogue.rows())
            if (const Node* node = tree.findItem(row.identifier); node && node->place == Node::Place::shown)
                shownBefore.insert(row.identifier);
        auto told = bring(tree, catalogue, catalogue.changesSince(anchor_));
        anchor_ = catalogue.anchor();
        if (anew) listAnew(told);
        for (const auto& one : told)
            hear(one);
        checkShown(shownBefore);
        checkKernel();
    }

 private:
    static std::string pathOf(unsigned number) {
        static const std::vector<std::string> names{"a", "d", "x"};
        std::string path = number % 2 == 0 ? "b" : "c";
        unsigned left = number / 2 / 3;
        for (unsigned depth = 0; depth < 1 + number / 2 % 3; ++depth, left /= 3)
            path += "/" + names[left % 3];
        return path;
    }

    void change(unsigned kind, const std::string& path, const std::string& other) {
        const bool isThere = catalogue.has(path);
        switch (kind) {
            case 0:
            case 1:
                catalogue.makeFile(path);
                break;
            case 2:
                catalogue.makeFolder(path);
                break;
            case 3:
            case 4:
                catalogue.move(path, other);
                break;
            case 5:
                if (isThere) catalogue.remove(path);
                break;
            case 6:
                if (isThere) catalogue.removeRowOnly(path);
                break;
            case 7:
                if (isThere) catalogue.edit(path);
                break;
            case 8:
                if (isThere && !catalogue.at(path).folder) catalogue.replaceFile(path);
                break;
            case 9:
                catalogue.reset(path.substr(0, 1));
                break;
            case 10:
                catalogue.renameBrain("b", other.back() == 'a' ? "team" : other.substr(0, 1));
                break;
            default:
                if (isThere) catalogue.setError(path, "error " + std::to_string(++errors_));
        }
    }

    // A program walks a few steps, to children or to names that may not be there, and opens the file it
    // meets.
    void look(unsigned steps, unsigned choices) {
        static const std::vector<std::string> names{"a", "d", "x", "b", "c", "team"};
        Inode inode = rootInode;
        for (; steps != 0 && isLivingFolder(inode); steps /= 2, choices /= 2) {
            list(inode);
            const auto all = tree.children(*tree.find(inode), 0, 1000);
            const bool toChild = !all.empty() && steps % 2 == 0;
            const Inode child = lookUp(
                inode, toChild ? all[choices % all.size()]->shownName() : names[choices % names.size()]);
            if (child == 0) return;
            inode = child;
        }
        const Node& node = *tree.find(inode);
        if (node.isFolder() || node.place != Node::Place::shown || open_.contains(inode)) return;
        tree.opened(inode);
        open_[inode] = node.contentVersion;
    }

    void close() {
        if (open_.empty()) return;
        tree.closed(open_.begin()->first);
        open_.erase(open_.begin());
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
        auto expected = catalogue.find(node.identifier).value();
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
                RC_ASSERT(shownIn(catalogue.find(stray).value()) == container);
        }
        for (const auto& identifier : shownBefore) {
            const auto item = catalogue.find(identifier);
            const Node* parent = item ? tree.findItem(shownIn(*item)) : nullptr;
            if (!parent || !parent->folder->listed) continue;
            if (parent->place != Node::Place::shown) continue;
            const Node* shown = tree.findItem(identifier);
            RC_ASSERT(bool(shown && shown->parent == parent));
        }
    }

    // Nothing that the kernel still remembers is wrong, and everybody who holds a file has his bytes.
    void checkKernel() {
        for (const auto& [place, inode] : entries_) {
            const Node* folder = tree.find(place.first);
            RC_ASSERT(bool(folder));
            if (folder->inode != place.first || folder->place == Node::Place::gone) continue;
            const Node* child = tree.child(*folder, place.second);
            RC_ASSERT((child ? child->inode : 0) == inode);
        }
        for (const auto& [inode, item] : attributes_) {
            const Node* node = tree.find(inode);
            RC_ASSERT(bool(node));
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
    const auto anyAct = rc::gen::build<Act>(rc::gen::set(&Act::kind, rc::gen::inRange(0U, 22U)),
                                            rc::gen::set(&Act::path, rc::gen::inRange(0U, 162U)),
                                            rc::gen::set(&Act::other, rc::gen::inRange(0U, 162U)));
    World world;
    for (const Act& act : *rc::gen::container<std::vector<Act>>(anyAct))
        world.perform(act);
    world.sync(false);
}

}  // namespace
}  // namespace vorlinden::tests
