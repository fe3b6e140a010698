// The real program: killed at any point, it comes back with everything it had answered for.
#include <array>
#include <csignal>
#include <cstdio>
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
    ServerProcess last(data);
    const int status = last.end(SIGTERM);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_FALSE(std::filesystem::exists(data / "admin")) << "asked, it ends in order";
}

}  // namespace
}  // namespace vorlinden::tests
