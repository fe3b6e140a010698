// Files as members write and read them, and every refusal.
#include <gtest/gtest.h>

#include "linux/server/digest.h"
#include "synckit/server/sync_json.h"
#include "tests/syncserver/member.h"

namespace vorlinden::tests {
namespace {

struct Api : testing::Test {
    explicit Api(const std::function<void(server::ServerOptions&)>& adjust = [](auto&) {})
        : running(adjust) {}

    Op lastOp() { return member.changes(before).entries.at(0).ops.at(0); }
    // "STATUS CODE" of an answer.
    static std::string line(const Answer& answer) {
        return std::to_string(answer.status) + " " + answer.code();
    }

    RunningServer running;
    Member member{running.server->url()};
    std::string before = member.head();
};

TEST_F(Api, TextComesBackAsItWasPut) {
    const std::string text = "caf\xC3\xA9 \xF0\x9F\x98\x80 \"quoted\" \\ \x01\n";
    const auto result = SyncJSON::decode<WriteResult>(member.putText("Notes/Plan.final.md", text).body);
    EXPECT_EQ(result.node.path, "Notes/Plan.final.md");
    EXPECT_EQ(lastOp().value,
              (Op{Op::Create{"Notes/Plan.final.md", "Plan.final", {}, false, NodeKind::text}}.value));

    const auto answer = member.file("Notes/Plan.final.md", result.cursor);
    EXPECT_EQ(answer.headers.at("content-type"), "application/json");
    const auto envelope = SyncJSON::decode<TextFileEnvelope>(answer.body);
    EXPECT_EQ(envelope.content, text);
    EXPECT_EQ(envelope.path, "Notes/Plan.final.md");
    EXPECT_EQ(envelope.at, result.cursor);
}

TEST_F(Api, BlobsOfEverySizeComeBackAndAreListedWithHashAndSize) {
    for (const std::size_t size : {0u, 1000u, 128u * 1024u, 3'000'001u}) {
        const std::string bytes = std::string(size, '\xFE');
        const auto receipt = SyncJSON::decode<BlobReceipt>(member.uploadBlob(bytes).body);
        EXPECT_EQ(receipt, (BlobReceipt{server::sha256Hex(bytes), static_cast<std::int64_t>(size)}));
        const auto cursor =
            SyncJSON::decode<WriteResult>(member.putBlob("b.bin", receipt.hash, receipt.size).body).cursor;
        const auto answer = member.file("b.bin", cursor);
        EXPECT_EQ(answer.headers.at("content-type"), "application/octet-stream");
        EXPECT_TRUE(answer.body == bytes) << size;
        const auto node = member.snapshot().snapshot.at(0);
        EXPECT_EQ(node.blobHash, receipt.hash);
        EXPECT_EQ(node.blobSize, receipt.size);
    }
}

TEST_F(Api, UpdateTellsWhatChanged) {
    const auto put = [&](const std::string& text, const std::string& more = {}) {
        before = member.head();
        EXPECT_EQ(member.putText("a.md", text, more).status, 200);
        return std::get<Op::Update>(lastOp().value);
    };
    member.putText("a.md", "one");
    EXPECT_EQ(put("two"), (Op::Update{"a.md", {}, {}, true, NodeKind::text}));
    EXPECT_EQ(put("two", R"(,"title":"New")"), (Op::Update{"a.md", "New", {}, false, NodeKind::text}));
    EXPECT_EQ(put("three"), (Op::Update{"a.md", "a", {}, true, NodeKind::text}));

    const auto blob = SyncJSON::decode<BlobReceipt>(member.uploadBlob("three").body);
    before = member.head();
    EXPECT_EQ(member.putBlob("a.md", blob.hash, blob.size).status, 200);
    EXPECT_EQ(lastOp().value, (Op{Op::Update{"a.md", {}, {}, true, NodeKind::blob}}.value));
}

TEST_F(Api, NodeKeepsItsIdThroughEditsAndMoves) {
    const auto created = SyncJSON::decode<WriteResult>(member.putText("a/b.md", "1").body).node.nodeId;
    EXPECT_EQ(SyncJSON::decode<WriteResult>(member.putText("a/b.md", "2").body).node.nodeId, created);
    before = member.head();
    EXPECT_EQ(member.move("a", "z/y").status, 200);
    EXPECT_EQ(lastOp().value, (Op{Op::Move{"a", "z/y"}}.value));
    EXPECT_EQ(member.snapshot().snapshot.at(0).nodeId, created);
    EXPECT_EQ(member.content("z/y/b.md"), "2");
    EXPECT_EQ(member.file("a/b.md", member.head()).code(), "NOT_FOUND");
}

TEST_F(Api, MoveIsJudgedFromTheSourceOn) {
    member.putText("a.md", "a");
    member.putText("b.md", "b");
    for (const auto& [from, to, judged] : {std::tuple("gone.md", "b.md", "404 NOT_FOUND"),
                                           {"gone.md", "../x", "404 NOT_FOUND"},
                                           {"a.md", "b.md", "409 CONFLICT"},
                                           {"a.md", "b.md/c.md", "409 CONFLICT"},
                                           {"a.md", "a.md/c.md", "409 CONFLICT"},
                                           {"a.md", "../x", "400 INVALID_PATH"},
                                           {"a.md", ".DS_Store", "400 INVALID_PATH"},
                                           {"a.md", "a.md", "200 "}})
        EXPECT_EQ(line(member.move(from, to)), judged) << from << " to " << to;
    EXPECT_EQ(member.content("a.md") + member.content("b.md"), "ab");
}

TEST_F(Api, DeleteTakesAFolderWholeAndSaysWhenNothingWasThere) {
    member.putText("f/a.md", "a");
    member.putText("f/b/c.md", "c");
    member.putText("f-g.md", "kept");
    before = member.head();
    EXPECT_TRUE(SyncJSON::decode<DeleteResult>(member.remove("f").body).deleted);
    EXPECT_EQ(lastOp().value, (Op{Op::Delete{"f"}}.value));
    EXPECT_EQ(member.snapshot().snapshot.size(), 1u);
    before = member.head();
    EXPECT_FALSE(SyncJSON::decode<DeleteResult>(member.remove("f").body).deleted);
    EXPECT_TRUE(member.changes(before).entries.empty());
}

TEST_F(Api, RefusesWithStatusAndCode) {
    member.putText("f/a.md", "a");
    const auto device = R"({"deviceId":")" + member.deviceId + "\",";
    const std::string digest(64, 'a');
    running.admin().grant("secret");
    running.admin().revoke("secret");

    const auto put = [&](const std::string& body) { return member.onBrain("PUT", "file", body); };
    const std::pair<Answer, const char*> cases[] = {
        {put(R"({"path":"a","body":""})"), "400 BAD_REQUEST"},
        {put(R"({"deviceId":"x","path":"a","body":""})"), "403 UNKNOWN_DEVICE"},
        {member.onBrain("GET", "changes?deviceId=x"), "403 UNKNOWN_DEVICE"},
        {put(device + R"("path":"a"})"), "400 BAD_REQUEST"},
        {put("{{"), "400 BAD_REQUEST"},
        {put(std::string(100'000, '[')), "400 BAD_REQUEST"},
        {member.onBrain("PUT", "file", device + R"("path":"a","body":""})", "text/plain"),
         "415 UNSUPPORTED_MEDIA_TYPE"},
        {member.putText("../a", ""), "400 INVALID_PATH"},
        {put(device + R"("path":"a\u0000b","body":""})"), "400 INVALID_PATH"},
        {member.putText("f/.gitkeep", ""), "400 INVALID_PATH"},
        {member.putText("f", ""), "409 CONFLICT"},
        {member.putText("f/a.md/b", ""), "409 CONFLICT"},
        {put(device + R"("path":"a","body":"x\u0000"})"), "400 NOT_TEXT"},
        {member.putText("a", std::string(1024 * 1024 + 1, 'x')), "400 NOT_TEXT"},
        {member.putBlob("a", digest, 1), "409 UNKNOWN_BLOB"},
        {member.putBlob("a", "../../x", 1), "400 BAD_REQUEST"},
        {member.file("nothing", member.head()), "404 NOT_FOUND"},
        {member.file("f", member.head()), "404 NOT_FOUND"},
        {member.file("nothing", "x"), "410 CURSOR_EXPIRED"},
        {member.send("GET", "/api/sync/brains/x/changes?deviceId=" + member.deviceId), "403 FORBIDDEN"},
        {member.onBrain("PATCH", "file"), "404 NO_SUCH_ENDPOINT"},
        {member.http.send("GET", "/api/sync/brains"), "401 UNAUTHENTICATED"},
        {member.http.send("PUT", "/api/sync/brains/x/file", "{{"), "401 UNAUTHENTICATED"},
        {member.http.send("GET", "/api/sync/brains", "", {{"Host", "evil.example"}}), "421 MISDIRECTED"},
    };
    for (const auto& [answer, expected] : cases)
        EXPECT_EQ(line(answer), expected) << answer.body;
    EXPECT_EQ(member.snapshot().snapshot.size(), 1u);
    EXPECT_EQ(SyncJSON::decode<BrainsEnvelope>(member.send("GET", "/api/sync/brains").body).brains.size(),
              1u);
}

TEST_F(Api, RevokedBrainIsForbiddenUntilItIsGrantedAgain) {
    member.putText("a.md", "a");
    running.admin().revoke("docs");
    for (const auto& answer : {member.changesAnswer({}), member.putText("b.md", "b"), member.uploadBlob("x")})
        EXPECT_EQ(answer.code(), "FORBIDDEN");
    EXPECT_TRUE(SyncJSON::decode<BrainsEnvelope>(member.send("GET", "/api/sync/brains").body).brains.empty());
    running.admin().grant("docs");
    EXPECT_EQ(member.content("a.md"), "a");
    running.clock->advance(std::chrono::minutes(2));
    member.changesAnswer({});
    const auto devices = member.send("GET", "/api/sync/devices");
    EXPECT_EQ(SyncJSON::decode<DevicesEnvelope>(devices.body).devices.at(0).lastSeenAt, running.clock->now());
}

struct LimitedApi : Api {
    LimitedApi()
        : Api([](auto& options) {
              options.readOnly = {{"docs", "locked/in"}};
              options.maxUpload = 1000;
              options.missingDeleteIs404 = true;
          }) {}
};

TEST_F(LimitedApi, ReadOnlySubtreeHoldsMembersAndNobodyElse) {
    running.admin().put("docs", "locked/in/a.md", "a");
    running.admin().put("docs", "free.md", "f");
    for (const auto& answer :
         {member.putText("locked/in/a.md", "x"), member.putText("locked/in", "x"),
          member.remove("locked/in/a.md"), member.remove("locked"), member.move("locked", "open"),
          member.move("locked/in/a.md", "a.md"), member.move("free.md", "locked/in/free.md")})
        EXPECT_EQ(line(answer), "403 FORBIDDEN_SUBTREE");
    EXPECT_EQ(member.putText("locked/out.md", "x").status, 200);
    EXPECT_EQ(member.putText("locked/inner.md", "x").status, 200);
    EXPECT_EQ(member.content("locked/in/a.md"), "a");
}

TEST_F(LimitedApi, RefusesWhatIsTooLargeBeforeItIsSentAndAMissingDelete) {
    EXPECT_EQ(member.uploadBlob(std::string(1000, 'x')).status, 200);
    EXPECT_EQ(member.uploadBlob(std::string(1001, 'x')).code(), "TOO_LARGE");
    EXPECT_EQ(member.uploadBlob(std::string(20'000'000, 'x')).status, 413);
    EXPECT_EQ(member.putText("a.md", std::string(1001, 'x')).status, 413);
    EXPECT_EQ(member.putText("a.md", "small").status, 200);
    EXPECT_EQ(line(member.remove("nothing")), "404 NOT_FOUND");
}

}  // namespace
}  // namespace vorlinden::tests
