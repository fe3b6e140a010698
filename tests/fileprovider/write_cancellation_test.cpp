#include "fileprovider/write_frame.h"
#include "synckit/container/sync_execution_owner.h"
#include "synckit/upload/pending_edit_uploader.h"
#include "tests/fileprovider/write_world.h"

namespace vorlinden::tests {
namespace {

struct Scenario {
    const char* act;
    std::deque<std::string> fates;
    const char* readOnly = "none";
};

// The first one waits for the lock, too.
const Scenario scenarios[] = {
    {"create Notes/c new", {}},
    {"create Notes/c ~", {"401 UNAUTHENTICATED"}},
    {"create Notes/c ~", {"ok", "401 UNAUTHENTICATED"}},
    {"create Notes/c new", {}, "Notes/c"},
    {"edit Notes/a ~", {}},
    {"edit Notes/a new", {}, "Notes/a"},
    {"edit Notes/a new 0", {}},
    {"move Notes/a c", {}},
    {"remove Notes/a", {}},
};

class SteppedWrite : public WriteWorld {
 public:
    explicit SteppedWrite(const Scenario& scenario) {
        catalogue().setMeta("client-1", MetaKey::clientId);
        server.fates = scenario.fates;
        server.readOnly = scenario.readOnly;
        if (&scenario == scenarios) {
            otherProcess = openLock();
            EXPECT_EQ(otherProcess->tryLock(), 0);
        }
        written = start(scenario.act);
    }

    // What runs between two waits; the other process lets go of the lock when there is nothing else to do.
    bool step() {
        if (machine->loop.step()) return true;
        if (!otherProcess) return false;
        otherProcess.reset();
        machine->timers->advance(SyncExecutionOwner::pollInterval);
        return true;
    }
    int finish() {
        int steps = 0;
        while (step())
            ++steps;
        return steps;
    }
    // As the host does it when it was woken.
    void drain() {
        const auto core = std::make_shared<fileprovider::ExtensionCore>(domain, machine->system());
        const auto context = fileprovider::makeWriteContext(*core);
        machine->loop.run([&] {
            return PendingEditUploader::drain(machine->system(), context.resolver, context.store,
                                              context.spool, context.deviceId, core->api(),
                                              core->tokenManager(), brain);
        });
    }
    // What a person sees here, and what lies on the server.
    std::string outcome() {
        std::string text;
        for (const auto& node : catalogue().allNodes(brain))
            text += node.path + (node.localOnly ? " here" : "") + (node.uploadError ? " !" : "") + "\n";
        for (const auto& [path, content] : server.files)
            text += path + "=" + content + "\n";
        return text + std::to_string(catalogue().pendingChanges(brain).size()) + " wait";
    }

    WrittenPtr written;
};

TEST(GivenUpWrite, IsAnsweredOnceAndEitherNeverHappenedOrIsFinishedByTheHost) {
    for (const auto& scenario : scenarios) {
        SteppedWrite whole(scenario);
        const int steps = whole.finish();
        ASSERT_EQ(whole.written->error, std::nullopt) << scenario.act;
        EXPECT_GT(steps, 5);
        bool waited = false;
        for (int given = 0; given <= steps; ++given) {
            SteppedWrite world(scenario);
            for (int i = 0; i < given; ++i)
                world.step();
            world.written->progress->cancel();
            world.finish();
            const auto place = std::string(scenario.act) + " after step " + std::to_string(given);
            EXPECT_EQ(world.written->calls, 1) << place;
            EXPECT_EQ(world.extension().operationsInFlight(), 0u) << place;
            const auto& error = world.written->error;
            EXPECT_TRUE(!error || error == fileprovider::userCancelledError()) << place;
            if (error && world.changes().empty()) continue;
            waited = waited || world.outcome() != whole.outcome();
            world.drain();
            EXPECT_EQ(world.outcome(), whole.outcome()) << place;
        }
        EXPECT_TRUE(waited) << scenario.act;
    }
}

TEST(GivenUpWrite, IsAnsweredOnceAlsoWhenItsMachineEnds) {
    for (const auto& scenario : scenarios) {
        for (int given = 0, steps = SteppedWrite(scenario).finish(); given <= steps; ++given) {
            SteppedWrite world(scenario);
            for (int i = 0; i < given; ++i)
                world.step();
            world.dropExtension();
            world.machine.reset();
            EXPECT_EQ(world.written->calls, 1) << scenario.act << given;
        }
    }
}

}  // namespace
}  // namespace vorlinden::tests
