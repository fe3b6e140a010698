#include "tests/fileprovider/write_world.h"

namespace vorlinden::tests {
namespace {

// Each story: what the user does, with what becomes of the requests (as FakeBrain takes it) in brackets;
// below it what the last act's handler heard, then what changed.
constexpr const char* stories = R"(
create Notes/c new
    c v1
    +Notes/c = srv:Notes/c v1 | +log +srv:Notes/c | +server Notes/c=new
create /c ~
    c v1
    +c = srv:c v1 blob | +log +srv:c | +server c=~
create Notes/c new [off]
    error -1004
    +journal create Notes/c | +spool edit-1=new
create Notes/c ~ [ok] [429 SLOW]
    error -1004
    +journal create Notes/c | +spool edit-1=~
create Notes/c new [403 FORBIDDEN]
    error -1000
    +journal create Notes/c | +spool edit-1=new
create Notes/c new [413 TOO_LARGE]
    c v1 (Not uploaded: No: TOO_LARGE)
    +Notes/c = local:* v1 local-only (Not uploaded: No: TOO_LARGE) | +log +local:* | +spool edit-1=new |
    +spool node=new
create Notes/c new [403 FORBIDDEN_SUBTREE]
    c (conflicted copy Studio 2026-03-14) v2
    +Notes/c (conflicted copy Studio 2026-03-14) = local:* v2 | +log +local:* | +log +local:* |
    +server Notes/c (conflicted copy Studio 2026-03-14)=new | +spool edit-1=new
create Notes/c new [403 FORBIDDEN_SUBTREE] [403 FORBIDDEN_SUBTREE]
    c (conflicted copy Studio 2026-03-14) v1 (No write access)
    +Notes/c (conflicted copy Studio 2026-03-14) = local:* v1 local-only (No write access) |
    +log +local:* | +log +local:* | +spool copy-2=new | +spool edit-1=new | +spool node=new
create Notes/c new [403 FORBIDDEN_SUBTREE] [off]
    c (conflicted copy Studio 2026-03-14) v1
    +Notes/c (conflicted copy Studio 2026-03-14) = local:* v1 local-only |
    +journal create Notes/c (conflicted copy Studio 2026-03-14) | +log +local:* | +spool copy-2=new |
    +spool edit-1=new
create Notes/.DS_Store junk
    .DS_Store v1
    +Notes/.DS_Store = local:* v1 local-only | +log +local:*
folder Notes/D
    D v0
    +Notes/D = dir:Notes/D v0 | +log +dir:Notes/D
folder Notes/D; folder Notes/D
    D v0
    +Notes/D = dir:Notes/D v0 | +log +dir:Notes/D
create Notes/c\d new
    error -2005 "Notes/c\d" is not a valid name or path for Vorlinden.
create b/c new
    error -1005
create trash:/c new
    error -1005

# The answer is lost after the server acted; then the same act once more.
create Notes/c new; create Notes/c new [lost]
    c v1
    +Notes/c = srv:Notes/c v1 | +journal create Notes/c | +log +srv:Notes/c | +server Notes/c=new |
    +spool edit-1=new
create Notes/c ~; create Notes/c ~ [lost]
    c v1
    +Notes/c = srv:Notes/c v1 blob | +journal create Notes/c | +log +srv:Notes/c | +server Notes/c=~ |
    +spool edit-1=~
create Notes/c ~; create Notes/c ~ [ok] [lost]
    c v1
    +Notes/c = srv:Notes/c v1 blob | +journal create Notes/c | +log +srv:Notes/c | +server Notes/c=~ |
    +spool edit-1=~
edit Notes/a new; edit Notes/a new [lost]
    a v2
    -Notes/a = id:Notes/a v1 | -server Notes/a=old | +Notes/a = id:Notes/a v2 | +journal update Notes/a |
    +log +id:Notes/a | +server Notes/a=new | +spool edit-1=new
move Notes/a c; move Notes/a c [lost]
    c v1
    -Notes/a = id:Notes/a v1 | -server Notes/a=old | +c = id:Notes/a v1 | +journal move Notes/a > c |
    +log +id:Notes/a | +server c=old
remove Notes/a; remove Notes/a [lost]
    done
    -Notes/a = id:Notes/a v1 | -server Notes/a=old | +journal delete Notes/a | +log -id:Notes/a

# Edits.
edit Notes/a new
    a v2
    -Notes/a = id:Notes/a v1 | -server Notes/a=old | +Notes/a = id:Notes/a v2 | +log +id:Notes/a |
    +server Notes/a=new
edit Notes/a ~
    a v2
    -Notes/a = id:Notes/a v1 | -server Notes/a=old | +Notes/a = id:Notes/a v2 blob | +log +id:Notes/a |
    +server Notes/a=~
edit Notes/a new x
    a v2
    -Notes/a = id:Notes/a v1 | -server Notes/a=old | +Notes/a = id:Notes/a v2 | +log +id:Notes/a |
    +server Notes/a=new
empty Notes/a
    a v2
    -Notes/a = id:Notes/a v1 | -server Notes/a=old | +Notes/a = id:Notes/a v2 | +log +id:Notes/a |
    +server Notes/a=
empty Notes
    Notes v0
touch Notes/a
    a v1
edit unknown new
    error -1005
edit Notes/a new [off]
    error -1004
    +journal update Notes/a | +spool edit-1=new
edit Notes/a new [408 SLOW]
    error -1004
    +journal update Notes/a | +spool edit-1=new
edit Notes/a new [403 FORBIDDEN]
    error -1000
    +journal update Notes/a | +spool edit-1=new
edit Notes/a new [403 FORBIDDEN_SUBTREE]
    a v2 fetch
    -Notes/a = id:Notes/a v1 | +Notes/a (conflicted copy Studio 2026-03-14) = local:* v2 |
    +Notes/a = id:Notes/a v2 | +log +id:Notes/a | +log +local:* | +log +local:* |
    +server Notes/a (conflicted copy Studio 2026-03-14)=new | +spool edit-1=new
edit Notes/a new [403 FORBIDDEN_SUBTREE] [503 BUSY]
    a v2 fetch
    -Notes/a = id:Notes/a v1 | +Notes/a (conflicted copy Studio 2026-03-14) = local:* v1 local-only |
    +Notes/a = id:Notes/a v2 | +journal create Notes/a (conflicted copy Studio 2026-03-14) |
    +log +id:Notes/a | +log +local:* | +spool copy-2=new | +spool edit-1=new

# Edits of an older version than the catalogue has.
edit Notes/a new 0
    a v2 fetch
    -Notes/a = id:Notes/a v1 | +Notes/a (conflicted copy Studio 2026-03-14) = local:* v2 |
    +Notes/a = id:Notes/a v2 | +log +id:Notes/a | +log +local:* | +log +local:* |
    +server Notes/a (conflicted copy Studio 2026-03-14)=new
edit Notes/a new 0 [off]
    a v2 fetch
    -Notes/a = id:Notes/a v1 | +Notes/a (conflicted copy Studio 2026-03-14) = local:* v1 local-only |
    +Notes/a = id:Notes/a v2 | +journal create Notes/a (conflicted copy Studio 2026-03-14) |
    +log +id:Notes/a | +log +local:* | +spool copy-1=new

# What was refused for good is local-only from then on.
edit Notes/a new [422 BAD]
    a v1 (Not uploaded: No: BAD)
    -Notes/a = id:Notes/a v1 | +Notes/a = id:Notes/a v1 local-only (Not uploaded: No: BAD) |
    +log +id:Notes/a | +spool edit-1=new | +spool node=new
edit Notes/a old; edit Notes/a new [503 BUSY] [422 BAD]
    a v1 (Not uploaded: No: BAD)
    -Notes/a = id:Notes/a v1 | +Notes/a = id:Notes/a v1 local-only (Not uploaded: No: BAD) |
    +log +id:Notes/a | +spool edit-1=old | +spool edit-2=new | +spool node=new
create Notes/c old; create Notes/c new [503 BUSY] [422 BAD]
    c v1 (Not uploaded: No: BAD)
    +Notes/c = local:* v1 local-only (Not uploaded: No: BAD) | +log +local:* | +spool edit-1=old |
    +spool edit-2=new | +spool node=new
edit Notes/a new; edit Notes/a newer 0 [422 BAD]
    a v2 (Not uploaded: No: BAD)
    -Notes/a = id:Notes/a v1 | +Notes/a = id:Notes/a v2 local-only (Not uploaded: No: BAD) |
    +log +id:Notes/a | +log +id:Notes/a | +spool edit-1=new | +spool node=newer
edit Notes/a new; empty Notes/a [422 BAD]
    a v2 (Not uploaded: No: BAD)
    -Notes/a = id:Notes/a v1 | +Notes/a = id:Notes/a v2 local-only (Not uploaded: No: BAD) |
    +log +id:Notes/a | +log +id:Notes/a | +spool edit-1=new | +spool node=new
edit Notes/a new; move Notes/a c [422 BAD]
    c v1 (Not uploaded: No: BAD)
    -Notes/a = id:Notes/a v1 | +c = id:Notes/a v1 local-only (Not uploaded: No: BAD) | +log +id:Notes/a |
    +log +id:Notes/a | +spool edit-1=new | +spool node=new
edit Notes/a new; move Notes/a .gitkeep [422 BAD]
    .gitkeep v1 (Not uploaded: No: BAD)
    -Notes/a = id:Notes/a v1 | +.gitkeep = id:Notes/a v1 local-only (Not uploaded: No: BAD) |
    +log +id:Notes/a | +log +id:Notes/a | +spool edit-1=new | +spool node=new
edit Notes/a new; remove Notes/a [422 BAD]
    done
    -Notes/a = id:Notes/a v1 | +log +id:Notes/a | +log -id:Notes/a | +spool edit-1=new | +spool node=new
create .gitkeep junk; move .gitkeep b
    b v1
    -b = id:b v1 | +b = local:* v1 local-only | +log +local:* | +log +local:* | +log -id:b

# A copy that waits for its upload keeps its newest bytes behind its journal row.
edit Notes/a new 0; edit Notes/a%(conflicted%copy%Studio%2026-03-14) newer [off]
    a (conflicted copy Studio 2026-03-14) v2
    -Notes/a = id:Notes/a v1 | +Notes/a (conflicted copy Studio 2026-03-14) = local:* v2 local-only |
    +Notes/a = id:Notes/a v2 | +journal create Notes/a (conflicted copy Studio 2026-03-14) |
    +journal update Notes/a (conflicted copy Studio 2026-03-14) | +log +id:Notes/a | +log +local:* |
    +log +local:* | +spool copy-1=new | +spool edit-2=newer
edit Notes/a new 0; remove Notes/a%(conflicted%copy%Studio%2026-03-14) [off]
    done
    -Notes/a = id:Notes/a v1 | +Notes/a = id:Notes/a v2 | +log +id:Notes/a | +log +local:* | +log -local:* |
    +spool copy-1=new
edit Notes/a new 0; remove Notes [off]
    done
    -Notes = dir:Notes v0 | -Notes/a = id:Notes/a v1 | +log +id:Notes/a | +log +local:* | +log -dir:Notes |
    +log -id:Notes/a | +log -local:* | +spool copy-1=new

# Moves.
move Notes/a c
    c v1
    -Notes/a = id:Notes/a v1 | -server Notes/a=old | +c = id:Notes/a v1 | +log +id:Notes/a | +server c=old
move Notes/a Notes/a
    a v1
move Notes N
    N v0
    -Notes = dir:Notes v0 | -Notes/a = id:Notes/a v1 | +N = dir:N v0 | +N/a = id:Notes/a v1 | +log +dir:N |
    +log +id:Notes/a | +log -dir:Notes
move Notes/a c [off]
    error -1004
    +journal move Notes/a > c
move Notes/a c [404 GONE]
    c v1
    -Notes/a = id:Notes/a v1 | +c = id:Notes/a v1 | +log +id:Notes/a
move Notes/a b
    b (conflicted copy Studio 2026-03-14) v1
    -Notes/a = id:Notes/a v1 | -server Notes/a=old |
    +b (conflicted copy Studio 2026-03-14) = id:Notes/a v1 | +log +id:Notes/a |
    +server b (conflicted copy Studio 2026-03-14)=old
move Notes/a b [409 CONFLICT] [410 NOT_FOUND]
    b (conflicted copy Studio 2026-03-14) v1
    -Notes/a = id:Notes/a v1 | +b (conflicted copy Studio 2026-03-14) = id:Notes/a v1 | +log +id:Notes/a
move Notes/a b [409 CONFLICT] [409 CONFLICT]
    a v1 (Not moved: No: CONFLICT)
    -Notes/a = id:Notes/a v1 | +Notes/a = id:Notes/a v1 (Not moved: No: CONFLICT) | +log +id:Notes/a
move Notes/a b [409 CONFLICT] [off]
    error -1004
    +journal move Notes/a > b
move Notes/a c [403 FORBIDDEN_SUBTREE]
    a v1
    +log +id:Notes/a
move Notes/a c [403 FORBIDDEN]
    error -1000
    +journal move Notes/a > c
move Notes/a .DS_Store
    a v1 (Not moved: ".DS_Store" is a name Vorlinden does not sync.)
    -Notes/a = id:Notes/a v1 |
    +Notes/a = id:Notes/a v1 (Not moved: ".DS_Store" is a name Vorlinden does not sync.) | +log +id:Notes/a
move Notes Notes/x
    Notes v0 (Not moved: A folder can't be moved into itself.)
    -Notes = dir:Notes v0 | +Notes = dir:Notes v0 (Not moved: A folder can't be moved into itself.) |
    +log +dir:Notes
move Notes/a trash:/a
    error -2005 Items can't be moved there.
move Notes/a other:/a
    error -2005 Moving items between brains isn't supported. Copy the item instead.
move Notes/a b/a
    error -1005

# Deletes.
remove Notes/a
    done
    -Notes/a = id:Notes/a v1 | -server Notes/a=old | +log -id:Notes/a
remove Notes
    done
    -Notes = dir:Notes v0 | -Notes/a = id:Notes/a v1 | +log -dir:Notes | +log -id:Notes/a
remove Notes/a [off]
    error -1004
    +journal delete Notes/a
remove Notes/a [404 NOT_FOUND]
    done
    -Notes/a = id:Notes/a v1 | +Notes/a = id:Notes/a v1 (Not deleted: No: NOT_FOUND) | +log +id:Notes/a
remove Notes/a [403 FORBIDDEN_SUBTREE]
    done
    +log +id:Notes/a
remove Notes/a [403 FORBIDDEN]
    error -1000
    +journal delete Notes/a
remove unknown
    error -1005
)";

struct Story {
    std::string acts;
    std::deque<std::string> fates;
    std::string outcome;
};

std::vector<Story> readStories() {
    std::vector<Story> all;
    std::istringstream text(stories);
    for (std::string line; std::getline(text, line);) {
        if (line.empty() || line.starts_with('#')) continue;
        if (line.starts_with("    ")) {
            auto& outcome = all.back().outcome;
            outcome += (outcome.empty() ? "" : outcome.ends_with('|') ? " " : "\n") + line.substr(4);
            continue;
        }
        Story story{line.substr(0, line.find(" [")), {}, {}};
        for (std::size_t at = line.find('['); at != std::string::npos; at = line.find('[', at + 1))
            story.fates.push_back(line.substr(at + 1, line.find(']', at) - at - 1));
        all.push_back(std::move(story));
    }
    return all;
}

TEST(Writes, EachRoadEndsInItsState) {
    for (const auto& story : readStories()) {
        WriteWorld world;
        world.catalogue().upsertBrain(brainRecord(numberedUUID(2), "zoo"));
        world.server.fates = story.fates;
        const auto heard = world.run(story.acts);
        const auto changes = world.changes();
        EXPECT_EQ(heard->text() + (changes.empty() ? "" : "\n") + changes, story.outcome)
            << story.acts << " [" << (story.fates.empty() ? "" : story.fates.back()) << "]";
    }
}

}  // namespace
}  // namespace vorlinden::tests
