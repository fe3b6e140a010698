// Random catalogues, journals, feeds and snapshots over a small alphabet of paths, so that everything
// collides.
//
// The functions that draw values may be called only inside a RapidCheck property.
#pragma once

#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "synckit/conflicts/conflict_resolver.h"
#include "synckit/upload/upload_planner.h"
#include "tests/support/connection.h"
#include "tests/support/hooked_files.h"
#include "tests/support/memory_files.h"
#include "tests/support/seeded_random.h"

namespace vorlinden::tests {

// A waiting change and its bytes, if it carries any.
struct Waiting {
    PendingChange change;
    Data bytes;
};

struct Beginning {
    std::vector<NodeRecord> rows;  // a tree, but for what lies under a file
    std::vector<Waiting> journal;
};

struct Batch {
    std::vector<FeedEntry> entries;
    std::optional<std::string> cursor;
};
struct Snapshot {
    std::vector<SnapshotNode> nodes;
    std::optional<std::string> cursor;
};
using Step = std::variant<Batch, Snapshot>;

std::string alphabetPath(bool junk = true);
SnapshotNode nodeOf(const NodeRecord& row);

Beginning anyBeginning();
// Any ops at all on the paths of the alphabet and of `rows`, even such as no server sends.
Batch anyBatch(const std::vector<NodeRecord>& rows);
// What a server may have made of `rows` meanwhile: a tree. Fed rows and some folders get identifiers of the
// server's.
Snapshot anySnapshot(const std::vector<NodeRecord>& rows);
// The same with nodes added that no server sends: two of one path, one below a file.
Snapshot anyMalformedSnapshot(const std::vector<NodeRecord>& rows);
Step anyStep(const std::vector<NodeRecord>& rows);

void show(const Beginning& beginning, std::ostream& os);
void show(const Step& step, std::ostream& os);

// A catalogue in memory, a spool in memory and a resolver over both. The seed decides the fresh identifiers
// alone.
class RandomWorld {
 public:
    explicit RandomWorld(const Beginning& beginning, std::uint64_t seed = 1);

    const UUID brain;
    const std::shared_ptr<HookedFiles> files = std::make_shared<HookedFiles>(std::make_shared<MemoryFiles>());
    const ConflictSpool spool{files, "/spool"};
    std::shared_ptr<MetadataStore> store;
    sqlite3* const connection = connectionOf([this] { store = std::make_shared<MetadataStore>(":memory:"); });
    const std::shared_ptr<SeededRandom> random;
    const std::shared_ptr<ConflictResolver> resolver;
    // Asked beside the resolver of each collision, before it.
    std::function<void(const Op&, const PendingChange&)> watchCollision = [](const Op&,
                                                                             const PendingChange&) {};

    // Throws what a batch or reset throws.
    void take(const Step& step);

    std::vector<NodeRecord> rows() { return store->allNodes(brain); }
    // dump() with fresh identifiers numbered as they appear in the log.
    std::string dumpWithoutChance();
};

}  // namespace vorlinden::tests
