// UUIDs and timestamps.
#include <unordered_set>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "platform/timestamp.h"
#include "platform/uuid.h"
#include "tests/support/seeded_random.h"

namespace vorlinden::platform {
namespace {

TEST(UUIDText, OnlyTheCanonicalFormIsAccepted) {
    const auto id = UUID::parse("0b8Ae0F2-11c3-4D55-9e66-77889900aAbB");
    ASSERT_TRUE(id);
    EXPECT_EQ(id->upperText(), "0B8AE0F2-11C3-4D55-9E66-77889900AABB");
    EXPECT_EQ(id->lowerText(), "0b8ae0f2-11c3-4d55-9e66-77889900aabb");
    for (const char* text : {"", "0b8ae0f211c34d559e6677889900aabb", "{0b8ae0f2-11c3-4d55-9e66-77889900aabb}",
                             "0b8ae0f2-11c3-4d55-9e66-77889900aab", "0b8ae0f2-11c3-4d55-9e66-77889900aabbc",
                             "0b8ae0f2-11c3-4d55-9e66-77889900aabg", "0b8ae0f2-11c3-4d559-e66-77889900aabb",
                             "0b8ae0f2-11c3-4d55-9e66-7788990 aabb", "0b8ae0f2_11c3-4d55-9e66-77889900aabb"})
        EXPECT_FALSE(UUID::parse(text)) << text;
}

TEST(UUIDText, RandomOnesAreVersionFourAndDiffer) {
    tests::SeededRandom random;
    std::unordered_set<UUID> ids;
    for (int i = 0; i < 1000; ++i) {
        const UUID id = *ids.insert(UUID::random(random)).first;
        EXPECT_EQ(id.lowerText()[14], '4');
        EXPECT_NE(std::string("89ab").find(id.lowerText()[19]), std::string::npos);
        EXPECT_EQ(UUID::parse(id.upperText()), id);
    }
    EXPECT_EQ(ids.size(), 1000u);
}

TEST(TimestampText, OnlyRealDatesInTheOneFormAreAccepted) {
    using namespace std::chrono;
    EXPECT_EQ(parseTimestamp("2024-02-29T23:59:59.999Z"),
              sys_days{2024y / February / 29} + 23h + 59min + 59s + 999ms);
    for (const char* text : {"",
                             "2024-02-29",
                             "2023-02-29T00:00:00.000Z",
                             "2024-13-01T00:00:00.000Z",
                             "2024-00-10T00:00:00.000Z",
                             "2024-01-32T00:00:00.000Z",
                             "2024-01-01T24:00:00.000Z",
                             "2024-01-01T23:60:00.000Z",
                             "2024-01-01T23:59:60.000Z",
                             "2024-01-01T00:00:00Z",
                             "2024-01-01T00:00:00.00Z",
                             "2024-01-01T00:00:00.0000Z",
                             "2024-01-01 00:00:00.000Z",
                             "2024-01-01T00:00:00.000z",
                             "2024-01-01T00:00:00.000+00:00",
                             "2024-01-01T00:00:00.000",
                             " 2024-01-01T00:00:00.000Z",
                             "+024-01-01T00:00:00.000Z",
                             "2024-01-01T-1:00:00.000Z",
                             "2024-01-01T00:00:00.000Z "})
        EXPECT_FALSE(parseTimestamp(text)) << text;
    EXPECT_EQ(formatTimestamp(Timestamp::min()), "0000-01-01T00:00:00.000Z");
    EXPECT_EQ(formatTimestamp(Timestamp::max()), "9999-12-31T23:59:59.999Z");
}

RC_GTEST_PROP(TimestampText, FormattedTimesReadBackTheSame, ()) {
    const auto earliest = parseTimestamp("0000-01-01T00:00:00.000Z")->time_since_epoch().count();
    const auto latest = parseTimestamp("9999-12-31T23:59:59.999Z")->time_since_epoch().count();
    const Timestamp time{std::chrono::milliseconds{*rc::gen::inRange(earliest, latest + 1)}};
    RC_ASSERT(parseTimestamp(formatTimestamp(time)) == time);
}

}  // namespace
}  // namespace vorlinden::platform
