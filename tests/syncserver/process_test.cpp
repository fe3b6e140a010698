// The real program: killed at any point, it comes back with everything it had answered for.
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "linux/server/admin_client.h"
#include "synckit/server/sync_json.h"
#include "tests/syncserver/member.h"

namespace vorlinden::tests {
namespace {

// `vorlinden server` in a process of its own, from its first line of output to its end.
class ServerProcess {
 public:
    explicit ServerProcess(const std::filesystem::path& data) {
        std::array<int, 2> pipe{};
        EXPECT_EQ(::pipe(pipe.data()), 0);
        pid_ = ::fork();
        if (pid_ == 0) {
            ::dup2(pipe[1], STDOUT_FILENO);
            ::close(pipe[0]);
            ::execl(VORLINDEN_PROGRAM, VORLINDEN_PROGRAM, "server", "--data", data.c_str(), "--auto-approve",
                    nullptr);
            ::_exit(127);
        }
        ::close(pipe[1]);
        auto* output = ::fdopen(pipe[0], "r");
        std::array<char, 200> line{};
        EXPECT_NE(std::fgets(line.data(), line.size(), output), nullptr);
        std::fclose(output);
        const std::string text(line.data());
        const std::string prefix = "listening on ";
        EXPECT_TRUE(text.starts_with(prefix)) << text;
        url = text.substr(prefix.size(), text.size() - prefix.size() - 1);
    }
    ~ServerProcess() { end(SIGKILL); }

    int end(int signal) {
        int status = 0;
        if (pid_ > 0) {
            ::kill(pid_, signal);
            ::waitpid(pid_, &status, 0);
        }
        pid_ = 0;
        return status;
    }

    std::string url;

 private:
    pid_t pid_ = 0;
};

TEST(ServerProcess, KilledUnderLoadItKeepsWhatItAnsweredFor) {
    TemporaryFolder folder;
    const auto data = folder / "data";
    std::map<std::string, std::string> answered;  // path to content
    std::optional<Member> member;
    const std::string large(300'000, '\xFF');
    for (int round = 0; round < 5; ++round) {
        ServerProcess process(data);
        if (round == 0) {
            server::askServer(data, "grant", {{"slug", "docs"}});
            member.emplace(process.url);
        } else {
            member->http = PlainClient(process.url);
        }
        const auto head = member->head();
        for (const auto& [path, content] : answered)
            EXPECT_TRUE(member->content(path, head) == content) << path;
        std::jthread killer;
        try {
            for (int count = 0; count < 1000; ++count) {
                const auto path = std::to_string(round) + "/" + std::to_string(count);
                if (count == 20 * (round + 1)) killer = std::jthread([&] { process.end(SIGKILL); });
                if (count % 2 == 0) {
                    if (member->putText(path, path).status == 200) answered[path] = path;
                } else {
                    const auto receipt = SyncJSON::decode<BlobReceipt>(member->uploadBlob(large + path).body);
                    if (member->putBlob(path, receipt.hash, receipt.size).status == 200)
                        answered[path] = large + path;
                }
            }
            ADD_FAILURE() << "the server was never killed";
        } catch (const platform::URLError&) {
        }
    }
    EXPECT_GE(answered.size(), 100u);
}

// The exit status of `vorlinden server-ctl` with these words.
int serverCtl(const std::string& words) {
    const auto command = std::string(VORLINDEN_PROGRAM) + " server-ctl " + words + " 2>/dev/null";
    return WEXITSTATUS(std::system(command.c_str()));
}

TEST(ServerProcess, ObeysServerCtlAndEndsCleanly) {
    TemporaryFolder folder;
    ServerProcess process(folder / "data");
    const auto data = " --data " + (folder / "data").string() + " ";
    EXPECT_EQ(serverCtl("grant" + data + "docs"), 0);
    Member member(process.url);
    EXPECT_EQ(serverCtl("put" + data + "docs:f/a.md " + VORLINDEN_PROGRAM), 0);
    EXPECT_EQ(serverCtl("mv" + data + "docs:f/a.md docs:f/b"), 0);
    EXPECT_EQ(serverCtl("mkdir" + data + "docs:empty"), 0);
    EXPECT_EQ(serverCtl("reset" + data + "docs --folders"), 0);
    EXPECT_EQ(member.snapshot().snapshot.size(), 3u);
    EXPECT_EQ(member.content("f/b").size(), std::filesystem::file_size(VORLINDEN_PROGRAM));
    EXPECT_EQ(serverCtl("rm" + data + "docs:f/b"), 0);
    EXPECT_EQ(serverCtl("rm" + data + "docs:f/b"), 1);
    EXPECT_EQ(serverCtl("rm" + data + "docs"), 2);
    EXPECT_EQ(serverCtl("fault" + data + "--status 418 --method GET"), 0);
    EXPECT_EQ(member.changesAnswer({}).status, 418);
    EXPECT_EQ(serverCtl("revoke" + data + "docs"), 0);
    EXPECT_EQ(member.changesAnswer({}).code(), "FORBIDDEN");
    EXPECT_EQ(serverCtl("sign-out" + data), 0);
    EXPECT_EQ(member.changesAnswer({}).status, 401);
    const int status = process.end(SIGTERM);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_FALSE(std::filesystem::exists(folder / "data" / "admin"));
}

}  // namespace
}  // namespace vorlinden::tests
