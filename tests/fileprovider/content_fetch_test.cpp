#include <cerrno>

#include "synckit/conflicts/conflict_spool.h"
#include "tests/fileprovider/extension_fixture.h"

namespace vorlinden::tests {
namespace {

const Error cancelled = fileprovider::userCancelledError();
const Error noSuchItem = providerError(protocol::noSuchItem);
const Error unreachable = providerError(protocol::serverUnreachable);

class ContentFetch : public ExtensionFixture {
 protected:
    ContentFetch() { addBrain(); }

    NodeRecord localNode(const std::string& path) {
        NodeRecord node = fileNode(brain, path, "local:" + path);
        node.localOnly = true;
        return node;
    }
    ConflictSpool spool() {
        return ConflictSpool(machine->files, AppGroup::spoolDirectory(machine->system()));
    }
    std::unique_ptr<platform::LockFile> takeLock() {
        auto lock = machine->files->openLockFile(AppGroup::syncExecutionLockURL(machine->system()));
        EXPECT_EQ(lock->tryLock(), 0);
        return lock;
    }
    void expectFailure(const Heard& heard, const Error& error) {
        EXPECT_EQ(heard.calls, 1);
        EXPECT_EQ(heard.error, error);
        EXPECT_EQ(heard.file, std::nullopt);
        EXPECT_EQ(heard.item, std::nullopt);
        EXPECT_EQ(extension().operationsInFlight(), 0u);
    }
    std::size_t temporaryFiles() {
        const auto folder = machine->manager->temporaryDirectory();
        return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
    }
};

TEST_F(ContentFetch, DeliversTextAsItsBytesWithTheItemTheyBelongTo) {
    const ItemIdentifier file = add(fileNode(brain, "Notes/Plan.v2.md"));
    answerText("Gr\\u00fc\\u00dfe\\n");
    const auto heard = fetch(file);
    ASSERT_EQ(heard->error, std::nullopt);
    EXPECT_EQ(heard->calls, 1);
    EXPECT_EQ(contentOf(*heard->file), "Gr\u00fc\u00dfe\n");
    EXPECT_EQ(heard->item, lookUp(file)->item);

    EXPECT_EQ(heard->file->parent_path(), machine->manager->temporaryDirectory());
    EXPECT_EQ(heard->file->extension(), ".md");
    const auto name = heard->file->stem().string();
    EXPECT_EQ(UUID::parse(name).value_or(UUID()).upperText(), name);
    EXPECT_EQ(heard->progress->completedUnitCount(), 1);
    EXPECT_EQ(extension().operationsInFlight(), 0u);

    const auto request = machine->session->requests().at(0);
    EXPECT_EQ(request.url.encodedPath(), "/api/sync/brains/" + brain.lowerText() + "/file");
    EXPECT_EQ(request.url.encodedQuery(), "path=Notes%2FPlan.v2.md&at=cursor-1");
}

TEST_F(ContentFetch, DeliversBlobsAndCountsThemInBytes) {
    NodeRecord blob = fileNode(brain, "picture");
    blob.kind = NodeKind::blob;
    blob.blobSize = 5;
    const ItemIdentifier file = add(blob);
    answerBlob(std::string("\0\xff\n\r\0", 5));
    const auto heard = fetch(file);
    ASSERT_EQ(heard->error, std::nullopt);
    EXPECT_EQ(contentOf(*heard->file), std::string("\0\xff\n\r\0", 5));
    EXPECT_FALSE(heard->file->has_extension());
    EXPECT_EQ(heard->progress->totalUnitCount(), 5);
    EXPECT_EQ(heard->progress->completedUnitCount(), 5);

    for (const std::int64_t size : {0, 1, -3}) {
        blob.blobSize = size;
        add(blob);
        answerBlob("");
        EXPECT_EQ(fetch(file)->progress->totalUnitCount(), 1) << size;
    }
}

TEST_F(ContentFetch, AnExtensionThatNoFileNameCanHoldIsLeftOut) {
    const ItemIdentifier file = add(fileNode(brain, "a." + std::string(250, 'x')));
    answerText("here");
    const auto heard = fetch(file);
    ASSERT_EQ(heard->error, std::nullopt);
    EXPECT_FALSE(heard->file->has_extension());
}

TEST_F(ContentFetch, WhatExistsOnlyHereComesFromTheSpool) {
    const ItemIdentifier file = add(localNode("draft.txt"));
    expectFailure(*fetch(file), unreachable);  // no bytes anywhere: not an empty file
    spool().write(Data::copyOf("mine"), ConflictSpool::nodeKey("local:draft.txt"));
    const auto heard = fetch(file);
    ASSERT_EQ(heard->error, std::nullopt);
    EXPECT_EQ(contentOf(*heard->file), "mine");
    EXPECT_TRUE(machine->session->requests().empty());
}

TEST_F(ContentFetch, WhatIsNoFileOrCannotBeHadIsNoSuchItem) {
    for (const ItemIdentifier& identifier :
         {protocol::rootContainerItemIdentifier, protocol::workingSetContainerItemIdentifier,
          SyncItemIdentifier::brain(brain).rawValue(), add(folderNode(brain, "Notes")),
          SyncItemIdentifier::node(brain, "unknown").rawValue(), ItemIdentifier("nonsense")}) {
        const auto heard = fetch(identifier);
        expectFailure(*heard, noSuchItem);
        EXPECT_EQ(heard->progress->completedUnitCount(), 1) << identifier;
    }
    const ItemIdentifier file = add(fileNode(brain, "a"));
    catalogue().setCursor(std::nullopt, brain);
    expectFailure(*fetch(file), noSuchItem);
    EXPECT_TRUE(machine->session->requests().empty());
}

TEST_F(ContentFetch, FailuresOfServerAndNetworkAreMapped) {
    const ItemIdentifier file = add(fileNode(brain, "a"));
    answerError(404, "GONE");
    expectFailure(*fetch(file), noSuchItem);
    answerError(500, "INTERNAL");
    expectFailure(*fetch(file), unreachable);
    machine->session->answer(URLError(URLError::Code::timedOut));
    expectFailure(*fetch(file), unreachable);
    machine->session->answer(FakeURLSession::response(200, "<html>", {{"Content-Type", "text/html"}}));
    expectFailure(*fetch(file), unreachable);
    answerError(401, "UNAUTHENTICATED");  // and no client id with which to refresh
    answerError(404, "unknown");
    const auto refused = fetch(file);
    EXPECT_EQ(refused->calls, 1);
    EXPECT_NE(refused->error, std::nullopt);
}

TEST_F(ContentFetch, AFileThatCantBeWrittenIsDeliveredToNobody) {
    const ItemIdentifier file = add(fileNode(brain, "a"));
    machine->files->failOn(FileOperation::write, ENOSPC);
    answerText("too much");
    expectFailure(*fetch(file), unreachable);
    EXPECT_EQ(temporaryFiles(), 0u);
}

TEST_F(ContentFetch, WithoutAManagerThereIsNowhereToPutIt) {
    const ItemIdentifier file = add(fileNode(brain, "a"));
    auto system = machine->system();
    system.managerForDomain = [](const auto&) { return nullptr; };
    fileprovider::FileProviderExtension homeless(domain, system);
    answerText("bytes");
    std::optional<Error> heard;
    homeless.fetchContents(file, {}, {}, [&](auto, auto, auto error) { heard = std::move(error); });
    machine->loop.runUntilIdle();
    EXPECT_EQ(heard, providerError(protocol::cannotSynchronize));
}

TEST_F(ContentFetch, BytesAndItemAreOfOneMomentWhateverHappensMeanwhile) {
    NodeRecord node = fileNode(brain, "old name.md");
    const ItemIdentifier file = add(node);
    machine->session->hold();
    answerText("version 1");
    const auto heard = fetch(file);
    EXPECT_EQ(heard->calls, 0);
    takeLock();  // the download leaves the lock to others
    node.path = "new name.txt";
    node.contentVersion = 2;
    add(node);
    machine->session->release();
    machine->loop.runUntilIdle();
    ASSERT_EQ(heard->error, std::nullopt);
    EXPECT_EQ(heard->item->filename, "old name.md");
    EXPECT_EQ(heard->item->itemVersion.contentVersion, Data::copyOf("1"));
}

TEST_F(ContentFetch, ANodeThatGoesWhileTheLockIsWaitedForIsNoSuchItem) {
    const ItemIdentifier file = add(fileNode(brain, "a"));
    auto lock = takeLock();
    const auto heard = fetch(file);
    catalogue().deleteNode(brain, "id:a");
    lock.reset();
    machine->advance(std::chrono::milliseconds(20));
    expectFailure(*heard, noSuchItem);
}

// The three places at which a fetch waits; at each of them it can be given up in every way there is.
class GivenUp : public ContentFetch, public testing::WithParamInterface<std::string> {
 protected:
    std::shared_ptr<Heard> fetchUntilItWaits() {
        const ItemIdentifier file = add(fileNode(brain, "a"));
        if (GetParam() == "for the lock") lock_ = takeLock();
        if (GetParam() == "for the refreshed token") refuseTokenThenHold();
        if (GetParam() == "for the download") {
            machine->session->hold();
            answerText("late");
        }
        auto heard = fetch(file);
        EXPECT_EQ(heard->calls, 0);
        EXPECT_EQ(extension().operationsInFlight(), 1u);
        return heard;
    }

 private:
    // The download is refused at once; the refresh that this leads to waits.
    void refuseTokenThenHold() {
        catalogue().setMeta("client-1", MetaKey::clientId);
        machine->session->setHandler([session = machine->session.get()](const auto&) {
            session->hold();
            return FakeURLSession::response(401, "");
        });
    }

    std::unique_ptr<platform::LockFile> lock_;
};

TEST_P(GivenUp, ByItsProgress) {
    const auto heard = fetchUntilItWaits();
    heard->progress->cancel();
    heard->progress->cancel();
    machine->loop.runUntilIdle();
    expectFailure(*heard, cancelled);
}

TEST_P(GivenUp, ByInvalidateAndLaterFetchesAreServed) {
    const auto heard = fetchUntilItWaits();
    extension().invalidate();
    EXPECT_EQ(extension().operationsInFlight(), 0u);
    machine->loop.runUntilIdle();
    expectFailure(*heard, cancelled);
}

TEST_P(GivenUp, ByDroppingTheExtension) {
    const auto heard = fetchUntilItWaits();
    dropExtension();
    machine->loop.runUntilIdle();
    EXPECT_EQ(heard->calls, 1);
    EXPECT_EQ(heard->error, cancelled);
    heard->progress->cancel();
}

TEST_P(GivenUp, ByTheEndOfTheMachine) {
    const auto heard = fetchUntilItWaits();
    dropExtension();
    machine.reset();  // tasks are destroyed where they stand
    EXPECT_EQ(heard->calls, 1);
    EXPECT_EQ(heard->error, cancelled);
}

INSTANTIATE_TEST_SUITE_P(WhileItWaits, GivenUp,
                         testing::Values("for the lock", "for the refreshed token", "for the download"),
                         [](const auto& place) {
                             std::string name = place.param;
                             std::erase(name, ' ');
                             return name;
                         });

TEST_F(ContentFetch, CancellingWhatHasEndedDoesNothing) {
    const ItemIdentifier file = add(fileNode(brain, "a"));
    answerText("done");
    const auto heard = fetch(file);
    heard->progress->cancel();
    extension().invalidate();
    machine->loop.runUntilIdle();
    EXPECT_EQ(heard->calls, 1);
    EXPECT_EQ(heard->error, std::nullopt);
}

}  // namespace
}  // namespace vorlinden::tests
