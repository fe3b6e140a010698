// One batch on its way into the tree. Part of ItemTree; nobody else makes one.
#pragma once

#include <map>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "linux/mount/change_plan.h"
#include "linux/mount/item_tree.h"

namespace vorlinden::mount {

// Everybody whom the batch touches first leaves the folder, then is bound to the item that the batch gives,
// and then enters the folder of that item. So names may collide on the way and nothing depends on an order.
// Folders are compared before and after, which gives what the kernel must be told.
class TreeChange {
 public:
    TreeChange(ItemTree& tree, const ChangeBatch& batch, Timestamp now);
    // To be answered first, unless they are empty.
    const Questions& questions() const { return plan_.questions; }
    std::vector<Invalidation> apply();

 private:
    void leaveFolders();
    void takeOut(Node& node);
    bool staysInPlace(const Node& node, const Fate& fate) const;

    void bindSuccessors();
    void buryGone();
    void emptyOut(Node& folder);
    void bindKnown();
    void bindKnown(Node& node, const Fate& fate);
    void vouchFor(Node& node, const Fate& fate);
    void makeNew();
    void arrive(Node& node) { arrivals_.push_back(&node); }
    void changed(const Node& node, bool data);

    void markListed();
    void enterFolders();
    void enter(Node& folder, const std::vector<Node*>& arrivals);
    bool enterPlainly(Node& folder, const std::vector<Node*>& arrivals);
    void enterWithNewNames(Node& folder);
    void attach(Node& node, Node& folder, std::string shownName);

    void stamp(Folder& folder) const;
    void reportNames();
    std::vector<Invalidation> report();

    ItemTree& tree_;
    const Timestamp now_;
    const ChangePlan plan_;

    // What a folder showed under a name before, 0 for nothing; folders and names in the order touched.
    struct Before {
        Node* folder;
        std::string name;
        Inode inode;
    };
    std::vector<Before> before_;
    std::unordered_map<Node*, std::unordered_set<std::string>> touched_;
    std::unordered_set<const Node*> newlyListed_;
    std::unordered_set<Node*> toRename_;  // folders whose substitutes must be thought over

    std::vector<Node*> arrivals_;
    std::vector<Inode> loose_;  // may be of no use to anybody now
    std::map<Inode, bool> changed_;
    std::vector<Invalidation> report_;
};

}  // namespace vorlinden::mount
