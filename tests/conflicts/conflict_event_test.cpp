#include "synckit/conflicts/conflict_event.h"

#include <stdexcept>

#include <gtest/gtest.h>

#include "platform/json.h"
#include "tests/support/catalogue.h"

namespace vorlinden::tests {
namespace {

const UUID brain = numberedUUID(1);

ConflictEvent event(int number) {
    return {.kind = ConflictEvent::Kind::readOnlyBounce,
            .brainId = brain,
            .path = "folder/" + std::to_string(number),
            .copyPath = std::nullopt,
            .message = "No \"write\" access – naïve.",
            .at = instant(number)};
}

std::vector<ConflictEvent> events(int from, int to) {
    std::vector<ConflictEvent> list;
    for (int number = from; number <= to; ++number)
        list.push_back(event(number));
    return list;
}

class ConflictEventLogTest : public testing::Test {
 protected:
    void append(const std::vector<ConflictEvent>& list) { ConflictEventLog::append(list, *store_); }
    std::vector<ConflictEvent> drain() { return ConflictEventLog::drain(*store_); }
    std::optional<std::string> row() { return store_->meta("conflict_events"); }

    Catalogue store_;
};

TEST_F(ConflictEventLogTest, IsASortedJSONArrayThatDrainsOnce) {
    ConflictEvent copied = event(2), reset = event(3);
    copied.kind = ConflictEvent::Kind::conflictedCopy;
    copied.copyPath = "folder/2 copy";
    reset.kind = ConflictEvent::Kind::resetConflict;
    append({event(1), copied, reset});
    append({event(1)});  // two like events stay two
    EXPECT_EQ(drain(), (std::vector{event(1), copied, reset, event(1)}));
    EXPECT_EQ(row(), std::nullopt);
    EXPECT_TRUE(drain().empty());

    // What the other process reads: an absent path has no key.
    const ConflictEvent plain{ConflictEvent::Kind::noWriteAccess, brain, "p", std::nullopt, "m", instant(3)};
    copied.path = "p";
    copied.copyPath = "c";
    copied.message = "m";
    append({copied, plain});
    const std::string id = "\"brainId\":\"ABABABAB-ABAB-ABAB-ABAB-ABABABABAB01\"";
    EXPECT_EQ(row(), "[{\"at\":\"1970-01-01T00:00:00.002Z\"," + id +
                         ",\"copyPath\":\"c\",\"kind\":\"conflictedCopy\",\"message\":\"m\",\"path\":\"p\"},"
                         "{\"at\":\"1970-01-01T00:00:00.003Z\"," +
                         id + ",\"kind\":\"noWriteAccess\",\"message\":\"m\",\"path\":\"p\"}]");
}

TEST_F(ConflictEventLogTest, KeepsTheLastFifty) {
    for (const ConflictEvent& each : events(1, 51))
        append({each});
    EXPECT_EQ(drain(), events(2, 51));
    append(events(1, 120));
    EXPECT_EQ(drain(), events(71, 120));
}

TEST_F(ConflictEventLogTest, AnUnreadableLogFailsAndStays) {
    for (const std::string text :
         {"nonsense", "{}", "[{}]",
          "[{\"at\":\"1970-01-01T00:00:00.002Z\",\"brainId\":\"ABABABAB-ABAB-ABAB-ABAB-ABABABABAB01\","
          "\"kind\":\"unheardOf\",\"message\":\"m\",\"path\":\"p\"}]"}) {
        store_->setMeta(text, "conflict_events");
        append({});  // nothing to add, nothing to read
        EXPECT_THROW(append({event(1)}), platform::JSONError) << text;
        EXPECT_THROW(drain(), platform::JSONError) << text;
        EXPECT_EQ(row(), text);
    }
    store_->setMeta("[]", "conflict_events");
    EXPECT_TRUE(drain().empty());
    EXPECT_EQ(row(), "[]");
}

TEST_F(ConflictEventLogTest, RollsBackWithTheChangeItReports) {
    append({event(1)});
    EXPECT_THROW(store_->inTransaction([&] {
        append({event(2)});
        throw std::domain_error("the change failed");
    }),
                 std::domain_error);
    EXPECT_EQ(drain(), events(1, 1));
}

}  // namespace
}  // namespace vorlinden::tests
