#include <atomic>
#include <cstdint>
#include <random>
#include <thread>

#include "tests/fileprovider/extension_fixture.h"

namespace vorlinden::tests {
namespace {

// What the server says to whatever is asked of it.
platform::URLResponse anyAnswer(const platform::URLRequest& request) {
    if (request.method == "GET")
        return FakeURLSession::response(200, "bytes", {{"Content-Type", "application/octet-stream"}});
    const auto* text = request.method == "DELETE" ? R"({"deleted":true})"
                                                  : R"({"node":{"nodeId":"n","path":"new"},"cursor":"c"})";
    return FakeURLSession::response(200, text, {{"Content-Type", "application/json"}});
}

class ExtensionThreads : public ExtensionFixture {
 protected:
    std::atomic<int> asked{0}, answered{0}, done{0}, wrong{0};

    void hear(bool succeeded, const std::optional<Error>& error) {
        done += succeeded ? 1 : 0;
        if (succeeded == error.has_value()) ++wrong;
        const bool expected = !error || *error == fileprovider::userCancelledError() ||
                              *error == providerError(protocol::noSuchItem);  // deleted by another thread
        if (!expected) ++wrong;
        ++answered;
        answered.notify_all();
    }
    std::shared_ptr<protocol::Progress> start(fileprovider::FileProviderExtension& shared,
                                              std::uint_fast32_t which, const ItemIdentifier& file) {
        ++asked;
        const auto written = [this](auto item, auto, auto, auto error) { hear(item.has_value(), error); };
        if (which == 0)
            return shared.createItem({SyncItemIdentifier::brain(brain).rawValue(), "new", {}}, 0, contents, 0,
                                     {}, written);
        if (which == 1) {
            Item item;
            item.itemIdentifier = file;
            return shared.modifyItem(item, {}, protocol::contentsField, contents, 0, {}, written);
        }
        if (which == 2)
            return shared.deleteItem(file, {}, 0, {}, [this](auto error) { hear(!error, error); });
        return shared.fetchContents(file, {}, {},
                                    [this](auto path, auto, auto error) { hear(path.has_value(), error); });
    }

    const std::filesystem::path contents = machine->folder / "contents";
};

TEST_F(ExtensionThreads, EveryOperationIsAnsweredOnceWhateverIsGivenUpMeanwhile) {
    addBrain();
    catalogue().setMeta("device-1", MetaKey::deviceId);
    std::ofstream(contents) << "bytes";
    std::vector<ItemIdentifier> files;
    for (int i = 0; i < 100; ++i)
        files.push_back(add(fileNode(brain, std::to_string(i) + ".md")));
    machine->session->setHandler(anyAnswer);
    {
        platform::TaskPool pool(3);  // joined before the counters are looked at
        auto system = machine->system(pool.executor());
        system.timers = platform::systemTimers();
        fileprovider::FileProviderExtension shared(domain, system);
        const auto work = [&](unsigned seed) {
            std::mt19937 random(seed);
            for (int i = 0; i < 60; ++i) {  // the last ones are given up by themselves only
                const auto progress = start(shared, random() % 9, files[random() % files.size()]);
                if (random() % 3 == 0) progress->cancel();
                if (i < 20 && random() % 10 == 0) shared.invalidate();
            }
        };
        std::vector<std::jthread> threads;
        for (unsigned seed = 1; seed <= 3; ++seed)
            threads.emplace_back(work, seed);
        threads.clear();
        for (int soFar = answered; soFar < asked; soFar = answered)
            answered.wait(soFar);
    }
    EXPECT_EQ(asked, answered);
    EXPECT_GT(done, 20);
    EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace vorlinden::tests
