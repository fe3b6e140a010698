// A brain with waiting changes, a spool and a resolver, and what became of them in short lines.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "platform/json.h"
#include "synckit/conflicts/conflict_resolver.h"
#include "synckit/upload/upload_planner.h"
#include "tests/support/catalogue.h"
#include "tests/support/hooked_files.h"
#include "tests/support/memory_files.h"
#include "tests/support/seeded_random.h"
#include "tests/support/tree.h"

namespace vorlinden::tests {

using Lines = std::vector<std::string>;

// The day that copies are named by.
inline const Timestamp today = *platform::parseTimestamp("2026-03-14T09:26:53.589Z");

// "a~.md" for the first copy of a.md made today on the machine named M, "a~2.md" for the second.
inline std::string shortName(std::string path) {
    const std::string mark = " (conflicted copy M 2026-03-14";
    for (auto at = path.find(mark); at != std::string::npos; at = path.find(mark)) {
        const auto end = path.find(')', at);
        auto number = path.substr(at + mark.size(), end - at - mark.size());
        std::erase(number, ' ');
        path.replace(at, end - at + 1, "~" + number);
    }
    return path;
}

// "p = ID v1 local-only", with short names.
inline Lines shortNames(Lines lines) {
    for (auto& line : lines)
        line = shortName(line);
    return lines;
}

inline std::string line(const PendingChange& change) {
    std::string text(rawValue(change.changeKind));
    if (change.fromPath) text += " " + shortName(*change.fromPath) + " to";
    text += " " + shortName(change.path);
    return change.baseCursor ? text + " @" + *change.baseCursor : text;
}

inline Lines lines(const std::vector<PendingChange>& changes) {
    Lines lines;
    for (const auto& change : changes)
        lines.push_back(line(change));
    return lines;
}

class ConflictWorld {
 public:
    ConflictWorld() {
        auto record = brainRecord(brain);
        record.cursor = "c0";
        catalogue->upsertBrain(record);
    }

    const UUID brain = numberedUUID(1);
    Catalogue catalogue;
    const std::shared_ptr<HookedFiles> files = std::make_shared<HookedFiles>(std::make_shared<MemoryFiles>());
    const ConflictSpool spool{files, "/Spool"};
    const std::shared_ptr<SeededRandom> random = std::make_shared<SeededRandom>();
    Timestamp now = today;
    std::shared_ptr<ConflictResolver> resolver = resolverNamed("M");

    std::shared_ptr<ConflictResolver> resolverNamed(std::string deviceName) {
        return std::make_shared<ConflictResolver>(
            random, catalogue.store(), std::move(deviceName), spool, [this] { return now; },
            [this](const PendingChange& change, const auto&) { return spool.pendingBytes(*change.id); });
    }

    void given(const NodeRecord& node) { catalogue->upsert(node); }
    void givenFile(std::string path, std::string id) {
        given(fileNode(brain, std::move(path), std::move(id)));
    }
    void givenLocalFile(std::string path, std::string id) {
        auto node = fileNode(brain, std::move(path), std::move(id));
        node.localOnly = true;
        given(node);
    }
    void givenFolder(std::string path) { given(folderNode(brain, std::move(path))); }

    std::int64_t waiting(PendingChange change) {
        change.brainId = brain;
        if (!change.baseCursor) change.baseCursor = "c0";
        return catalogue->enqueue(change);
    }
    // A waiting change of content, with its bytes in the spool as an edit.
    std::int64_t waitingEdit(PendingChangeKind kind, std::string path, std::string bytes = "mine",
                             std::optional<std::string> nodeId = {}) {
        auto change = pendingChange(brain, kind, std::move(path));
        change.nodeId = std::move(nodeId);
        const auto id = waiting(change);
        spool.writeNewEdit(Data(std::move(bytes)), id);
        return id;
    }
    std::int64_t waitingMove(std::string from, std::string to) {
        auto change = pendingChange(brain, PendingChangeKind::move, std::move(to));
        change.fromPath = std::move(from);
        return waiting(change);
    }

    ReconcileResult pull(std::vector<Op> ops) {
        return Reconciler::applyFeedEntries(*random, {{"c1", instant(), {}, std::move(ops)}}, brain, "c1",
                                            *catalogue, resolver->conflictHandler());
    }

    NodeRecord at(const std::string& path) { return catalogue->nodeByPath(brain, path).value(); }
    Lines tree() { return shortNames(tests::tree(*catalogue, brain)); }
    Lines log(std::int64_t since = 0) { return tests::log(catalogue, since); }
    Lines journal() { return lines(catalogue->pendingChanges(brain)); }
    // "KEY=BYTES"; the keys of fresh nodes read "node-*".
    Lines spooled() {
        Lines entries;
        if (!files->exists(spool.directory())) return entries;
        for (const auto& name : files->list(spool.directory())) {
            const bool fresh = name.size() == ConflictSpool::nodeKey("local:").size() + 2 * 36;
            entries.push_back((fresh ? "node-*" : name) + "=" + std::string(spool.read(name)->view()));
        }
        std::ranges::sort(entries);
        return entries;
    }
    Lines messages() {
        Lines messages;
        for (const auto& event : ConflictEventLog::drain(*catalogue))
            messages.push_back(shortName(event.message));
        return messages;
    }
};

}  // namespace vorlinden::tests
