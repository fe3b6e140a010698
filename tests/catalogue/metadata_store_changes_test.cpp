#include <map>

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include "tests/support/catalogue.h"

namespace vorlinden::tests {
namespace {

const UUID brain = numberedUUID(1);

SyncItemIdentifier node(int number) {
    return SyncItemIdentifier::node(brain, "n" + std::to_string(number));
}

NodeRecord row(int number) {
    const std::string name = "n" + std::to_string(number);
    return fileNode(brain, name, name);
}

TEST(StoreChanges, ShowBrainsAndTheRootPassOverGarbageAndFailOnACorruptItem) {
    Catalogue store;
    EXPECT_EQ(store->changes(0), (ChangeSet{{}, {}, 0}));
    store->upsertBrain(brainRecord(brain));
    store->appendChange(SyncItemIdentifier::brain(brain), false);
    store->appendChange(node(9), false);  // has gone since
    store->appendChange(SyncItemIdentifier::root(), false);
    store.execute("INSERT INTO changes_log (brain_id, item_identifier, deleted) VALUES ('', 'nonsense', 0)");
    store.execute("INSERT INTO changes_log (brain_id, item_identifier, deleted) VALUES ('', x'00', 1)");
    EXPECT_EQ(store->changes(0),
              (ChangeSet{{SyncItem{brainRecord(brain)}}, {node(9), SyncItemIdentifier::root()}, 5}));
    EXPECT_EQ(store->changes(100), (ChangeSet{{}, {}, 5}));
    store->upsert(row(2));
    store->appendChange(node(2), false);
    store.execute("UPDATE nodes SET kind = 'film'");
    EXPECT_THROW(store->changes(0), MetadataStoreError);
}

TEST(StoreChanges, DoNotWaitForAWriterOfAnotherConnection) {
    Catalogue store;
    store->appendChange(node(1), true);
    SQLiteDatabase writer = store.raw();
    writer.transaction(true, [&] {
        writer.execute("INSERT INTO changes_log (brain_id, item_identifier, deleted) VALUES ('', 'root', 1)");
        EXPECT_EQ(store->changes(0), (ChangeSet{{}, {node(1)}, 1}));
    });
    EXPECT_EQ(store->changes(1), (ChangeSet{{}, {SyncItemIdentifier::root()}, 2}));
}

// The log and the nodes as plain containers.
struct Model {
    struct Entry {
        std::int64_t anchor;
        int number;
        bool deleted;
    };
    std::vector<Entry> log;
    std::map<int, NodeRecord> nodes;

    ChangeSet changes(std::int64_t since) const {
        std::map<int, Entry> last;
        for (const Entry& entry : log)
            if (entry.anchor > since) last.insert_or_assign(entry.number, entry);
        std::map<std::int64_t, Entry> byAnchor;
        for (const auto& [number, entry] : last)
            byAnchor.emplace(entry.anchor, entry);
        ChangeSet result;
        for (const auto& [anchor, entry] : byAnchor) {
            if (entry.deleted || !nodes.contains(entry.number)) {
                result.deleted.push_back(node(entry.number));
            } else {
                result.changed.push_back({nodes.at(entry.number)});
            }
        }
        result.anchor = log.empty() ? 0 : log.back().anchor;
        return result;
    }
};

TEST(StoreChanges, AgreeWithAPlainModel) {
    enum class Step { put, drop, logChanged, logDeleted };
    const auto step = rc::gen::pair(
        rc::gen::element(Step::put, Step::drop, Step::logChanged, Step::logDeleted), rc::gen::inRange(0, 6));
    Catalogue store;
    const auto take = [&](Model& model, Step kind, int number) {
        if (kind == Step::put) {
            NodeRecord record = row(number);
            record.contentVersion = static_cast<std::int64_t>(model.log.size());
            store->upsert(record);
            model.nodes.insert_or_assign(number, record);
        } else if (kind == Step::drop) {
            RC_ASSERT(store->deleteNode(brain, row(number).nodeId) == (model.nodes.erase(number) == 1));
        } else {
            const bool deleted = kind == Step::logDeleted;
            model.log.push_back({store->appendChange(node(number), deleted), number, deleted});
        }
    };
    EXPECT_TRUE(rc::check([&] {
        undone(*store, [&] {
            Model model;
            for (const auto& [kind, number] : *rc::gen::container<std::vector<std::pair<Step, int>>>(step))
                take(model, kind, number);
            const auto end = static_cast<std::int64_t>(model.log.size()) + 2;
            const auto since = *rc::gen::inRange<std::int64_t>(0, end);
            RC_ASSERT(store->changes(since) == model.changes(since));
        });
    }));
}

}  // namespace
}  // namespace vorlinden::tests
