// Real folders that become brains, and the second import.
#include <fstream>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "linux/server/folder_walk.h"
#include "linux/server/importer.h"
#include "tests/syncserver/member.h"

namespace vorlinden::tests {
namespace {

namespace fs = std::filesystem;

struct Import : testing::Test {
    void write(const std::string& name, const std::string& bytes) {
        fs::create_directories((source / name).parent_path());
        std::ofstream(source / name, std::ios::binary) << bytes;
    }
    server::ImportReport import() { return running.admin().import("docs", source.path()); }
    std::vector<Op> opsSince(const std::string& cursor) {
        std::vector<Op> ops;
        for (const auto& entry : member.changes(cursor).entries) {
            ops.insert(ops.end(), entry.ops.begin(), entry.ops.end());
        }
        return ops;
    }

    TemporaryFolder source;
    RunningServer running;
    Member member{running.server->url()};
};

TEST_F(Import, SkipsAndCountsWhatCannotBeShared) {
    write("fine.md", "fine");
    write(".DS_Store", "junk");
    write("sub/.gitkeep", "junk");
    write("back\\slash", "x");
    write("latin-\xE9.txt", "x");
    fs::create_symlink("fine.md", source / "link");
    fs::create_symlink("/", source / "root");
    ::mkfifo((source / "pipe").c_str(), 0600);
    const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (source / "socket").string().copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ::close(listener);

    const auto report = import();
    EXPECT_EQ(report.unusableNames, 4);
    EXPECT_EQ(report.links, 2);
    EXPECT_EQ(report.special, 2);
    EXPECT_THROW(running.admin().import("docs", source / "missing"), platform::FileError);
    EXPECT_EQ(member.content("fine.md"), "fine");
}

TEST_F(Import, SecondOneSendsOnlyWhatChanged) {
    write("same.md", std::string(200'000, 'x'));
    write("bom.txt", "\xEF\xBB\xBFtext");
    fs::create_directories(source / "folder" / "inner");  // no file implies it
    write("changed.md", "old");
    write("gone/a.md", "a");
    write("turns", "file");
    import();
    const auto before = member.head();
    EXPECT_EQ(import().unchanged, 5);
    EXPECT_EQ(member.head(), before);
    EXPECT_EQ(member.content("same.md"), std::string(200'000, 'x'));
    EXPECT_EQ(member.content("bom.txt"), "\xEF\xBB\xBFtext");

    write("changed.md", "new");
    write("new.md", "new");
    fs::remove_all(source / "gone");
    fs::remove(source / "turns");
    write("turns/into/folder.md", "f");
    const auto report = import();
    EXPECT_EQ(report.changed, 1);
    EXPECT_EQ(report.added, 2);
    EXPECT_EQ(report.deleted, 3);
    EXPECT_EQ(report.unchanged, 2);
    EXPECT_EQ(opsSince(before),
              (std::vector<Op>{{Op::Delete{"turns"}},
                               {Op::Delete{"gone/a.md"}},
                               {Op::Delete{"gone"}},
                               {Op::Update{"changed.md", {}, {}, true, NodeKind::text}},
                               {Op::Create{"new.md", "new", {}, false, NodeKind::text}},
                               {Op::Create{"turns/into/folder.md", "folder", {}, false, NodeKind::text}}}));
}

TEST_F(Import, LeavesAloneWhatMembersMadeOrChanged) {
    write("edited.md", "old");
    write("edited-and-gone.md", "old");
    write("deleted.md", "old");
    write("f/imported.md", "i");
    import();
    member.putText("edited.md", "member's");
    member.putText("edited-and-gone.md", "member's");
    member.putText("f/added.md", "member's");
    member.putText("taken.md", "member's");
    member.remove("deleted.md");

    write("edited.md", "new");
    write("taken.md", "new");
    fs::remove(source / "edited-and-gone.md");
    fs::remove_all(source / "f");
    EXPECT_EQ(import().kept, 4);  // the three files, and the folder that isn't empty
    for (const auto* path : {"edited.md", "edited-and-gone.md", "f/added.md", "taken.md"}) {
        EXPECT_EQ(member.content(path), "member's") << path;
    }
    EXPECT_EQ(member.file("deleted.md", member.head()).status, 404);
    EXPECT_EQ(member.file("f/imported.md", member.head()).status, 404);
}

TEST(FolderWalk, KnowsNothingOfWhatLiesInAnUnreadableFolder) {
    server::FolderWalk walk;
    walk.unreadable = {"locked", "a/file"};
    for (const auto* path : {"locked", "locked/a/b", "a/file"})
        EXPECT_FALSE(walk.isKnown(path)) << path;
    for (const auto* path : {"a", "lockedup", "a/file.md"})
        EXPECT_TRUE(walk.isKnown(path)) << path;
    walk.unreadable = {""};
    EXPECT_FALSE(walk.isKnown("anything"));
}

}  // namespace
}  // namespace vorlinden::tests
