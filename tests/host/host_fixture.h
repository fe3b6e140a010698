// A host on a fake machine, before a fake server.
#pragma once

#include <string>

#include <gtest/gtest.h>

#include "linux/host/workspace.h"
#include "synckit/conflicts/conflict_spool.h"
#include "synckit/container/app_group.h"
#include "tests/host/fake_server.h"
#include "tests/support/catalogue.h"
#include "tests/support/fake_system.h"

namespace vorlinden::tests {

class HostTest : public testing::Test {
 protected:
    FakeSystem machine;
    FakeServer server{*machine.session};
    const platform::Folders folders{machine.folder / "data", machine.folder / "config",
                                    machine.folder / "state", machine.folder / "cache"};

    HostTest() { machine.defaults->set(AppGroup::baseURLOverrideKey, "https://sync.test"); }

    host::WorkspaceRef open() { return host::Workspace::open(machine.system(), folders); }

    // With tokens and a device, as after a sign-in.
    host::WorkspaceRef openSignedIn() {
        auto workspace = open();
        workspace->tokenStore->save({"access", "refresh"});
        workspace->store->setMeta("client-1", MetaKey::clientId);
        workspace->store->setMeta("device-1", MetaKey::deviceId);
        workspace->store->setMeta("Test Machine", MetaKey::deviceName);
        return workspace;
    }

    // The outcome of a task that pauses now and then.
    template <class Body>
    auto through(Body body) {
        auto task = machine.loop.start(std::move(body));
        for (int i = 0; i < 1000 && !task.done(); ++i)
            machine.advance(std::chrono::milliseconds(100));
        return task.result();
    }

    // A row with its bytes, as an offline write leaves them.
    std::int64_t journal(const host::WorkspaceRef& workspace, PendingChange row, const std::string& bytes) {
        row.baseCursor = workspace->store->cursor(row.brainId);
        const auto id = workspace->store->enqueue(row);
        ConflictSpool::inAppGroup(machine.system()).writeNewEdit(Data::copyOf(bytes), id);
        return id;
    }
    std::int64_t journal(const host::WorkspaceRef& workspace, const UUID& brain, PendingChangeKind kind,
                         const std::string& path, const std::string& bytes) {
        return journal(workspace, pendingChange(brain, kind, path), bytes);
    }

    // A brain whose first answer is a snapshot of these files, and that has nothing more.
    UUID addBrain(std::uint8_t number, const std::string& slug, std::vector<std::string> files) {
        const auto id = numberedUUID(number);
        server.brains[id] = {slug, [files](const std::string& cursor) {
                                 return cursor.empty() ? FakeServer::snapshot(files, "head")
                                                       : FakeServer::nothingNew("head");
                             }};
        return id;
    }
};

}  // namespace vorlinden::tests
