#include "synckit/apply/brain_sync_status.h"

#include <gtest/gtest.h>

#include "tests/support/catalogue.h"

namespace vorlinden::tests {
namespace {

using Status = BrainSyncStatus;

const UUID brainA = numberedUUID(1);
const UUID brainB = numberedUUID(2);

class BrainSyncStatusTest : public testing::Test {
 protected:
    void addBrain(UUID brainId, int uploadErrors, std::string slug = "team") {
        store_->upsertBrain(brainRecord(brainId, std::move(slug)));
        for (int number = 0; number <= uploadErrors; ++number) {
            NodeRecord node = fileNode(brainId, std::to_string(number));
            if (number > 0) node.uploadError = "too large";
            store_->upsert(node);
        }
    }

    Catalogue store_;
};

TEST_F(BrainSyncStatusTest, DerivesOneStatusPerBrainInTheCataloguesOrder) {
    EXPECT_TRUE(Status::derive(*store_, {}, {}, {}).empty());
    addBrain(brainA, 0, "second");
    addBrain(brainB, 2, "first");
    const UUID unknown = numberedUUID(3);
    const auto statuses = Status::derive(*store_, {unknown}, {{unknown, "gone"}},
                                         {{brainA, instant(5)}, {unknown, instant(6)}});
    EXPECT_EQ(statuses, (std::vector<Status>{
                            {brainB, "The first", Status::Error{"2 upload errors"}, std::nullopt, 2},
                            {brainA, "The second", Status::Idle{}, instant(5), 0},
                        }));
    EXPECT_EQ(statuses[0].id(), brainB);
}

TEST_F(BrainSyncStatusTest, ASyncHidesAFailureWhichHidesUploadErrors) {
    addBrain(brainA, 1);
    const auto only = [&](const std::set<UUID>& syncing, const std::map<UUID, std::string>& errors) {
        const Status status = Status::derive(*store_, syncing, errors, {}).at(0);
        EXPECT_EQ(status.pendingErrorCount, 1);
        return status.state;
    };
    EXPECT_EQ(only({brainA}, {{brainA, "no network"}}), Status::State(Status::Syncing{}));
    EXPECT_EQ(only({}, {{brainA, "no network"}}), Status::State(Status::Error{"no network"}));
    EXPECT_EQ(only({}, {}), Status::State(Status::Error{"1 upload error"}));
}

TEST(BrainSyncStatusAggregate, TheFirstTroubleDecidesThenASync) {
    const Status idle{brainA, "a", Status::Idle{}, {}, 0};
    const Status idleWithErrors{brainA, "a", Status::Idle{}, {}, 1};
    const Status syncing{brainA, "a", Status::Syncing{}, {}, 0};
    const Status syncingWithErrors{brainA, "a", Status::Syncing{}, {}, 2};
    const Status failed{brainA, "a", Status::Error{"no network"}, {}, 0};
    struct Case {
        std::vector<Status> statuses;
        Status::State state;
    };
    for (const auto& [statuses, state] : {
             Case{{}, Status::Idle{}},
             Case{{idle, idle}, Status::Idle{}},
             Case{{idle, syncing}, Status::Syncing{}},
             Case{{idleWithErrors, failed}, Status::Error{"Upload errors"}},
             Case{{failed, idleWithErrors}, Status::Error{"no network"}},
             Case{{syncing, failed}, Status::Error{"no network"}},
             Case{{syncing, syncingWithErrors}, Status::Error{"Upload errors"}},
         }) {
        EXPECT_EQ(Status::aggregate(statuses), state);
    }
}

}  // namespace
}  // namespace vorlinden::tests
