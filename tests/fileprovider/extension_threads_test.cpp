#include <atomic>
#include <random>
#include <thread>

#include "tests/fileprovider/extension_fixture.h"

namespace vorlinden::tests {
namespace {

class ExtensionThreads : public ExtensionFixture {};

TEST_F(ExtensionThreads, EveryFetchIsAnsweredOnceWhateverIsGivenUpMeanwhile) {
    addBrain();
    std::vector<ItemIdentifier> files;
    for (int i = 0; i < 10; ++i)
        files.push_back(add(fileNode(brain, std::to_string(i) + ".md")));
    machine->session->setHandler([](const auto&) {
        return FakeURLSession::response(200, "bytes", {{"Content-Type", "application/octet-stream"}});
    });
    std::atomic<int> asked{0}, answered{0}, wrong{0};
    {
        platform::TaskPool pool(3);  // joined before the counters are looked at
        auto system = machine->system(pool.executor());
        system.timers = platform::systemTimers();
        fileprovider::FileProviderExtension shared(domain, system);
        const auto work = [&](unsigned seed) {
            std::mt19937 random(seed);
            for (int i = 0; i < 60; ++i) {
                ++asked;
                const auto progress = shared.fetchContents(
                    files[random() % files.size()], {}, {}, [&](auto file, auto, auto error) {
                        ++answered;
                        if (file.has_value() == error.has_value()) ++wrong;
                        if (error && *error != fileprovider::userCancelledError()) ++wrong;
                    });
                if (random() % 3 == 0) progress->cancel();
                if (random() % 20 == 0) shared.invalidate();
            }
        };
        std::vector<std::jthread> threads;
        for (unsigned seed = 1; seed <= 3; ++seed)
            threads.emplace_back(work, seed);
        threads.clear();
    }
    EXPECT_EQ(asked, answered);
    EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace vorlinden::tests
