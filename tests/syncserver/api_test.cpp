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
    const auto code = [&](const std::string& from, const std::string& to) {
        const auto answer = member.move(from, to);
        return std::to_string(answer.status) + " " + answer.code();
    };
    EXPECT_EQ(code("gone.md", "b.md"), "404 NOT_FOUND");
    EXPECT_EQ(code("gone.md", "../x"), "404 NOT_FOUND");
    EXPECT_EQ(code("a.md", "b.md"), "409 CONFLICT");
    EXPECT_EQ(code("a.md", "b.md/c.md"), "409 CONFLICT");
    EXPECT_EQ(code("a.md", "a.md/c.md"), "409 CONFLICT");
    EXPECT_EQ(code("a.md", "../x"), "400 INVALID_PATH");
    EXPECT_EQ(code("a.md", ".DS_Store"), "400 INVALID_PATH");
    EXPECT_EQ(code("a.md", "a.md"), "200 ");
    EXPECT_EQ(member.content("a.md"), "a");
    EXPECT_EQ(member.content("b.md"), "b");
}

TEST_F(Api, DeleteTakesAFolderWholeAndSaysWhenNothingWasThere) {
    member.putText("f/a.md", "a");
    member.putText("f/b/c.md", "c");
    member.putText("f-g.md", "kept");
    before = member.head();
    EXPECT_TRUE(SyncJSON::decode<DeleteResult>(member.remove("f").body).deleted);
    EXPECT_EQ(lastOp().value, (Op{Op::Delete{"f"}}.value));
    const auto rest = member.snapshot().snapshot;
    ASSERT_EQ(rest.size(), 1u);
    EXPECT_EQ(rest[0].path, "f-g.md");

    before = member.head();
    const auto missing = member.remove("f");
    EXPECT_EQ(missing.status, 200);
    EXPECT_FALSE(SyncJSON::decode<DeleteResult>(missing.body).deleted);
    EXPECT_TRUE(member.changes(before).entries.empty());
}

TEST_F(Api, RefusesWithStatusAndCode) {
    member.putText("f/a.md", "a");
    Member stranger(running.server->url());
    const auto device = R"({"deviceId":")" + member.deviceId + "\",";
    const std::string digest(64, 'a');
    running.admin().grant("secret");
    running.admin().revoke("secret");

    struct Case {
        const char* what;
        Answer answer;
        int status;
        const char* code;
    };
    const std::vector<Case> cases = {
        {"no device", member.onBrain("PUT", "file", R"({"path":"a","body":""})"), 400, "BAD_REQUEST"},
        {"strange device", member.onBrain("PUT", "file", R"({"deviceId":"x","path":"a","body":""})"), 403,
         "UNKNOWN_DEVICE"},
        {"device asks without being known", member.onBrain("GET", "changes?deviceId=x"), 403,
         "UNKNOWN_DEVICE"},
        {"no content", member.onBrain("PUT", "file", device + R"("path":"a"})"), 400, "BAD_REQUEST"},
        {"garbage", member.onBrain("PUT", "file", "{{"), 400, "BAD_REQUEST"},
        {"deep", member.onBrain("PUT", "file", std::string(100'000, '[')), 400, "BAD_REQUEST"},
        {"no JSON", member.onBrain("PUT", "file", device + R"("path":"a","body":""})", "text/plain"), 415,
         "UNSUPPORTED_MEDIA_TYPE"},
        {"bad path", member.putText("../a", ""), 400, "INVALID_PATH"},
        {"NUL in path", member.onBrain("PUT", "file", device + R"("path":"a\u0000b","body":""})"), 400,
         "INVALID_PATH"},
        {"junk", member.putText("f/.gitkeep", ""), 400, "INVALID_PATH"},
        {"onto a folder", member.putText("f", ""), 409, "CONFLICT"},
        {"below a file", member.putText("f/a.md/b", ""), 409, "CONFLICT"},
        {"NUL in text", member.onBrain("PUT", "file", device + R"("path":"a","body":"x\u0000"})"), 400,
         "NOT_TEXT"},
        {"long text", member.putText("a", std::string(1024 * 1024 + 1, 'x')), 400, "NOT_TEXT"},
        {"unknown blob", member.putBlob("a", digest, 1), 409, "UNKNOWN_BLOB"},
        {"no digest", member.putBlob("a", "../../x", 1), 400, "BAD_REQUEST"},
        {"no such file", member.file("nothing", member.head()), 404, "NOT_FOUND"},
        {"a folder's content", member.file("f", member.head()), 404, "NOT_FOUND"},
        {"unknown cursor", member.file("nothing", "x"), 410, "CURSOR_EXPIRED"},
        {"no such brain", member.send("GET", "/api/sync/brains/x/changes?deviceId=" + member.deviceId), 403,
         "FORBIDDEN"},
        {"no such endpoint", member.onBrain("PATCH", "file"), 404, "NO_SUCH_ENDPOINT"},
        {"no token", member.http.send("GET", "/api/sync/brains"), 401, "UNAUTHENTICATED"},
        {"no token before the body", member.http.send("PUT", "/api/sync/brains/x/file", "{{"), 401,
         "UNAUTHENTICATED"},
        {"another name for this machine",
         member.http.send("GET", "/api/sync/brains", "", {{"Host", "evil.example"}}), 421, "MISDIRECTED"},
    };
    for (const auto& [what, answer, status, code] : cases) {
        EXPECT_EQ(answer.status, status) << what;
        EXPECT_EQ(answer.code(), code) << what;
        EXPECT_FALSE(answer.text("error").size()) << what;
    }
    EXPECT_EQ(member.snapshot().snapshot.size(), 1u);
    EXPECT_EQ(SyncJSON::decode<BrainsEnvelope>(member.send("GET", "/api/sync/brains").body).brains.size(),
              1u);
}

TEST_F(Api, DevicesAreTheMembersOwn) {
    running.clock->advance(std::chrono::minutes(2));
    member.changesAnswer({});
    const auto devices =
        SyncJSON::decode<DevicesEnvelope>(member.send("GET", "/api/sync/devices").body).devices;
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_EQ(devices[0].name, "Desk");
    EXPECT_EQ(devices[0].lastSeenAt, running.clock->now());
    EXPECT_EQ(member.send("POST", "/api/sync/devices", R"({"name":"","platform":"linux"})").status, 400);
}

TEST_F(Api, RevokedBrainIsForbiddenUntilItIsGrantedAgain) {
    member.putText("a.md", "a");
    running.admin().revoke("docs");
    EXPECT_EQ(member.changesAnswer({}).code(), "FORBIDDEN");
    EXPECT_EQ(member.putText("b.md", "b").code(), "FORBIDDEN");
    EXPECT_EQ(member.uploadBlob("x").code(), "FORBIDDEN");
    EXPECT_TRUE(SyncJSON::decode<BrainsEnvelope>(member.send("GET", "/api/sync/brains").body).brains.empty());
    running.admin().grant("docs");
    EXPECT_EQ(member.content("a.md"), "a");
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
          member.move("locked/in/a.md", "a.md"), member.move("free.md", "locked/in/free.md")}) {
        EXPECT_EQ(answer.status, 403);
        EXPECT_EQ(answer.code(), "FORBIDDEN_SUBTREE");
    }
    EXPECT_EQ(member.putText("locked/out.md", "x").status, 200);
    EXPECT_EQ(member.putText("locked/inner.md", "x").status, 200);
    EXPECT_EQ(member.content("locked/in/a.md"), "a");
}

TEST_F(LimitedApi, WhatIsTooLargeIsRefusedBeforeItIsSent) {
    EXPECT_EQ(member.uploadBlob(std::string(1000, 'x')).status, 200);
    EXPECT_EQ(member.uploadBlob(std::string(1001, 'x')).code(), "TOO_LARGE");
    EXPECT_EQ(member.uploadBlob(std::string(20'000'000, 'x')).status, 413);
    EXPECT_EQ(member.putText("a.md", std::string(1001, 'x')).status, 413);
    EXPECT_EQ(member.putText("a.md", "small").status, 200);
}

TEST_F(LimitedApi, MissingDeleteCanBeAnError) {
    EXPECT_EQ(member.remove("nothing").status, 404);
    EXPECT_EQ(member.remove("nothing").code(), "NOT_FOUND");
}

}  // namespace
}  // namespace vorlinden::tests
