#include <atomic>
#include <random>
#include <thread>

#include <sys/stat.h>

#include "tests/mount/content_store_fixture.h"

namespace vorlinden::tests {
namespace {

class ContentStoreTest : public ContentStoreFixture {};

TEST_F(ContentStoreTest, FetchesOnceAndKeepsForEveryLaterReader) {
    const Item item = put(textItem("a"), "hello");
    EXPECT_FALSE(isHere(item));
    EXPECT_EQ(store().knownSize(item), std::nullopt);
    const auto first = open(item);
    EXPECT_EQ(first->text(), "hello");
    EXPECT_EQ(first->calls, 1);
    EXPECT_EQ(open(item)->text(), "hello");
    EXPECT_EQ(bytesOf(*store().openIfHere(item)), "hello");
    EXPECT_EQ(store().knownSize(item), 5u);
    EXPECT_EQ(fetches(), 1u);
    EXPECT_TRUE(filesBelow(temporary).empty());  // the file was taken over
    EXPECT_EQ(reached, std::vector{Reachability::reachable});

    struct stat status {};
    ASSERT_EQ(::fstat(first->content->descriptor(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    ASSERT_EQ(::stat(options.folder.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700u);
}

TEST_F(ContentStoreTest, OneFetchServesAllWhoWaitMeanwhile) {
    extension->hold();
    const Item item = put(textItem("a"), "shared");
    const auto one = open(item);
    const auto two = open(item);
    EXPECT_TRUE(store().isFetching("a"));
    EXPECT_FALSE(store().isFetching("b"));
    extension->release();
    EXPECT_EQ(one->text() + two->text(), "sharedshared");
    EXPECT_EQ(fetches(), 1u);
    EXPECT_FALSE(store().isFetching("a"));
}

TEST_F(ContentStoreTest, BytesBelongToTheVersionThatCameWithThem) {
    const Item old = textItem("a", 1);
    const Item current = put(textItem("a", 2), "second");
    extension->hold();
    const auto asksOld = open(old);
    const auto asksCurrent = open(current);
    extension->answer("a");
    EXPECT_EQ(asksOld->content->item(), current);
    EXPECT_EQ(asksCurrent->text(), "second");  // served by the other's fetch
    machine.loop.runUntilIdle();
    EXPECT_EQ(extension->waiting(), 0u);  // and its own given up
    EXPECT_FALSE(isHere(old));
    EXPECT_TRUE(isHere(current));
    EXPECT_TRUE(failed.empty());
}

TEST_F(ContentStoreTest, ContentAndSizesOutliveARestart) {
    const Item item = put(textItem("a"), "kept");
    read(item);
    close();
    EXPECT_EQ(store().knownSize(item), 4u);
    EXPECT_EQ(read(item), "kept");
    EXPECT_EQ(fetches(), 1u);
    // The same counter on another day is another life of the item.
    Item reborn = item;
    reborn.contentModificationDate = platform::Timestamp(milliseconds(1));
    EXPECT_FALSE(isHere(reborn));
    EXPECT_EQ(store().knownSize(reborn), std::nullopt);
}

TEST_F(ContentStoreTest, WhatIsBrokenInTheFolderIsFetchedAgain) {
    const Item cut = put(textItem("cut"), "whole"), whole = put(textItem("whole"), "fine");
    read(cut);
    const auto file = filesBelow(options.folder / "contents").at(0);
    read(whole);
    close();
    std::filesystem::resize_file(file, 2);
    std::ofstream(options.folder / "contents/garbage") << "?";
    std::filesystem::create_directories(options.folder / "contents/folder/below");
    EXPECT_EQ(read(cut), "whole");
    EXPECT_EQ(read(whole), "fine");
    EXPECT_EQ(fetches(), 3u);
    EXPECT_EQ(filesBelow(options.folder / "contents").size(), 2u);

    close();
    std::ofstream(options.folder / "sizes") << std::string(1000, 'x');
    EXPECT_EQ(store().knownSize(whole), std::nullopt);
    EXPECT_EQ(read(whole), "fine");
    EXPECT_EQ(fetches(), 4u);
    close();
    EXPECT_TRUE(isHere(whole));
}

TEST_F(ContentStoreTest, AFolderDeletedUnderTheStoreCostsOnlyFetching) {
    const Item item = put(textItem("a"), "again");
    const auto held = open(item);
    std::filesystem::remove_all(options.folder);
    EXPECT_EQ(held->text(), "again");
    held->content.reset();
    EXPECT_FALSE(isHere(item));
    EXPECT_EQ(read(item), "again");
    EXPECT_TRUE(isHere(item));
    EXPECT_EQ(fetches(), 2u);
}

TEST_F(ContentStoreTest, ContentIsServedEvenWhereItCantBeKept) {
    const Item item = put(textItem("a"), "fleeting");
    store();
    std::filesystem::remove_all(options.folder);
    std::ofstream(options.folder) << "in the way";
    const auto outcome = open(item);
    EXPECT_EQ(outcome->text(), "fleeting");
    EXPECT_TRUE(filesBelow(temporary).empty());
    EXPECT_FALSE(isHere(item));
}

TEST_F(ContentStoreTest, TheOldestGoesFirstAndNeverWhileItIsOpen) {
    options.maximumBytes = 10;
    const Item a = put(textItem("a"), "aaaa"), b = put(textItem("b"), "bbbb"), c = put(textItem("c"), "cccc");
    read(a);
    read(b);
    EXPECT_TRUE(isHere(a));  // now younger than b
    read(c);
    EXPECT_FALSE(isHere(b));
    EXPECT_EQ(store().knownSize(b), 4u);

    auto held = open(a);
    auto alsoHeld = open(c);
    const auto third = open(b);
    EXPECT_TRUE(isHere(a) && isHere(b) && isHere(c));  // all open: over the limit for a while
    held.reset();
    EXPECT_FALSE(isHere(a));
    EXPECT_TRUE(isHere(b) && isHere(c));
}

TEST_F(ContentStoreTest, AgesOutliveARestart) {
    const Item a = put(textItem("a"), "aaaa"), b = put(textItem("b"), "bbbb"), c = put(textItem("c"), "cccc");
    for (const Item& item : {a, b, c, a}) {
        read(item);
        machine.advance(std::chrono::minutes(2));
    }
    close();
    options.maximumBytes = 8;
    EXPECT_FALSE(isHere(b));
    EXPECT_TRUE(isHere(a) && isHere(c));
}

TEST_F(ContentStoreTest, AChangeDropsOtherVersionsAndBringsTextBack) {
    const Item text = put(textItem("text"), "one"), blob = put(blobItem("blob", 3), "one");
    const Item never = textItem("never");
    const auto held = open(text);
    read(blob);
    const Item newText = put(textItem("text", 2), "two"), newBlob = put(blobItem("blob", 3, 2), "two");
    store().itemsChanged({newText, newBlob, put(textItem("never", 2), "x")});
    machine.loop.runUntilIdle();
    EXPECT_FALSE(isHere(text) || isHere(blob) || isHere(newBlob) || isHere(never));
    EXPECT_TRUE(isHere(newText));
    EXPECT_EQ(held->text(), "one");
    EXPECT_EQ(extension->asked(), (std::vector<ItemIdentifier>{"text", "blob", "text"}));

    store().itemsChanged({newText});  // counts as changed, but its content is the same
    EXPECT_TRUE(isHere(newText));
    store().itemsDeleted({"text"});
    EXPECT_FALSE(isHere(newText));
    EXPECT_EQ(store().knownSize(newText), std::nullopt);
    EXPECT_EQ(filesBelow(options.folder / "contents").size(), 0u);
}

TEST_F(ContentStoreTest, WhatIsDeletedWhileItIsFetchedServesThoseWhoWaitAndIsKeptForNobody) {
    extension->hold();
    const Item read = put(textItem("read"), "late"), ahead = put(textItem("ahead"), "late");
    const auto reader = open(read);
    store().fetchAhead({ahead});
    machine.loop.runUntilIdle();
    EXPECT_EQ(extension->waiting(), 2u);
    store().itemsDeleted({"read", "ahead"});
    EXPECT_EQ(extension->waiting(), 1u);
    EXPECT_FALSE(store().isFetching("ahead"));
    extension->release();
    EXPECT_EQ(reader->text(), "late");
    EXPECT_FALSE(isHere(read) || isHere(ahead));
}

TEST_F(ContentStoreTest, AReaderIsLetGoAtOnceAndTheFetchServesTheRest) {
    extension->hold();
    const Item item = put(textItem("a"), "late");
    const auto one = open(item), two = open(item);
    one->wait->cancel();
    EXPECT_EQ(one->failure, Kind::cancelled);
    EXPECT_EQ(extension->waiting(), 1u);
    two->wait->cancel();
    two->wait->cancel();
    EXPECT_EQ(two->calls, 1);
    EXPECT_EQ(extension->waiting(), 0u);  // nobody wants it
    EXPECT_FALSE(store().isFetching("a"));

    const auto three = open(item);
    extension->release();
    EXPECT_EQ(three->text(), "late");
    three->wait->cancel();
    EXPECT_EQ(three->calls, 1);
    EXPECT_TRUE(failed.empty());
}

TEST_F(ContentStoreTest, APassedDeadlineEndsTheWaitButNotTheFetch) {
    extension->hold();
    const Item item = put(textItem("a"), "slow");
    const auto hasty = open(item, seconds(1)), patient = open(item, seconds(5));
    machine.advance(milliseconds(999));
    EXPECT_EQ(hasty->calls, 0);
    machine.advance(milliseconds(1));
    EXPECT_EQ(hasty->failure, Kind::timedOut);
    machine.advance(seconds(4));
    EXPECT_EQ(patient->failure, Kind::timedOut);
    extension->release();
    EXPECT_TRUE(isHere(item));
    EXPECT_EQ(fetches(), 1u);
    EXPECT_EQ(hasty->calls + patient->calls, 2);
    EXPECT_EQ(machine.timers->sleeping(), 0u);
}

TEST_F(ContentStoreTest, ReadersComeBeforeWhatIsFetchedAhead) {
    options.parallelFetches = 4;  // three of them for what nobody waits for
    extension->hold();
    std::vector<Item> ahead;
    for (const char* name : {"1", "2", "3", "4", "5", "6"})
        ahead.push_back(put(textItem(name), name));
    Item folder = textItem("folder");
    folder.contentType = platform::FileType::folder();
    ahead.push_back(folder);
    store().fetchAhead(ahead);
    store().fetchAhead(ahead);
    machine.loop.runUntilIdle();
    EXPECT_EQ(extension->asked(), (std::vector<ItemIdentifier>{"1", "2", "3"}));
    const auto reader = open(put(textItem("r"), "r"));
    const auto promoted = open(ahead[5]);
    const auto other = open(ahead[1]);
    EXPECT_EQ(extension->waiting(), 4u);
    extension->answer("1");
    machine.loop.runUntilIdle();
    extension->release();
    machine.loop.runUntilIdle();
    EXPECT_EQ(extension->asked(), (std::vector<ItemIdentifier>{"1", "2", "3", "r", "6", "4", "5"}));
    EXPECT_EQ(reader->text() + promoted->text() + other->text(), "r62");
}

TEST_F(ContentStoreTest, LargeFilesAreFetchedFewAtATime) {
    extension->hold();
    const auto large = [&](const char* name) { return put(blobItem(name, 200 << 20), name); };
    const auto one = open(large("one")), two = open(large("two")), small = open(put(textItem("s"), "s"));
    EXPECT_EQ(extension->asked(), (std::vector<ItemIdentifier>{"one", "s"}));
    extension->release();
    machine.loop.runUntilIdle();
    EXPECT_EQ(two->text(), "two");
}

TEST_F(ContentStoreTest, FailuresAreToldApart) {
    const struct {
        protocol::ErrorCode code;
        Kind kind;
        Reachability state;
    } table[] = {{protocol::noSuchItem, Kind::gone, Reachability::unknown},
                 {protocol::cannotSynchronize, Kind::extensionFailed, Reachability::unknown},
                 {protocol::notAuthenticated, Kind::signedOut, Reachability::signedOut},
                 {protocol::serverUnreachable, Kind::unreachable, Reachability::unreachable}};
    for (const auto& row : table) {
        extension->fail("a", row.code);
        const auto outcome = open(textItem("a"));
        EXPECT_EQ(outcome->failure, row.kind) << row.code;
        EXPECT_EQ(failed.back(), (std::pair<ItemIdentifier, Kind>{"a", row.kind}));
        EXPECT_EQ(store().reachability(), row.state);
    }
    hasExtension = false;
    EXPECT_EQ(open(textItem("b"))->failure, Kind::extensionFailed);
}

TEST_F(ContentStoreTest, AServerOutOfReachFailsAtOnceUntilAProbeFindsIt) {
    const Item cached = put(textItem("cached"), "here");
    read(cached);
    extension->failAll(protocol::serverUnreachable);
    for (const char* name : {"1", "2", "3"})
        EXPECT_EQ(open(textItem(name))->failure, Kind::unreachable);
    EXPECT_EQ(fetches(), 4u);
    EXPECT_EQ(open(textItem("4"))->failure, Kind::unreachable);
    EXPECT_EQ(fetches(), 4u);  // not even tried
    EXPECT_EQ(read(cached), "here");
    store().fetchAhead({put(textItem("ahead"), "ahead")});

    for (const int pause : {1, 2, 4, 8}) {
        machine.advance(seconds(pause) - milliseconds(1));
        const auto before = fetches();
        machine.advance(milliseconds(1));
        EXPECT_EQ(fetches(), before + 1) << pause;
    }
    extension->failAll({});
    for (const char* name : {"1", "2", "3"})
        put(textItem(name), name);
    machine.advance(seconds(16));
    EXPECT_EQ(reached,
              (std::vector{Reachability::reachable, Reachability::unreachable, Reachability::reachable}));
    EXPECT_TRUE(isHere(textItem("ahead")));  // what was wanted ahead was only put off
    EXPECT_EQ(open(put(textItem("4"), "four"))->text(), "four");
    EXPECT_EQ(machine.timers->sleeping(), 0u);
}

TEST_F(ContentStoreTest, AReaderMayBeTheProbeOnceASecond) {
    extension->failAll(protocol::serverUnreachable);
    for (const char* name : {"1", "2", "3"})
        open(textItem(name));
    machine.clock->advance(seconds(1));
    EXPECT_EQ(open(textItem("4"))->failure, Kind::unreachable);
    EXPECT_EQ(open(textItem("5"))->failure, Kind::unreachable);
    EXPECT_EQ(fetches(), 4u);
    extension->failAll({});
    machine.clock->advance(seconds(1));
    EXPECT_EQ(open(put(textItem("6"), "back"))->text(), "back");
}

TEST_F(ContentStoreTest, NoReaderWaitsForAServerThatSwallowsEverything) {
    extension->hold();
    extension->failAll(protocol::serverUnreachable);
    const auto first = open(textItem("1"), seconds(100));
    machine.clock->advance(seconds(60));
    extension->answer("1");
    EXPECT_EQ(first->failure, Kind::unreachable);
    machine.clock->advance(seconds(60));
    EXPECT_EQ(open(textItem("2"))->failure, Kind::unreachable);
    machine.advance(seconds(1));
    EXPECT_EQ(fetches(), 2u);  // the probe, of what failed
    EXPECT_EQ(open(textItem("1"))->failure, Kind::unreachable);
    EXPECT_EQ(fetches(), 2u);
}

TEST_F(ContentStoreTest, OneFileThatAlwaysFailsKeepsNobodyFromTheOthers) {
    extension->fail("poisoned", protocol::serverUnreachable);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(open(textItem("poisoned"))->failure, Kind::unreachable);
        const auto name = "good" + std::to_string(i);
        EXPECT_EQ(open(put(textItem(name), "fine"))->text(), "fine");
    }
}

TEST_F(ContentStoreTest, ThoseWhoQueueAreToldWhenTheRoadCloses) {
    options.parallelFetches = 1;
    extension->hold();
    extension->failAll(protocol::serverUnreachable);
    std::vector<Outcome> readers;
    for (int i = 0; i < 6; ++i)
        readers.push_back(open(textItem(std::to_string(i))));
    extension->release();
    machine.loop.runUntilIdle();
    for (const Outcome& reader : readers)
        EXPECT_EQ(reader->failure, Kind::unreachable);
    EXPECT_EQ(fetches(), 3u);
}

TEST_F(ContentStoreTest, AfterTheEndOnlyWhatIsHereIsServed) {
    const Item here = put(textItem("here"), "here"), late = put(textItem("late"), "late");
    read(here);
    options.parallelFetches = 1;
    close();
    extension->hold();
    const auto running = open(late), queued = open(put(textItem("queued"), "q"));
    store().shutDown();
    EXPECT_EQ(running->failure, Kind::cancelled);
    EXPECT_EQ(queued->failure, Kind::cancelled);
    machine.loop.runUntilIdle();
    EXPECT_EQ(extension->waiting(), 0u);
    EXPECT_EQ(read(here), "here");
    EXPECT_EQ(open(late)->failure, Kind::cancelled);
    EXPECT_EQ(machine.timers->sleeping(), 0u);
}

TEST_F(ContentStoreTest, WhatIsDeliveredToNobodyIsRemoved) {
    extension->hold();
    extension->ignoreCancels();
    const auto reader = open(put(textItem("a"), "too late"));
    close();
    EXPECT_EQ(reader->failure, Kind::cancelled);
    extension->release();
    EXPECT_TRUE(filesBelow(temporary).empty());
}

TEST(ContentStoreThreads, EveryReaderHearsExactlyOneAnswer) {
    FakeSystem machine;
    platform::TaskPool pool(3);
    auto system = machine.system(pool.executor());
    system.timers = platform::systemTimers();
    const auto extension = std::make_shared<FakeExtension>(machine.folder / "temporary");
    for (int i = 0; i < 20; ++i) {
        const std::string name = std::to_string(i);
        if (i % 5 == 4)
            extension->fail(name, protocol::noSuchItem);
        else
            extension->put(textItem(name), std::string(100, 'x') + name);
    }
    const auto store = mount::openContentStore(
        system, {.folder = machine.folder / "store", .maximumBytes = 500, .parallelFetches = 4},
        {[extension] { return extension; }, [](const auto&, const auto&) {}, [](auto) {}});
    std::atomic<int> asked{0}, answered{0}, wrong{0};
    const auto work = [&](unsigned seed) {
        std::mt19937 random(seed);
        for (int i = 0; i < 200; ++i) {
            const Item item = textItem(std::to_string(random() % 20));
            ++asked;
            const auto wait = store->open(item, seconds(60), [&, item](mount::ContentResult result) {
                ++answered;
                const auto* content = std::get_if<std::shared_ptr<const Content>>(&result);
                if (content && bytesOf(**content) != std::string(100, 'x') + item.itemIdentifier) ++wrong;
            });
            if (random() % 4 == 0) wait->cancel();
            if (random() % 10 == 0) store->itemsDeleted({item.itemIdentifier});
            if (random() % 10 == 0) store->fetchAhead({item});
        }
    };
    {
        std::vector<std::jthread> threads;
        for (unsigned seed = 1; seed <= 3; ++seed)
            threads.emplace_back(work, seed);
    }
    store->shutDown();
    EXPECT_EQ(asked, answered);
    EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace vorlinden::tests
