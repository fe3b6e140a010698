#include <atomic>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include "synckit/upload/conflict_copy_uploader.h"
#include "synckit/upload/pending_edit_uploader.h"
#include "synckit/upload/waiting_changes.h"
#include "tests/upload/upload_world.h"

namespace vorlinden::tests {
namespace {

// The parts of `text` between single characters, without blanks at either end.
Lines split(const std::string& text, char at) {
    Lines parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, at);) {
        const auto first = part.find_first_not_of(' ');
        if (first != std::string::npos)
            parts.push_back(part.substr(first, part.find_last_not_of(' ') - first + 1));
    }
    return parts;
}

template <class Result>
std::string line(const Result& result, const char* third) {
    const auto* rejected = std::get_if<typename Result::Rejected>(&result.value);
    const Lines names{"rejected: " + (rejected ? rejected->message : ""), "uploaded", third, "retryLater"};
    return names.at(result.value.index());
}
std::string line(const PendingEditUploader::Result& result) {
    return line(result, "bounced");
}
std::string line(const ConflictCopyUploader::Result& result) {
    return line(result, "noWriteAccess");
}

// The files f and d/g are known and on the server.
class World : public UploadWorld {
 public:
    World() {
        catalogue->inTransaction([&] {
            givenFile("f", "F");
            givenFolder("d");
            givenFile("d/g", "G");
        });
        server = {{"f", "old"}, {"d/g", "old"}};
    }

    // Rows of the journal, and what else there is, in words; see the tables below.
    void given(const std::string& words) {
        catalogue->inTransaction([&] {
            for (const auto& sentence : split(words, ','))
                givenOne(split(sentence, ' '));
        });
    }

    template <class Operation>
    auto start(Operation operation, std::optional<UUID> ofBrain = {}) {
        return machine.loop.start([=, this] {
            return operation(machine.system(), resolver, catalogue.store(), spool, "device", api,
                             tokenManager, ofBrain);
        });
    }
    Lines drain(std::optional<UUID> ofBrain = {}) {
        return linesOf(start(PendingEditUploader::drain, ofBrain).result());
    }
    Lines drainCopies() { return linesOf(start(ConflictCopyUploader::drain).result()); }
    template <class Upload>
    std::string one(Upload upload, std::int64_t id) {
        return line(machine.loop.run([=, this] {
            return upload(machine.system(), id, resolver, catalogue.store(), spool, "device", api,
                          tokenManager, now);
        }));
    }

    // All that became of it: requests, the nodes that differ from the start, journal, spool, log.
    Lines story(Lines told = {}) {
        for (const auto& call : std::exchange(calls, {}))
            told.push_back("> " + call);
        static const Lines untouched{"d = dir:d v0", "d/g = G v1", "f = F v1"};
        for (const auto& node : tree())
            if (std::ranges::find(untouched, node) == untouched.end()) told.push_back(node);
        for (const auto& change : journal())
            told.push_back("waits: " + change);
        for (const auto& entry : spooled())
            told.push_back("spool: " + entry);
        std::string logged;
        for (const auto& change : log())
            logged += " " + change;
        if (!logged.empty()) told.push_back("log:" + logged);
        return told;
    }

 private:
    void givenOne(Lines words) {
        words.resize(4);
        const auto [verb, path, third, fourth] = std::tie(words[0], words[1], words[2], words[3]);
        using Kind = PendingChangeKind;
        if (verb == "update" || verb == "create" || verb == "blob")
            waitingEdit(verb == "create" ? Kind::create : Kind::update, path,
                        verb == "blob" ? std::string(1, '\0') : "mine", word(third));
        if (verb == "copy") givenLocalFile(path, word(third).value_or("local:1"));
        if (verb == "copy") row(Kind::create, path, {}, word(third).value_or("local:1"));
        if (verb == "copy" || verb == "copied") spool.writeNewCopy(Data(std::string("mine")), newest());
        if (verb == "lost") spool.remove(ConflictSpool::editKey(newest()));
        if (verb == "move") row(Kind::move, third, path, word(fourth));
        if (verb == "delete") row(Kind::remove, path, {}, word(third));
        if (verb == "mkdir") row(Kind::mkdir, path, {}, {});
        if (verb == "file") givenFile(path, path), server[path] = "old";
        if (verb == "server") server[path] = "another's";
        if (verb == "renamed") catalogue->updatePath(brain, at(path).nodeId, third);
        if (verb == "readonly") mark(path, "No write access");
        if (verb == "refused") mark(path, "Not uploaded: no");
    }
    static std::optional<std::string> word(const std::string& text) {
        return text.empty() ? std::nullopt : std::optional(text);
    }
    std::int64_t newest() { return *catalogue->pendingChanges(brain).back().id; }
    void row(PendingChangeKind kind, const std::string& path, std::optional<std::string> fromPath,
             std::optional<std::string> nodeId) {
        auto change = pendingChange(brain, kind, path);
        change.fromPath = std::move(fromPath);
        change.nodeId = std::move(nodeId);
        waiting(change);
    }
    void mark(const std::string& path, const std::string& uploadError) {
        auto node = at(path);
        node.localOnly = true;
        node.uploadError = uploadError;
        ConflictWorld::given(node);
    }
    template <class Result>
    static Lines linesOf(const std::vector<Result>& results) {
        Lines lines;
        for (const auto& result : results)
            lines.push_back(line(result));
        return lines;
    }
};

// One case per line that doesn't begin with a blank: what is given | the fates of its requests | its story.
void expectStories(std::string table) {
    for (auto at = table.find("\n  "); at != std::string::npos; at = table.find("\n  "))
        table.erase(at, 1);
    for (const auto& one : split(table, '\n')) {
        SCOPED_TRACE(one);
        const auto parts = split(one + " ", '|');
        World world;
        world.given(parts.at(0));
        const auto fates = split(parts.at(1).substr(1, parts.at(1).size() - 2), ',');
        world.fates = {fates.begin(), fates.end()};
        const auto results = world.drain();
        EXPECT_EQ(world.story(results), split(parts.at(2), ';'));
    }
}

TEST(DrainTest, EachOutcomeOfAnEdit) {
    expectStories(R"(
update f|[]|uploaded; > PUT f = mine; f = F v2; log: +F
blob f|[]|uploaded; > BLOB; > PUT f = blob the-server's; f = F v2 blob; log: +F
create n/f|[]|uploaded; > PUT n/f = mine; n = dir:n v0; n/f = id:n/f v1; log: +dir:n +id:n/f
update x F|[409]|rejected: no; > PUT x = mine; f = F v1 local-only (Not uploaded: no);
  spool: edit-1=mine; spool: node-46=mine; log: +F
update f gone|[400]|rejected: no; > PUT f = mine; f = F v1 local-only (Not uploaded: no);
  spool: edit-1=mine; spool: node-46=mine; log: +F
create n/f|[413]|rejected: no; > PUT n/f = mine; n = dir:n v0; n/f = local:* v1 local-only (Not uploaded: no);
  spool: edit-1=mine; spool: node-*=mine; log: +dir:n +local:*
update f|[403 FORBIDDEN_SUBTREE]|bounced; > PUT f = mine; > PUT f~ = mine; f = F v2; f~ = local:* v2;
  spool: edit-1=mine; log: +F +local:* +local:*
update f|[403 FORBIDDEN_SUBTREE, 503]|bounced; > PUT f = mine; > PUT f~ = mine; f = F v2;
  f~ = local:* v1 local-only; waits: create f~ @c0; spool: copy-2=mine; spool: edit-1=mine; log: +F +local:*
create ro/n|[]|bounced; > PUT ro/n = mine; > PUT ro/n~ = mine; ro = dir:ro v0;
  ro/n~ = local:* v1 local-only (No write access); spool: copy-2=mine; spool: edit-1=mine; spool: node-*=mine;
  log: +dir:ro +local:* +local:*
readonly f, update f|[]|bounced; f = F v1 local-only (No write access); spool: edit-1=mine; spool: node-46=mine;
  log: +F
refused f, update f|[]|uploaded; > PUT f = mine; f = F v2; log: +F
update f, lost|[]|waits: update f @c0
)");
}

TEST(DrainTest, EachOutcomeOfAConflictCopy) {
    expectStories(R"(
copy c|[]|uploaded; > PUT c = mine; c = local:1 v2; log: +local:1
copy c L|[400]|rejected: no; > PUT c = mine; c = L v1 local-only (Not uploaded: no);
  spool: copy-1=mine; spool: node-4c=mine; log: +L
copy c L|[403 FORBIDDEN_SUBTREE]|bounced; > PUT c = mine; c = L v1 local-only (No write access);
  spool: copy-1=mine; spool: node-4c=mine; log: +L
copy c L, renamed c moved|[]|uploaded; > PUT c = mine; c = id:c v1; moved = L v1 local-only;
  spool: node-4c=mine; log: +id:c
copy c|[503]|retryLater; > PUT c = mine; c = local:1 v1 local-only; waits: create c @c0; spool: copy-1=mine
update f, copied|[]|uploaded; > PUT f = mine; f = F v2; log: +F
)");
}

TEST(DrainTest, EachOutcomeOfAMoveDeleteAndFolder) {
    expectStories(R"(
mkdir e/n|[]|uploaded; e = dir:e v0; e/n = dir:e/n v0; log: +dir:e +dir:e/n
server d, delete d dir:d|[]|uploaded; > DELETE d; log: -dir:d -G
delete d dir:d|[404 NOT_FOUND]|rejected: no; > DELETE d; d = dir:d v0 (Not deleted: no); log: +dir:d
delete d|[400]|rejected: no; > DELETE d
delete d|[403 FORBIDDEN_SUBTREE]|bounced; > DELETE d; log: +dir:d +G
move f n|[]|uploaded; > MOVE f to n; n = F v1; log: +F
move f n|[404]|uploaded; > MOVE f to n; n = F v1; log: +F
move f n|[410 NOT_FOUND]|uploaded; > MOVE f to n; n = F v1; log: +F
move f n F|[400]|rejected: no; > MOVE f to n; f = F v1 (Not moved: no); log: +F
move f ro/n|[]|bounced; > MOVE f to ro/n; log: +F
server n, move f n|[]|uploaded; > MOVE f to n; > MOVE f to n~; n~ = F v1; log: +F
move f n|[409 CONFLICT, 404]|uploaded; > MOVE f to n; > MOVE f to n~; n~ = F v1; log: +F
move f n F|[409 CONFLICT, 409 CONFLICT]|rejected: no; > MOVE f to n; > MOVE f to n~; f = F v1 (Not moved: no);
  log: +F
move f n|[409 CONFLICT, 503]|retryLater; > MOVE f to n; > MOVE f to n~; waits: move f to n~ @c0
move f n|[409 CONFLICT, 403 FORBIDDEN_SUBTREE]|bounced; > MOVE f to n; > MOVE f to n~; log: +F
)");
}

TEST(DrainTest, PassingFailuresChangeNothingAndStopNoOtherRow) {
    World world;
    EXPECT_EQ(world.drain(), Lines{});
    world.given("update f, move d/g n, delete x, copy c");
    const auto before = world.story();
    for (const std::string fate : {"302", "408", "429", "500", "503", "offline"}) {
        world.fates = {4, fate};
        EXPECT_EQ(world.drain(), Lines(4, "retryLater")) << fate;
        world.calls.clear();
        EXPECT_EQ(world.story(), before) << fate;
    }
}

TEST(DrainTest, WhatConcernsTheSessionEndsTheDrain) {
    World world;
    world.given("update f, update d/g");
    world.fates = {"served", "403 FORBIDDEN"};
    EXPECT_THROW(world.drain(), SyncAPIError);
    EXPECT_EQ(world.spooled(), Lines{"edit-2=mine"}) << "the first row's upload stands";
    world.waiting(pendingChange(world.brain, PendingChangeKind::move, "n"));
    world.fates = {"401", "served"};
    EXPECT_THROW(world.drain(), FileError) << "a move from nowhere";
    EXPECT_EQ(world.journal(), Lines{"move n @c0"}) << "a refreshed token let the edit through";
    world.catalogue->removePending(3);
    world.given("copy c");
    world.fates = {"401", "401"};
    EXPECT_THROW(world.drain(), TokenManagerError);
    EXPECT_EQ(world.journal(), Lines{"create c @c0"});
}

TEST(DrainTest, UploadSaysWhatItCannotTake) {
    World world;
    const auto upload = PendingEditUploader::upload;
    const auto uploadCopy = ConflictCopyUploader::upload;
    world.given("delete f, copy c, create e, update nowhere, copy o local:2");
    EXPECT_EQ(world.one(upload, 77), "rejected: The queued edit no longer exists.");
    EXPECT_EQ(world.one(uploadCopy, 77), "rejected: The queued copy no longer exists.");
    EXPECT_EQ(world.one(upload, 1), "rejected: The queued change is not a file edit.");
    EXPECT_THROW(world.one(upload, 2), FileError);
    EXPECT_THROW(world.one(uploadCopy, 3), FileError);
    world.fates = {"400", "400"};
    EXPECT_THROW(world.one(upload, 4), FileError) << "no node can keep the bytes";
    world.catalogue->deleteNode(world.brain, "local:2");
    EXPECT_THROW(world.one(uploadCopy, 5), FileError);
    EXPECT_EQ(world.journal().size(), 5U) << "so the rows keep them";
}

TEST(DrainTest, BytesOverTheLimitStayHere) {
    World world;
    world.given("update f, copy c");
    const Data large(std::string(104'857'601, 'x'));
    for (const auto* key : {"edit-1", "copy-2"})
        world.spool.write(large, key);
    const std::string why =
        "Not uploaded: This file is too large to upload (104857601 bytes). The limit is 104857600 bytes.";
    EXPECT_EQ(world.drain(),
              (Lines{"rejected: File is too large to sync (limit 100 MB)", "rejected: " + why}));
    EXPECT_EQ(world.at("f").uploadError, "File is too large to sync (limit 100 MB)");
    EXPECT_EQ(world.at("c").uploadError, why);
    EXPECT_EQ(world.spool.read(ConflictSpool::nodeKey("F"))->size(), 104'857'601U);
    EXPECT_EQ(world.calls, Lines{});
}

TEST(DrainTest, CopiesAlone) {
    World world;
    world.given("copy c other, create e local:9, update f local:9, copied, copy one, copy two local:2");
    world.fates = {"503"};
    EXPECT_EQ(world.drainCopies(), (Lines{"retryLater", "uploaded"}));
    EXPECT_EQ(world.calls, (Lines{"PUT one = mine", "PUT two = mine"}));
    world.fates = {"403 FORBIDDEN"};
    EXPECT_THROW(world.drainCopies(), SyncAPIError);
    world.fates = {"403 FORBIDDEN_SUBTREE"};
    EXPECT_EQ(world.drainCopies(), Lines{"noWriteAccess"});
}

TEST(DrainTest, OlderBytesNeverFollowNewerOnes) {
    World world;
    world.given("update f F, update d/g, blob f F, move f n F, create n/below");
    world.fates = {"503"};
    EXPECT_EQ(world.drain(), (Lines{"retryLater", "uploaded"})) << "what is held back has no result";
    EXPECT_EQ(world.drain(numberedUUID(2)), Lines{}) << "another brain's drain";
    EXPECT_EQ(world.drain(world.brain), Lines(4, "uploaded"));
    EXPECT_EQ(world.calls, (Lines{"PUT f = mine", "PUT d/g = mine", "PUT f = mine", "BLOB",
                                  "PUT f = blob the-server's", "MOVE f to n", "PUT n/below = mine"}));
    world.given("update d/g, lost, update d/g");
    EXPECT_EQ(world.drain(), Lines{"uploaded"}) << "bytes that are gone hold nothing back";
}

TEST(WaitingChangesTest, HoldBackTheSameItemAndPathsAboveAndBelow) {
    const auto change = [](std::string path, std::string from = "elsewhere", std::string nodeId = "M",
                           std::uint8_t brain = 1) {
        auto made = pendingChange(numberedUUID(brain), PendingChangeKind::move, std::move(path));
        made.fromPath = std::move(from);
        made.nodeId = std::move(nodeId);
        return made;
    };
    WaitingChanges waiting;
    EXPECT_FALSE(waiting.holdBack(change("a/b")));
    waiting.add(change("a/b", "c/d", "N"));
    for (const auto& held : {change("a/b"), change("c/d"), change("a"), change("c"), change("a/b/x/y"),
                             change("c/d/x"), change("x", "a/b"), change("x", "c"), change("x", "y", "N")})
        EXPECT_TRUE(waiting.holdBack(held)) << held.path;
    for (const auto& free : {change("a/bc"), change("a/b-"), change("a/c"), change("b"), change("x", "c/dd"),
                             change("a/b", "c/d", "N", 2)})
        EXPECT_FALSE(waiting.holdBack(free)) << free.path;
}

TEST(DrainTest, CancelledAfterTheServerActedTheRowStays) {
    for (const auto* row : {"update f", "copy c", "move f n", "delete f"}) {
        World world;
        world.given(row);
        const auto before = world.story();
        world.machine.session->hold();
        const auto drain = world.start(PendingEditUploader::drain);
        world.onStep = [&] { drain.cancel(); };
        world.machine.session->release();
        world.machine.loop.runUntilIdle();
        EXPECT_THROW(drain.result(), CancelledError);
        EXPECT_EQ(std::exchange(world.calls, {}).size(), 1U);
        EXPECT_EQ(world.story(), before);
    }
}

// Everything that can wait, at once, of which one thing goes wrong.
class FaultyDrain : public World {
 public:
    FaultyDrain() {
        for (const auto* path : {"moved", "onto", "deleted", "ro/edited"})
            givenFile(path, path), server[path] = "old";
        given(
            "update f, blob d/g, create n/new, mkdir e, copy c, move moved there moved, server taken,"
            "move onto taken onto, delete deleted deleted, update ro/edited");
    }

    // What all sides hold once everything has come to rest, in the next rounds of pull and drain.
    Lines settled() {
        fates.clear();
        onStep = [] {};
        files->before = {};
        pull(std::exchange(echoes, {}));
        drain();
        spool.prune(*catalogue);
        auto told = tree();
        for (const auto& [path, content] : server)
            told.push_back(shortName(path) + ": " + content);
        for (const auto& lines : {journal(), spooled(), messages()})
            told.insert(told.end(), lines.begin(), lines.end());
        return told;
    }

    static const Lines allSettled;
};

const Lines FaultyDrain::allSettled = split(
    "c = local:1 v2; d = dir:d v0; d/g = G v2 blob; e = dir:e v0; f = F v2; n = dir:n v0; n/new = id:n/new "
    "v1;"
    "ro = dir:ro v0; ro/edited = ro/edited v2; ro/edited~ = local:* v1 local-only (No write access);"
    "taken~ = onto v1; there = moved v1; c: mine; d/g: blob the-server's; f: mine; n/new: mine;"
    "ro/edited: old; taken: another's; taken~: old; there: old; node-*=mine;"
    "You don't have write access to “edited”. Your edit was kept as “edited~”.;"
    "You don't have write access to this folder, so “edited~” stays on this Mac only.",
    ';');

TEST(DrainTest, EndsWellWhicheverAnswerIsLost) {
    for (std::size_t at = 0, left = 0; left == 0; ++at) {
        FaultyDrain world;
        world.fates.assign(at, "served");
        world.fates.push_back("lost");
        world.drain();
        left = world.fates.size();
        ASSERT_EQ(world.settled(), FaultyDrain::allSettled) << "lost the answer to request " << at;
    }
}

TEST(DrainTest, EndsWellWhereverTheProcessDies) {
    struct Died {};
    for (int at = 0, left = -1; left < 0; ++at) {
        FaultyDrain world;
        left = at;
        world.onStep = [&] {
            if (left-- == 0) throw Died();
        };
        world.files->before = [&](auto, const auto&) { world.onStep(); };
        world.start(PendingEditUploader::drain);
        ASSERT_EQ(world.settled(), FaultyDrain::allSettled) << "died at step " << at;
    }
}

TEST(DrainTest, RunsOnAPoolBesideReadersOfItsCatalogue) {
    FaultyDrain world;
    platform::TaskPool pool(3);
    std::atomic<bool> ended = false;
    std::jthread reader([&] {
        for (std::int64_t anchor = 0, last = 0; !ended; last = anchor) {
            anchor = world.catalogue->changes(0).anchor;
            EXPECT_GE(anchor, last);
        }
    });
    const std::function<Task<std::vector<PendingEditUploader::Result>>()> drain = [&] {
        return PendingEditUploader::drain(world.machine.system(pool.executor()), world.resolver,
                                          world.catalogue.store(), world.spool, "device", world.api,
                                          world.tokenManager, world.brain);
    };
    EXPECT_EQ(platform::runBlocking(pool.executor(), drain).size(), 9U);
    ended = true;
    EXPECT_EQ(world.settled(), FaultyDrain::allSettled);
}

}  // namespace
}  // namespace vorlinden::tests
