#include "tests/conflicts/random_world.h"

#include <algorithm>
#include <array>
#include <map>
#include <ostream>

#include <rapidcheck.h>

#include "synckit/apply/tree_rules.h"
#include "tests/support/catalogue.h"

namespace vorlinden::tests {

namespace {

const UUID theBrain = numberedUUID(1);
const Timestamp today = *platform::parseTimestamp("2026-03-14T09:26:53.589Z");

template <class T>
T pick(const std::vector<T>& values) {
    return *rc::gen::elementOf(values);
}
int upTo(int limit) {
    return *rc::gen::inRange(0, limit + 1);
}
bool oneIn(int n) {
    return *rc::gen::inRange(0, n) == 0;
}

std::string anyPath(const std::vector<NodeRecord>& rows) {
    return rows.empty() || oneIn(2) ? alphabetPath() : pick(rows).path;
}

Timestamp anyDate() {
    return instant(upTo(3));
}
NodeKind anyKind() {
    return oneIn(3) ? NodeKind::blob : NodeKind::text;
}
std::optional<std::string> anyCursor() {
    return pick<std::optional<std::string>>({std::nullopt, "c0", "c1", "c2", "elsewhere"});
}

// Paths of a tree, each with whether it is a folder, that hold no node under a file.
class TreeBuilder {
 public:
    // False if the path is taken, or if it or a folder above it can't stand there.
    bool add(const std::string& path, bool isDirectory) {
        if (paths_.contains(path)) return false;
        for (const auto ancestor : properAncestors(path)) {
            const auto found = paths_.find(std::string(ancestor));
            if (found != paths_.end() && !found->second) return false;
        }
        const auto below = paths_.lower_bound(path + "/");
        if (!isDirectory && below != paths_.end() && isBelow(below->first, path)) return false;
        for (const auto ancestor : properAncestors(path))
            paths_.emplace(std::string(ancestor), true);
        paths_.emplace(path, isDirectory);
        return true;
    }
    const std::map<std::string, bool>& paths() const { return paths_; }

 private:
    std::map<std::string, bool> paths_;
};

std::string localId(int number) {
    return "local:" + numberedUUID(static_cast<std::uint8_t>(number)).upperText();
}

NodeRecord anyRow(const std::string& path, bool isDirectory, int number) {
    auto row =
        isDirectory ? folderNode(theBrain, path) : fileNode(theBrain, path, "S" + std::to_string(number));
    row.updatedAt = anyDate();
    if (isDirectory) {
        if (oneIn(2)) row.nodeId = "S" + std::to_string(number);
        return row;
    }
    row.kind = anyKind();
    if (row.kind == NodeKind::blob) row.blobHash = pick<std::string>({"h1", "h2"});
    const int origin = upTo(5);
    if (origin <= 2) row.nodeId = localId(number);
    row.localOnly = origin <= 1;
    return row;
}

std::vector<NodeRecord> anyRows() {
    TreeBuilder tree;
    for (int i = upTo(7); i > 0; --i)
        tree.add(alphabetPath(), oneIn(4));
    std::vector<NodeRecord> rows;
    for (const auto& [path, isDirectory] : tree.paths())
        rows.push_back(anyRow(path, isDirectory, static_cast<int>(rows.size()) + 1));
    return rows;
}

// Bytes that are told apart by where they lie; now and then too many of them.
Data anyBytes() {
    const auto owner = std::make_shared<std::uint8_t>(std::uint8_t{1});
    const auto tooMany = static_cast<std::size_t>(UploadPlanner::maxUploadBytes) + 1;
    return {owner, owner.get(), oneIn(8) ? tooMany : 1};
}

Waiting anyWaiting(const std::vector<NodeRecord>& rows) {
    using Kind = PendingChangeKind;
    Waiting waiting;
    auto& change = waiting.change;
    change = pendingChange(
        theBrain,
        pick<Kind>({Kind::create, Kind::update, Kind::update, Kind::move, Kind::remove, Kind::mkdir}),
        anyPath(rows));
    if (change.changeKind == Kind::move) change.fromPath = anyPath(rows);
    change.baseCursor = anyCursor();
    const auto made = std::ranges::find(rows, change.fromPath.value_or(change.path), &NodeRecord::path);
    if (made != rows.end()) change.nodeId = made->nodeId;
    if (change.changeKind == Kind::create || change.changeKind == Kind::update) waiting.bytes = anyBytes();
    return waiting;
}

Op anyOp(const std::vector<NodeRecord>& rows) {
    const auto path = anyPath(rows);
    switch (upTo(9)) {
        case 0:
        case 1:
            return {Op::Create{path, pick<std::string>({"a", "T", ""}), {}, oneIn(3), anyKind()}};
        case 2:
        case 3:
            return {Op::Update{path, std::nullopt, {}, true, anyKind()}};
        case 4:
            return {Op::Update{path, pick<std::string>({"a", "T"}), {}, oneIn(2), std::nullopt}};
        case 5:
        case 6:
            return {Op::Move{path, anyPath(rows)}};
        case 7:
            return {Op::Mkdir{path, pick<std::string>({"a", "T", ""})}};
        default:
            return {Op::Delete{path}};
    }
}

SnapshotNode newNode(const std::string& path, bool isDirectory, int number) {
    auto node = nodeOf(fileNode(theBrain, path, "N" + std::to_string(number)));
    node.isDirectory = isDirectory;
    node.updatedAt = anyDate();
    return node;
}

// The node that a row became on the server, its path aside; absent if it went.
std::optional<SnapshotNode> survivor(const NodeRecord& row, int number) {
    if (row.localOnly || oneIn(5)) return std::nullopt;
    auto node = nodeOf(row);
    if (!node.nodeId.starts_with("S") && !node.nodeId.starts_with("N")) {
        if (row.isDirectory && oneIn(2)) return std::nullopt;  // the server doesn't name every folder
        node.nodeId = "N" + std::to_string(number);
    }
    if (oneIn(4)) node.updatedAt = instant(9);
    if (oneIn(4)) node.title = "New title";
    if (oneIn(8)) node.path = alphabetPath();
    return node;
}

void showRow(std::ostream& os, const NodeRecord& row) {
    os << "  row " << row.path << " = " << row.nodeId << (row.isDirectory ? " folder" : "")
       << (row.localOnly ? " local-only" : "") << "\n";
}

}  // namespace

std::string alphabetPath(bool junk) {
    const auto piece = [&] {
        return pick<std::string>({"a", "b", "a", "b", "a", "b", "\u00e9", junk ? ".gitkeep" : "ab"});
    };
    auto path = piece();
    for (int depth = upTo(2); depth > 0; --depth)
        path += "/" + piece();
    return path;
}

SnapshotNode nodeOf(const NodeRecord& row) {
    return {row.nodeId, row.path,     row.title,    row.isDirectory,
            row.kind,   row.blobHash, row.blobSize, row.updatedAt};
}

Beginning anyBeginning() {
    Beginning beginning{anyRows(), {}};
    for (int i = upTo(5); i > 0; --i)
        beginning.journal.push_back(anyWaiting(beginning.rows));
    return beginning;
}

Batch anyBatch(const std::vector<NodeRecord>& rows) {
    Batch batch;
    for (int i = upTo(3); i > 0; --i) {
        FeedEntry entry{pick<std::string>({"c1", "c2", "c3"}), instant(upTo(20)), {}, {}};
        for (int ops = upTo(3); ops > 0; --ops)
            entry.ops.push_back(anyOp(rows));
        batch.entries.push_back(std::move(entry));
    }
    batch.cursor = anyCursor();
    return batch;
}

Snapshot anySnapshot(const std::vector<NodeRecord>& rows) {
    Snapshot snapshot;
    TreeBuilder tree;
    int number = 100 + upTo(1) * 100;
    for (const auto& row : rows) {
        const auto node = survivor(row, ++number);
        if (node && tree.add(node->path, node->isDirectory)) snapshot.nodes.push_back(*node);
    }
    for (int i = upTo(3); i > 0; --i) {
        const auto path = anyPath(rows);
        const bool isDirectory = oneIn(3);
        if (tree.add(path, isDirectory)) snapshot.nodes.push_back(newNode(path, isDirectory, ++number));
    }
    snapshot.cursor = oneIn(8) ? std::nullopt : std::optional<std::string>("reset");
    return snapshot;
}

Snapshot anyMalformedSnapshot(const std::vector<NodeRecord>& rows) {
    auto snapshot = anySnapshot(rows);
    for (int i = upTo(3); i > 0; --i) {
        auto node = newNode(anyPath(rows), oneIn(3), i);
        if (!snapshot.nodes.empty() && oneIn(3)) node.path = pick(snapshot.nodes).path;
        if (!snapshot.nodes.empty() && oneIn(3)) node.path = pick(snapshot.nodes).path + "/below";
        if (!snapshot.nodes.empty() && oneIn(3)) node.nodeId = pick(snapshot.nodes).nodeId;
        snapshot.nodes.push_back(std::move(node));
    }
    return snapshot;
}

Step anyStep(const std::vector<NodeRecord>& rows) {
    if (oneIn(3)) return anySnapshot(rows);
    return anyBatch(rows);
}

void show(const Beginning& beginning, std::ostream& os) {
    os << "\nbegins with\n";
    for (const auto& row : beginning.rows)
        showRow(os, row);
    for (const auto& [change, bytes] : beginning.journal)
        os << "  waiting " << rawValue(change.changeKind) << " " << change.fromPath.value_or("") << " "
           << change.path << " @" << change.baseCursor.value_or("none")
           << (bytes.size() > 1 ? " too large" : "") << "\n";
}

void show(const Step& step, std::ostream& os) {
    if (const auto* batch = std::get_if<Batch>(&step)) {
        os << "batch\n";
        constexpr std::array names{"create ", "update ", "move ", "mkdir ", "delete "};
        for (const auto& entry : batch->entries)
            for (const auto& op : entry.ops) {
                const auto* move = std::get_if<Op::Move>(&op.value);
                os << "  " << entry.cursor << " " << names[op.value.index()] << op.path()
                   << (move ? " to " + move->newPath : "") << "\n";
            }
        return;
    }
    os << "reset\n";
    for (const auto& node : std::get<Snapshot>(step).nodes)
        os << "  node " << node.path << " = " << node.nodeId << (node.isDirectory ? " folder" : "") << "\n";
}

RandomWorld::RandomWorld(const Beginning& beginning, std::uint64_t seed)
    : brain(theBrain),
      random(std::make_shared<SeededRandom>(seed)),
      resolver(std::make_shared<ConflictResolver>(
          random, store, "M", spool, [] { return today; },
          [this](const PendingChange& change, const auto&) { return spool.pendingBytes(*change.id); })) {
    auto record = brainRecord(brain);
    record.cursor = "c0";
    store->upsertBrain(record);
    for (const auto& row : beginning.rows) {
        store->upsert(row);
        store->appendChange(row.identifier(), false);
        if (row.localOnly) spool.write(Data::copyOf(row.nodeId), ConflictSpool::nodeKey(row.nodeId));
    }
    for (const auto& [change, bytes] : beginning.journal) {
        const auto id = store->enqueue(change);
        if (!bytes.empty()) spool.writeNewEdit(bytes, id);
    }
}

void RandomWorld::take(const Step& step) {
    if (const auto* batch = std::get_if<Batch>(&step)) {
        const ConflictHandler handler = [this](const FeedEntry& entry, const Op& op,
                                               const PendingChange& change) {
            watchCollision(op, change);
            return resolver->handle(entry, op, change);
        };
        Reconciler::applyFeedEntries(*random, batch->entries, brain, batch->cursor, *store, handler);
    } else {
        const auto& snapshot = std::get<Snapshot>(step);
        resolver->applyReset(snapshot.nodes, brain, snapshot.cursor);
    }
}

std::string RandomWorld::dumpWithoutChance() {
    auto text = dump(connection);
    const std::string prefix = "local:";
    std::map<std::string, std::string> numbers;
    for (auto at = text.find(prefix); at != std::string::npos; at = text.find(prefix, at + 1)) {
        const auto id = text.substr(at + prefix.size(), 36);
        const auto [number, isNew] = numbers.emplace(id, std::to_string(numbers.size()));
        text.replace(at + prefix.size(), id.size(), number->second);
    }
    return text;
}

}  // namespace vorlinden::tests
