// The reconciler against a model that holds the tree in a map.
#include <algorithm>
#include <array>
#include <map>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "synckit/apply/reconciler.h"
#include "tests/support/catalogue.h"
#include "tests/support/seeded_random.h"

namespace vorlinden {

// How RapidCheck prints a counterexample.
static void showValue(const Op& op, std::ostream& os) {
    const auto* move = std::get_if<Op::Move>(&op.value);
    constexpr std::array names{"create ", "update ", "move ", "mkdir ", "delete "};
    os << names[op.value.index()] << op.path() << (move ? " to " + move->newPath : "");
}

namespace {

const UUID brain = tests::numberedUUID(1);

struct ModelNode {
    bool isDirectory = false;
    std::string title;
    NodeKind kind = NodeKind::text;
    std::int64_t version = 0;
    Timestamp updatedAt{};
    int file = 0;  // tells files apart; 0 for a folder
};

// What the feed's ops mean to a tree, said as plainly as can be.
class Model {
 public:
    std::map<std::string, ModelNode> nodes;
    std::vector<int> downloads;  // files
    Timestamp now{};

    void operator()(const Op::Create& op) {
        if (isJunk(op.path)) return;
        const auto kind = op.nodeKind.value_or(NodeKind::text);
        if (has(op.path)) {
            const auto& there = nodes.at(op.path);
            if (there.isDirectory && op.isDirectory) return adoptTitle(op.path, op.title);
            if (!there.isDirectory && !op.isDirectory && there.kind == kind && there.title == op.title)
                return refresh(op.path, kind);
        }
        removeTree(op.path);
        insert(op.path, op.title, op.isDirectory, kind);
    }
    void operator()(const Op::Mkdir& op) {
        if (isJunk(op.path)) return;
        if (isFolder(op.path)) return adoptTitle(op.path, op.title);
        removeTree(op.path);
        insert(op.path, op.title, true, NodeKind::text);
    }
    void operator()(const Op::Update& op) {
        if (isJunk(op.path)) return;
        const auto kind = op.nodeKind.value_or(NodeKind::text);
        if (!has(op.path)) return insert(op.path, op.title.value_or(nameOf(op.path)), false, kind);
        if (op.title) nodes.at(op.path).title = *op.title;
        if (op.bodyChanged && !isFolder(op.path)) refresh(op.path, kind);
    }
    void operator()(const Op::Delete& op) { removeTree(op.path); }
    void operator()(const Op::Move& op) {
        if (isJunk(op.path)) return;
        if (isJunk(op.newPath)) return removeTree(op.path);
        if (op.path == op.newPath || op.newPath.starts_with(op.path + "/") || !has(op.path)) return;
        const auto moved = takeTree(op.path);
        removeTree(op.newPath);
        makeAncestors(op.newPath);
        for (auto [path, node] : moved) {
            const auto newPath = op.newPath + path.substr(op.path.size());
            if (node.isDirectory && node.title == nameOf(path)) node.title = nameOf(newPath);
            nodes[newPath] = node;
        }
    }

 private:
    static std::string nameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }
    static bool isJunk(const std::string& path) { return nameOf(path) == ".gitkeep"; }
    bool has(const std::string& path) const { return nodes.contains(path); }
    bool isFolder(const std::string& path) const { return has(path) && nodes.at(path).isDirectory; }

    std::map<std::string, ModelNode> takeTree(const std::string& top) {
        std::map<std::string, ModelNode> taken;
        for (const auto& [path, node] : nodes)
            if (path == top || path.starts_with(top + "/")) taken[path] = node;
        for (const auto& [path, node] : taken)
            nodes.erase(path);
        return taken;
    }
    void removeTree(const std::string& top) {
        for (const auto& [path, node] : takeTree(top))
            std::erase(downloads, node.file);
    }
    void makeAncestors(const std::string& path) {
        for (std::size_t i = 0; i < path.size(); ++i)
            if (const auto above = path.substr(0, i); path[i] == '/' && !isFolder(above)) {
                removeTree(above);
                nodes[above] = {true, nameOf(above), NodeKind::text, 0, now, 0};
            }
    }
    void insert(const std::string& path, const std::string& title, bool isDirectory, NodeKind kind) {
        makeAncestors(path);
        nodes[path] = {isDirectory,         title, isDirectory ? NodeKind::text : kind,
                       isDirectory ? 0 : 1, now,   isDirectory ? 0 : ++files_};
        if (!isDirectory) downloads.push_back(files_);
    }
    void refresh(const std::string& path, NodeKind kind) {
        auto& node = nodes.at(path);
        node.kind = kind;
        node.version += 1;
        node.updatedAt = now;
        if (std::ranges::find(downloads, node.file) == downloads.end()) downloads.push_back(node.file);
    }
    void adoptTitle(const std::string& path, const std::string& title) {
        if (!title.empty()) nodes.at(path).title = title;
    }

    int files_ = 0;
};

rc::Gen<std::string> anyPath() {
    const auto piece =
        rc::gen::weightedElement<std::string>({{6, "a"}, {6, "b"}, {2, "ab"}, {1, ".gitkeep"}});
    return rc::gen::map(rc::gen::tuple(rc::gen::inRange<std::size_t>(1, 4), piece, piece, piece),
                        [](const auto& parts) {
                            const auto& [depth, a, b, c] = parts;
                            return depth == 1 ? a : depth == 2 ? a + "/" + b : a + "/" + b + "/" + c;
                        });
}

rc::Gen<std::string> anyTitle() {
    return rc::gen::element<std::string>("", "a", "b", "T");
}

rc::Gen<std::optional<NodeKind>> anyKind() {
    return rc::gen::element<std::optional<NodeKind>>(std::nullopt, NodeKind::text, NodeKind::blob);
}

// A move onto an ancestor of its source is left out: no server lets one through, since the ancestor is there.
Op moveOf(const std::string& from, const std::string& to) {
    if (from.starts_with(to + "/")) return {Op::Delete{from}};
    return {Op::Move{from, to}};
}

rc::Gen<Op> anyOp() {
    return rc::gen::map(rc::gen::tuple(rc::gen::inRange(0, 12), anyPath(), anyPath(), anyTitle(), anyKind(),
                                       rc::gen::arbitrary<bool>()),
                        [](const auto& parts) -> Op {
                            const auto& [which, path, other, title, kind, flag] = parts;
                            if (which < 4) return {Op::Create{path, title, {}, flag, kind}};
                            if (which < 6) return {Op::Update{path, std::nullopt, {}, flag, kind}};
                            if (which < 7) return {Op::Update{path, title, {}, flag, kind}};
                            if (which < 10) return moveOf(path, other);
                            if (which < 11) return {Op::Mkdir{path, title}};
                            return {Op::Delete{path}};
                        });
}

void compare(const Model& model, MetadataStore& store, std::map<int, std::string>& idOfFile) {
    const auto rows = store.allNodes(brain);
    RC_ASSERT(rows.size() == model.nodes.size());
    for (const auto& row : rows) {
        RC_ASSERT(model.nodes.contains(row.path));
        const auto& node = model.nodes.at(row.path);
        const auto [id, isNew] = idOfFile.try_emplace(node.file, row.nodeId);
        const auto expectedId = node.isDirectory ? "dir:" + row.path : id->second;
        RC_ASSERT(row == (NodeRecord{brain, expectedId, row.path, node.title, node.isDirectory, node.kind,
                                     std::nullopt, std::nullopt, node.updatedAt, node.version, false,
                                     std::nullopt}));
    }
}

RC_GTEST_PROP(Reconciler, DoesToTheCatalogueWhatTheFeedDoesToATree, ()) {
    MetadataStore store(":memory:");
    store.upsertBrain(tests::brainRecord(brain));
    tests::SeededRandom random;
    const ConflictHandler never = [](const auto&, const auto&, const auto&) -> ConflictResolution {
        RC_FAIL("there is no journal to collide with");
    };
    Model model;
    std::map<int, std::string> idOfFile;

    const auto batch = rc::gen::container<std::vector<Op>>(anyOp());
    const auto batches = *rc::gen::scale(0.2, rc::gen::container<std::vector<std::vector<Op>>>(batch));
    for (std::size_t i = 0; i < batches.size(); ++i) {
        model.now = tests::instant(static_cast<std::int64_t>(i));
        model.downloads.clear();
        for (const auto& op : batches[i])
            std::visit(model, op.value);

        const auto before = store.currentAnchor();
        const auto cursor = std::to_string(i);
        const auto result = Reconciler::applyFeedEntries(random, {{cursor, model.now, {}, batches[i]}}, brain,
                                                         cursor, store, never);
        compare(model, store, idOfFile);
        RC_ASSERT(store.cursor(brain) == cursor);
        RC_ASSERT(result.changedAnchors == (store.currentAnchor() > before));

        std::vector<std::string> downloaded;
        for (const auto& request : result.downloads) {
            const auto row = store.nodeById(brain, request.nodeId);
            RC_ASSERT(request == (DownloadRequest{brain, row->nodeId, row->path, row->kind,
                                                  row->contentVersion, cursor}));
            downloaded.push_back(request.nodeId);
        }
        std::vector<std::string> expected;
        for (const auto file : model.downloads)
            expected.push_back(idOfFile.at(file));
        RC_ASSERT(downloaded == expected);
    }
}

}  // namespace
}  // namespace vorlinden
