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

std::string without(std::string json, const std::string& key) {
    return json.replace(json.find("\"" + key + "\""), key.size() + 2, "\"gone\"");
}

// Decodes, and encodes to the same text again; each key of `required` must be there, each of `optional` may
// be missing. A '#' in the text stands for instant().
template <class T>
void expectForm(const T& value, std::string json, std::vector<std::string> required,
                std::vector<std::string> optional = {}) {
    for (auto at = json.find('#'); at != std::string::npos; at = json.find('#'))
        json.replace(at, 1, "2023-11-14T22:13:20.123Z");
    EXPECT_EQ(SyncJSON::encode(value).text, json);
    EXPECT_EQ(SyncJSON::decode<T>(json), value);
    for (const auto& key : required) {
        const auto failure = failureOf<T>(without(json, key));
        ASSERT_TRUE(failure) << json << " without " << key;
        EXPECT_EQ(failure->kind, Kind::missingKey) << json << " without " << key;
    }
    for (const auto& key : optional)
        EXPECT_FALSE(failureOf<T>(without(json, key))) << json << " without " << key;
}

TEST(SyncJSON, ValuesKeepTheirFormBothWaysAndLackNoPart) {
    expectForm(Brain{"b", "t", "n", "s", "c"},
               R"({"headCursor":"c","id":"b","name":"n","slug":"s","teamId":"t"})",
               {"id", "name", "slug", "teamId"}, {"headCursor"});
    expectForm(Device{"d", "n", "p", instant(), instant()},
               R"({"createdAt":"#","id":"d","lastSeenAt":"#","name":"n","platform":"p"})",
               {"createdAt", "id", "name", "platform"}, {"lastSeenAt"});
    expectForm(Author{AuthorKind::agent, "m", "h"}, R"({"harness":"h","kind":"agent","memberId":"m"})",
               {"kind", "memberId"}, {"harness"});
    expectForm(
        SnapshotNode{"i", "p", "t", true, NodeKind::blob, "h", -1, instant()},
        R"({"blobHash":"h","blobSize":-1,"isDirectory":true,"kind":"blob","nodeId":"i","path":"p","title":"t","updatedAt":"#"})",
        {"isDirectory", "kind", "nodeId", "path", "title", "updatedAt"}, {"blobHash", "blobSize"});
    expectForm(WriteResult{{"i", "p"}, "c"}, R"({"cursor":"c","node":{"nodeId":"i","path":"p"}})",
               {"cursor", "node", "nodeId", "path"});
    expectForm(DeleteResult{true, "c"}, R"({"cursor":"c","deleted":true})", {"deleted"}, {"cursor"});
    expectForm(BlobReceipt{"h", 5}, R"({"hash":"h","size":5})", {"hash", "size"});
    expectForm(
        FeedEntry{"c", instant(), {AuthorKind::member, "m", {}}, {{Op::Delete{"p"}}}},
        R"({"at":"#","author":{"kind":"member","memberId":"m"},"cursor":"c","ops":[{"kind":"delete","path":"p"}]})",
        {"at", "author", "cursor", "ops"});
}

TEST(SyncJSON, EveryKindOfOpKeepsItsForm) {
    expectForm(
        Op{Op::Create{"p", "t", {"x"}, true, NodeKind::blob}},
        R"({"isDirectory":true,"kind":"create","nodeKind":"blob","path":"p","tags":["x"],"title":"t"})",
        {"kind", "isDirectory", "path", "tags", "title"}, {"nodeKind"});
    expectForm(Op{Op::Update{"p", "t", std::vector<std::string>(), false, NodeKind::text}},
               R"({"bodyChanged":false,"kind":"update","nodeKind":"text","path":"p","tags":[],"title":"t"})",
               {"kind", "bodyChanged", "path"}, {"nodeKind", "tags", "title"});
    expectForm(Op{Op::Move{"p", "q"}}, R"({"kind":"move","newPath":"q","path":"p"})",
               {"kind", "newPath", "path"});
    expectForm(Op{Op::Mkdir{"p", "t"}}, R"({"kind":"mkdir","path":"p","title":"t"})",
               {"kind", "path", "title"});
    EXPECT_EQ(Op{Op::Create{}}.effectiveNodeKind(), NodeKind::text) << "unless told";
    EXPECT_TRUE((Op{Op::Update{{}, {}, {}, false, NodeKind::blob}}).isBlob());
    EXPECT_EQ(Op{Op::Move{}}.effectiveNodeKind(), std::nullopt);
}

TEST(SyncJSON, RefusesAnOpWithAPartOfTheWrongKind) {
    const std::pair<const char*, Kind> cases[] = {
        {R"({"kind":"create","path":"p","title":null,"tags":[],"isDirectory":false})", Kind::missingKey},
        {R"({"kind":"create","path":"p","title":"t","tags":[1],"isDirectory":false})", Kind::wrongType},
        {R"({"kind":"create","path":"p","title":"t","tags":[],"isDirectory":0})", Kind::wrongType},
        {R"({"kind":"update","path":"p","bodyChanged":true,"nodeKind":"x"})", Kind::corrupted},
        {R"({"kind":"update","path":"p","bodyChanged":true,"title":5})", Kind::wrongType},
        {R"({"kind":"move","path":"p","newPath":"a\u0000b"})", Kind::corrupted},
        {R"({"kind":"delete","path":"a\u0000b"})", Kind::corrupted},
        {R"({"kind":1,"path":"p"})", Kind::wrongType},
        {R"(["delete","p"])", Kind::wrongType},
    };
    for (const auto& [json, kind] : cases)
        EXPECT_EQ(failureOf<Op>(json).value().kind, kind) << json;
    EXPECT_EQ(*failureOf<Op>(R"({"kind":"Create","path":"p"})"),
              platform::JSONError(Kind::corrupted, "kind", "Unknown op kind \"Create\""));
    EXPECT_EQ(
        failureOf<Device>(R"({"id":"d","name":"","platform":"","createdAt":"2023-11-14T22:13:20Z"})"),
        platform::JSONError(Kind::corrupted, "createdAt", "Invalid ISO 8601 date: 2023-11-14T22:13:20Z"));
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
}

TEST(SyncJSON, ReadsTheEnvelopes) {
    EXPECT_EQ(SyncJSON::decode<TextFileEnvelope>(R"({"path":"p","at":"7","content":"a\u0000b"})").content,
              std::string("a\0b", 3));
    EXPECT_TRUE(failureOf<TextFileEnvelope>(R"({"path":"p","at":7,"content":""})"));
    EXPECT_TRUE(failureOf<BrainsEnvelope>(R"({})"));
    EXPECT_TRUE(failureOf<DeviceEnvelope>(R"({"device":null})"));
}

RC_GTEST_PROP(SyncJSON, AnyTextSurvivesTheWayToTheServerAndBack, (const std::string& bytes)) {
    const auto text = platform::repairedUTF8(bytes);
    const Op op{Op::Update{"p", text, std::vector{text}, true, {}}};
    RC_ASSERT(SyncJSON::decode<Op>(SyncJSON::encode(op).text) == op);
}

}  // namespace
}  // namespace vorlinden::tests
