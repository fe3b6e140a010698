#include <cerrno>

#include <sys/stat.h>

#include "tests/fileprovider/write_world.h"

namespace vorlinden::tests {
namespace {

class WriteFrame : public testing::Test, public WriteWorld {
 protected:
    ItemIdentifier brainItem() { return SyncItemIdentifier::brain(brain).rawValue(); }
    std::vector<ItemIdentifier> sorted(std::vector<ItemIdentifier> containers) {
        containers.push_back(protocol::workingSetContainerItemIdentifier);
        std::ranges::sort(containers);
        return containers;
    }
};

TEST_F(WriteFrame, ASessionIsAskedForFirstThenTheCatalogueThenTheDevice) {
    const std::vector<std::string> acts = {"create c new", "edit Notes/a new", "remove Notes/a"};
    const auto expectAll = [&](const std::string& text) {
        for (const auto& act : acts)
            EXPECT_EQ(run(act)->text(), text) << act;
    };
    catalogue().setMeta(std::nullopt, MetaKey::deviceId);
    expectAll("error -1000");
    catalogue().setMeta("device-1", MetaKey::deviceId);
    machine->secrets->failAlways(platform::SecretStore::internalError);
    expectAll("error -1000");
    EXPECT_EQ(changes(), "");
    EXPECT_TRUE(machine->session->requests().empty());
}

TEST_F(WriteFrame, WithoutACatalogueNothingCanBeWritten) {
    identifierOf("b");  // the host's own connection is open
    dropExtension();
    const auto container = std::exchange(machine->container, std::nullopt);
    extension();
    machine->container = container;
    for (const auto* act : {"create c new", "edit Notes/a new", "remove Notes/a"})
        EXPECT_EQ(run(act)->text(), "error -2005") << act;
    machine->secrets->failAlways(platform::SecretStore::internalError);
    EXPECT_EQ(run("create c new")->text(), "error -1000");
    EXPECT_EQ(run("edit Notes/a new")->text(), "error -2005");  // its parent is looked up before all else
}

TEST_F(WriteFrame, TheSettingsOfTheHostCountFromTheNextWriteOn) {
    const UUID other = numberedUUID(2);
    catalogue().upsertBrain(brainRecord(other, "zoo"));
    catalogue().setMeta("no UUID", MetaKey::inboxBrainId);
    EXPECT_EQ(run("create /c new")->item->parentItemIdentifier, brainItem());
    catalogue().setMeta(other.upperText(), MetaKey::inboxBrainId);
    EXPECT_EQ(run("create /c new")->item->parentItemIdentifier, SyncItemIdentifier::brain(other).rawValue());
    catalogue().setMeta(std::nullopt, MetaKey::deviceName);
    EXPECT_EQ(run("move Notes/a b")->text(), "b (conflicted copy Mac 2026-03-14) v1");
    for (const auto& id : {brain, other})
        catalogue().deleteBrain(id);
    EXPECT_EQ(run("create /c new")->error,
              providerError(protocol::noSuchItem, UploadPlanError::noInboxBrain().errorDescription()));
}

TEST_F(WriteFrame, TheParentsBeforeAndAfterAreSignalledWhateverCameOfIt) {
    const auto notes = identifierOf("Notes");
    EXPECT_EQ(run("move Notes/a c")->signalled, sorted({notes, brainItem()}));
    server.fates = {"off", "off", "off"};
    EXPECT_EQ(run("create Notes/n new")->signalled, sorted({notes}));
    EXPECT_EQ(run("move c Notes/a")->signalled, sorted({notes, brainItem()}));
    EXPECT_EQ(run("remove c")->signalled, sorted({brainItem()}));
    EXPECT_EQ(run("remove unknown")->signalled, sorted({}));
    EXPECT_EQ(run("create trash:/n new")->signalled, sorted({protocol::trashContainerItemIdentifier}));
}

TEST_F(WriteFrame, WhatTheDiskRefusesLeavesNothingHalfDone) {
    machine->files->failOn(FileOperation::read, EACCES);
    EXPECT_EQ(run("edit Notes/a new")->text(), "error -2005");
    machine->files->failOn(FileOperation::write, ENOSPC);
    EXPECT_EQ(run("create c new; edit Notes/a new")->text(), "error -2005");
    machine->files->failOn(FileOperation::openLock, EMFILE);
    EXPECT_EQ(run("remove Notes/a")->text(), "error -2005");
    machine->files->before = nullptr;
    EXPECT_EQ(changes(), "");
    // The server has it by then, and so has the catalogue; the bytes wait for the next sweep.
    machine->files->failOn(FileOperation::remove, EIO);
    EXPECT_EQ(run("create c new")->text(), "error -2005");
    machine->files->before = nullptr;
    EXPECT_EQ(changes(), "+c = srv:c v1 | +log +srv:c | +server c=new | +spool edit-1=new");
}

class HandedOver : public WriteFrame {
 protected:
    // How often that file was read during the act.
    template <class Act>
    int reads(const std::filesystem::path& file, Act act) {
        int count = 0;
        machine->files->before = [&](FileOperation operation, const std::filesystem::path& path) {
            count += operation == FileOperation::read && path == file ? 1 : 0;
        };
        act();
        machine->loop.runUntilIdle();
        machine->files->before = nullptr;
        return count;
    }
    std::filesystem::path fileOfSize(std::int64_t size) {
        const auto file = fileWith("");
        std::filesystem::resize_file(file, static_cast<std::uintmax_t>(size));
        return file;
    }
};

TEST_F(HandedOver, AFileIsReadOnceAndMayChangeFromThenOn) {
    const auto file = fileWith("new");
    otherProcess = openLock();
    ASSERT_EQ(otherProcess->tryLock(), 0);
    WrittenPtr written;
    EXPECT_EQ(reads(file, [&] { written = create("c", file, {}); }), 1);
    EXPECT_EQ(written->calls, 0);
    std::filesystem::remove(file);
    otherProcess.reset();
    machine->advance(std::chrono::milliseconds(20));
    EXPECT_EQ(written->text(), "c v1");
    EXPECT_EQ(server.files["c"], "new");
    EXPECT_EQ(reads(file, [&] { written = modify("c", "c", 64, file, "1"); }), 0);
    EXPECT_EQ(reads(file, [&] { written = create("D", file, platform::FileType::folder()); }), 0);
    EXPECT_EQ(written->text(), "D v0");
}

TEST_F(HandedOver, AFileOverTheLimitIsReadOnlyWhereItsBytesAreKept) {
    const auto large = fileOfSize(UploadPlanner::maxUploadBytes + 1);
    const std::string tooLarge = "File is too large to sync (limit 100 MB)";
    WrittenPtr written;
    EXPECT_EQ(reads(large, [&] { written = create("c", large, {}); }), 0);
    EXPECT_EQ(written->text(), "c v1 (" + tooLarge + ")");
    EXPECT_EQ(reads(large, [&] { written = modify("b", "b", protocol::contentsField, large, "1"); }), 0);
    EXPECT_EQ(written->text(), "b v1 (" + tooLarge + ")");
    EXPECT_TRUE(machine->session->requests().empty());
    EXPECT_EQ(changes(), "-b = id:b v1 | +b = id:b v1 (" + tooLarge + ") | +c = local:* v1 local-only (" +
                             tooLarge + ") | +log +id:b | +log +local:*");
    // Local-only by now: the bytes stay here, whatever their size.
    EXPECT_EQ(reads(large, [&] { written = modify("c", "c", protocol::contentsField, large, "1"); }), 1);
    const auto key = ConflictSpool::nodeKey(catalogue().nodeByPath(brain, "c")->nodeId);
    EXPECT_EQ(std::filesystem::file_size(spool().directory() / key),
              static_cast<std::uintmax_t>(UploadPlanner::maxUploadBytes + 1));
    const auto justRight = fileOfSize(UploadPlanner::maxUploadBytes);
    ASSERT_EQ(::chmod(justRight.c_str(), 0400), 0);
    EXPECT_EQ(reads(justRight, [&] { written = create("d", justRight, {}); }), 1);
    EXPECT_EQ(written->text(), "d v1");
    EXPECT_EQ(server.files["d"].size(), static_cast<std::size_t>(UploadPlanner::maxUploadBytes));
}

}  // namespace
}  // namespace vorlinden::tests
