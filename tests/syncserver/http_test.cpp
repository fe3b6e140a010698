// The wire itself: connections, garbage, faults on order, and the administrator's door.
#include <thread>

#include <gtest/gtest.h>

#include "linux/server/admin_api.h"
#include "linux/server/admin_client.h"
#include "linux/server/storage.h"
#include "platform/files.h"
#include "tests/syncserver/member.h"

namespace vorlinden::tests {
namespace {

using server::Fault;

struct Wire : testing::Test {
    RunningServer running;
    Member member{running.server->url()};
    const std::string auth = "Host: localhost\r\nAuthorization: Bearer " + member.accessToken + "\r\n";
    std::filesystem::path data = running.folder / "data";
};

TEST_F(Wire, GarbageGetsAnAnswerOrTheDoor) {
    for (const std::string& bytes :
         {std::string("\0\1\2\3\r\n\r\n", 8), std::string("GET / HTTP/9.9\r\n\r\n"),
          std::string(100'000, 'x'),
          "GET / HTTP/1.1\r\nHost: localhost\r\nContent-Length: x\r\n\r\n" + std::string(10, 'y'),
          "GET /" + std::string(70'000, 'a') + " HTTP/1.1\r\n\r\n"}) {
        const auto answer = member.http.exchangeBytes(bytes);
        EXPECT_TRUE(answer.starts_with("HTTP/1.1 400")) << answer.substr(0, 40);
    }
    EXPECT_EQ(member.http.exchangeBytes("POST /oauth/token HTTP/1.1\r\nContent-Length: 50\r\n\r\nhalf"), "");
    EXPECT_EQ(member.http.exchangeBytes(""), "");
    for (const std::string target :
         {"/%", "/%ff%00", "//", "/api/sync/brains/%2e%2e/file", "*", "/api/sync/devices/../x"}) {
        const auto answer = member.http.exchangeBytes("GET " + target + " HTTP/1.1\r\n" + auth + "\r\n");
        EXPECT_TRUE(answer.starts_with("HTTP/1.1 4")) << target;
    }
    EXPECT_EQ(member.send("GET", "/api/sync/brains").status, 200);
}

TEST_F(Wire, RequestsFollowOneAnotherOnAConnection) {
    const auto pipelined =
        member.http.exchangeBytes("GET /api/sync/brains HTTP/1.1\r\n" + auth +
                                  "\r\nGET /api/sync/devices HTTP/1.1\r\n" + auth + "\r\n");
    EXPECT_NE(pipelined.find("\"brains\""), std::string::npos);
    EXPECT_NE(pipelined.find("\"devices\""), std::string::npos);

    const auto target = "POST /api/sync/brains/" + member.brainId + "/blobs?deviceId=" + member.deviceId;
    const auto chunked =
        member.http.exchangeBytes(target + " HTTP/1.1\r\n" + auth +
                                  "Transfer-Encoding: chunked\r\nExpect: 100-continue\r\n\r\n"
                                  "3\r\nabc\r\n2\r\nde\r\n0\r\n\r\n");
    EXPECT_TRUE(chunked.starts_with("HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200"));
    EXPECT_NE(chunked.find("\"size\":5"), std::string::npos);
}

TEST_F(Wire, FaultsHitWhatTheyNameAndAreUsedUp) {
    Fault fault;
    fault.response = server::Response::json("not JSON", 503);
    fault.method = "PUT";
    fault.targetContains = "/file";
    fault.skip = 1;
    fault.times = 2;
    running.server->faults().add(fault);
    for (const int expected : {200, 503, 503, 200}) {
        member.file("a.md", "x");
        EXPECT_EQ(member.putText("a.md", "x").status, expected);
    }
    const auto lose = [&](Fault::Kind kind, const char* text) {
        Fault lost;
        lost.kind = kind;
        lost.method = "PUT";
        running.server->faults().add(lost);
        EXPECT_THROW(member.putText("a.md", text), platform::URLError);
    };
    lose(Fault::Kind::dropBefore, "never arrives");
    EXPECT_EQ(member.content("a.md"), "x");
    lose(Fault::Kind::dropAfter, "answer lost");
    EXPECT_EQ(member.content("a.md"), "answer lost");
}

TEST_F(Wire, AdministratorActsThroughTheFolderOfTheServer) {
    const auto file = running.folder / "content";
    platform::posixFileSystem()->writeAtomically(Data("from a file"), file);
    server::askServer(data, "put", {{"slug", "docs"}, {"path", "a b.md"}, {"title", "T"}}, file);
    server::askServer(data, "mv", {{"slug", "docs"}, {"path", "a b.md"}, {"to", "\xC3\xA9.md"}});
    EXPECT_EQ(member.content("\xC3\xA9.md"), "from a file");
    EXPECT_EQ(member.snapshot().snapshot.at(0).title, "T");
    server::askServer(data, "fault", {{"status", "418"}, {"times", "1"}});
    EXPECT_EQ(member.send("GET", "/api/sync/brains").status, 418);

    EXPECT_THROW(server::askServer(data, "rm", {{"slug", "docs"}, {"path", "nothing"}}),
                 server::AdminFailure);
    EXPECT_THROW(server::askServer(data, "fault", {{"times", "many"}}), server::AdminFailure);

    EXPECT_EQ(member.send("POST", "/admin/revoke?slug=docs").status, 401) << "nobody else may";
    const auto permissions = std::filesystem::status(data / "admin").permissions();
    EXPECT_EQ(permissions, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST_F(Wire, ManyMembersWriteAtOnceAndEveryEntryIsThere) {
    const auto start = member.head();
    constexpr int writers = 4;
    constexpr int writes = 25;
    std::vector<std::jthread> threads;
    for (int writer = 0; writer < writers; ++writer) {
        threads.emplace_back([&, writer] {
            Member other(running.server->url());
            for (int count = 0; count < writes; ++count) {
                other.putText("w" + std::to_string(writer) + "/" + std::to_string(count), "x");
                other.changesAnswer(start);
            }
        });
    }
    threads.clear();
    EXPECT_EQ(member.changes(start).entries.size(), std::size_t{writers * writes});
    EXPECT_EQ(member.snapshot().snapshot.size(), std::size_t{writers * writes});
}

TEST(ServerStart, RefusesAFolderInUseAndAnAddressOfTheNetwork) {
    RunningServer running;
    server::ServerOptions options{.data = running.folder / "data"};
    EXPECT_THROW(server::SyncServer{options}, server::DataFolderInUse);
    options = {.data = running.folder / "other", .address = "0.0.0.0"};
    EXPECT_THROW(server::SyncServer{options}, platform::Failure);
}

}  // namespace
}  // namespace vorlinden::tests
