#include "synckit/server/sync_json.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "platform/text.h"
#include "tests/support/catalogue.h"

namespace vorlinden::tests {
namespace {

using Kind = platform::JSONError::Kind;

template <class T>
std::optional<platform::JSONError> failureOf(const std::string& json) {
    try {
        SyncJSON::decode<T>(json);
        return std::nullopt;
    } catch (const platform::JSONError& error) {
        return error;
    }
}

// Decodes, and encodes to the same text again, whose keys are therefore the ones read.
template <class T>
void expectRoundTrip(const T& value, const std::string& json) {
    EXPECT_EQ(SyncJSON::encode(value).text, json);
    EXPECT_EQ(SyncJSON::decode<T>(json), value);
}

const std::string stamp = "2023-11-14T22:13:20.123Z";  // instant()

TEST(SyncJSON, TimestampsHaveOneForm) {
    EXPECT_EQ(SyncJSON::string(instant()), stamp);
    EXPECT_EQ(SyncJSON::date(stamp), instant());
    for (const auto* text : {"2023-11-14T22:13:20Z", "2023-11-14", "", "2023-11-14T22:13:20.123"})
        EXPECT_EQ(SyncJSON::date(text), std::nullopt) << text;
    const auto failure = failureOf<SnapshotNode>(
        R"({"nodeId":"n","path":"p","title":"","isDirectory":false,"kind":"text","updatedAt":"2023-11-14T22:13:20Z"})");
    EXPECT_EQ(*failure, platform::JSONError(Kind::corrupted, "updatedAt",
                                            "Invalid ISO 8601 date: 2023-11-14T22:13:20Z"));
}

TEST(SyncJSON, ValuesKeepTheirFormBothWays) {
    expectRoundTrip(Brain{"b", "t", "n", "s", {}}, R"({"id":"b","name":"n","slug":"s","teamId":"t"})");
    expectRoundTrip(Brain{"b", "t", "n", "s", "c"},
                    R"({"headCursor":"c","id":"b","name":"n","slug":"s","teamId":"t"})");
    expectRoundTrip(Device{"d", "n", "p", instant(), instant()}, R"({"createdAt":")" + stamp +
                                                                     R"(","id":"d","lastSeenAt":")" + stamp +
                                                                     R"(","name":"n","platform":"p"})");
    expectRoundTrip(Author{AuthorKind::agent, "m", "h"}, R"({"harness":"h","kind":"agent","memberId":"m"})");
    expectRoundTrip(
        SnapshotNode{"i", "p", "t", true, NodeKind::blob, "h", -1, instant()},
        R"({"blobHash":"h","blobSize":-1,"isDirectory":true,"kind":"blob","nodeId":"i","path":"p","title":"t","updatedAt":")" +
            stamp + R"("})");
    expectRoundTrip(WriteResult{{"i", "p"}, "c"}, R"({"cursor":"c","node":{"nodeId":"i","path":"p"}})");
    expectRoundTrip(DeleteResult{true, {}}, R"({"deleted":true})");
    expectRoundTrip(BlobReceipt{"h", 5}, R"({"hash":"h","size":5})");
    expectRoundTrip(
        FeedEntry{"c", instant(), {AuthorKind::member, "m", {}}, {{Op::Delete{"p"}}}},
        R"({"at":")" + stamp +
            R"(","author":{"kind":"member","memberId":"m"},"cursor":"c","ops":[{"kind":"delete","path":"p"}]})");
}

TEST(SyncJSON, EveryKindOfOpKeepsItsForm) {
    expectRoundTrip(
        Op{Op::Create{"p", "t", {"x"}, true, NodeKind::blob}},
        R"({"isDirectory":true,"kind":"create","nodeKind":"blob","path":"p","tags":["x"],"title":"t"})");
    expectRoundTrip(Op{Op::Update{"p", {}, {}, true, {}}},
                    R"({"bodyChanged":true,"kind":"update","path":"p"})");
    expectRoundTrip(
        Op{Op::Update{"p", "t", std::vector<std::string>(), false, NodeKind::text}},
        R"({"bodyChanged":false,"kind":"update","nodeKind":"text","path":"p","tags":[],"title":"t"})");
    expectRoundTrip(Op{Op::Move{"p", "q"}}, R"({"kind":"move","newPath":"q","path":"p"})");
    expectRoundTrip(Op{Op::Mkdir{"p", "t"}}, R"({"kind":"mkdir","path":"p","title":"t"})");
}

TEST(SyncJSON, AnOpsKindIsTextUnlessTold) {
    const std::tuple<Op, std::optional<NodeKind>, bool> cases[] = {
        {{Op::Create{}}, NodeKind::text, false},
        {{Op::Create{{}, {}, {}, false, NodeKind::blob}}, NodeKind::blob, true},
        {{Op::Update{}}, NodeKind::text, false},
        {{Op::Update{{}, {}, {}, false, NodeKind::blob}}, NodeKind::blob, true},
        {{Op::Move{}}, {}, false},
        {{Op::Mkdir{}}, {}, false},
        {{Op::Delete{}}, {}, false},
    };
    for (const auto& [op, kind, blob] : cases) {
        EXPECT_EQ(op.effectiveNodeKind(), kind);
        EXPECT_EQ(op.isBlob(), blob);
    }
}

TEST(SyncJSON, RefusesAnOpThatLacksItsPart) {
    const std::pair<const char*, Kind> cases[] = {
        {R"({"path":"p"})", Kind::missingKey},
        {R"({"kind":"delete"})", Kind::missingKey},
        {R"({"kind":"create","path":"p","title":"t","isDirectory":false})", Kind::missingKey},
        {R"({"kind":"create","path":"p","title":null,"tags":[],"isDirectory":false})", Kind::missingKey},
        {R"({"kind":"create","path":"p","title":"t","tags":[1],"isDirectory":false})", Kind::wrongType},
        {R"({"kind":"create","path":"p","title":"t","tags":[],"isDirectory":0})", Kind::wrongType},
        {R"({"kind":"create","path":"p","title":"t","tags":[],"isDirectory":false,"nodeKind":"x"})",
         Kind::corrupted},
        {R"({"kind":"update","path":"p"})", Kind::missingKey},
        {R"({"kind":"update","path":"p","bodyChanged":true,"title":5})", Kind::wrongType},
        {R"({"kind":"move","path":"p"})", Kind::missingKey},
        {R"({"kind":"move","path":"p","newPath":"a\u0000b"})", Kind::corrupted},
        {R"({"kind":"mkdir","path":"p"})", Kind::missingKey},
        {R"({"kind":"delete","path":"a\u0000b"})", Kind::corrupted},
        {R"({"kind":1,"path":"p"})", Kind::wrongType},
        {R"(["delete","p"])", Kind::wrongType},
    };
    for (const auto& [json, kind] : cases) {
        const auto failure = failureOf<Op>(json);
        ASSERT_TRUE(failure) << json;
        EXPECT_EQ(failure->kind, kind) << json;
    }
    EXPECT_EQ(*failureOf<Op>(R"({"kind":"Create","path":"p"})"),
              platform::JSONError(Kind::corrupted, "kind", "Unknown op kind \"Create\""));
}

TEST(SyncJSON, ChangesAreAFeedOrASnapshot) {
    EXPECT_EQ(SyncJSON::decode<ChangesResponse>(R"({"reset":false,"entries":[],"snapshot":7,"more":{}})"),
              (ChangesResponse{ChangesResponse::Incremental{{}, {}}}));
    EXPECT_EQ(SyncJSON::decode<ChangesResponse>(R"({"reset":true,"snapshot":[],"cursor":"c","entries":0})"),
              (ChangesResponse{ChangesResponse::Reset{{}, "c"}}));
    for (const auto* json : {R"({"entries":[],"snapshot":[]})", R"({"reset":false,"snapshot":[]})",
                             R"({"reset":true,"entries":[]})", R"({"reset":1,"entries":[]})",
                             R"({"reset":false,"entries":[],"cursor":4})"})
        EXPECT_TRUE(failureOf<ChangesResponse>(json)) << json;
    const auto unknown = failureOf<ChangesResponse>(
        R"({"reset":false,"entries":[{"cursor":"c","at":")" + stamp +
        R"(","author":{"kind":"member","memberId":"m"},"ops":[{"kind":"delete","path":"p"},{"kind":"link","path":"p"}]}]})");
    EXPECT_EQ(unknown->path, "entries[0].ops[1].kind");
}

TEST(SyncJSON, ReadsTheEnvelopes) {
    EXPECT_EQ(SyncJSON::decode<TextFileEnvelope>(R"({"path":"p","at":"7","content":"a\u0000b"})").content,
              std::string("a\0b", 3));
    EXPECT_TRUE(failureOf<TextFileEnvelope>(R"({"path":"p","at":7,"content":""})"));
    EXPECT_TRUE(failureOf<BrainsEnvelope>(R"({})"));
    EXPECT_EQ(SyncJSON::decode<DevicesEnvelope>(R"({"devices":[]})").devices.size(), 0U);
    EXPECT_TRUE(failureOf<DeviceEnvelope>(R"({"device":null})"));
    EXPECT_TRUE(failureOf<Author>(R"({"kind":"robot","memberId":"m"})"));
}

RC_GTEST_PROP(SyncJSON, AnyTextSurvivesTheWayToTheServerAndBack, (const std::string& bytes)) {
    const auto text = platform::repairedUTF8(bytes);
    const Op op{Op::Update{"p", text, std::vector{text}, true, {}}};
    RC_ASSERT(SyncJSON::decode<Op>(SyncJSON::encode(op).text) == op);
}

}  // namespace
}  // namespace vorlinden::tests
