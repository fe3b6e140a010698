#include "synckit/conflicts/conflict_namer.h"

#include <gtest/gtest.h>

namespace vorlinden {
namespace {

using namespace std::chrono_literals;

const Timestamp march4 = *platform::parseTimestamp("2026-03-04T12:00:00.000Z");

std::string copyOf(std::string_view path, const CanonicalPathSet& taken = {}) {
    return ConflictNamer::conflictCopyPath(path, "Studio Mac- 2", march4, taken);
}

TEST(ConflictNamer, PutsTheMarkBeforeTheExtension) {
    const std::string mark = " (conflicted copy Studio Mac- 2 2026-03-04)";
    EXPECT_EQ(copyOf("Notes/Plan.final.md"), "Notes/Plan.final" + mark + ".md");
    for (const std::string name : {"README", "Notes/.profile", "Notes/memo.", "v1.2/README", "", "folder/"})
        EXPECT_EQ(copyOf(name), name + mark) << "no extension";
    EXPECT_EQ(copyOf(".a.b"), ".a" + mark + ".b");
    EXPECT_EQ(copyOf(std::string(300, 'n') + ".md"), std::string(300, 'n') + mark + ".md")
        << "never shortened";
}

TEST(ConflictNamer, CountsUpToAFreeName) {
    CanonicalPathSet taken;
    for (const std::string number : {"", " 2", " 3"}) {
        const auto path = "a (conflicted copy Studio Mac- 2 2026-03-04" + number + ").md";
        EXPECT_EQ(copyOf("a.md", taken), path);
        taken.insert(path);
    }
    EXPECT_EQ(copyOf("A.md", taken), "A (conflicted copy Studio Mac- 2 2026-03-04).md") << "case tells apart";
}

TEST(ConflictNamer, TakesComposedAndDecomposedNamesForOne) {
    const auto composed = copyOf("caf\u00e9.md");
    const auto decomposed = copyOf("cafe\u0301.md");
    ASSERT_NE(composed, decomposed) << "the name itself is left as it is";
    EXPECT_TRUE(copyOf("cafe\u0301.md", {composed}).ends_with(" 2).md"));
    EXPECT_TRUE(copyOf("caf\u00e9.md", {decomposed}).ends_with(" 2).md"));
}

TEST(ConflictNamer, NamesTheDayOfTheGivenZone) {
    const auto dayAt = [](std::string_view time, std::chrono::seconds zone) {
        const auto path = ConflictNamer::conflictCopyPath("a", "M", *platform::parseTimestamp(time),
                                                          CanonicalPathSet{}, zone);
        return path.substr(path.size() - 11, 10);
    };
    EXPECT_EQ(dayAt("2026-03-04T23:59:59.999Z", 0s), "2026-03-04");
    EXPECT_EQ(dayAt("2026-03-04T23:59:59.999Z", 1h), "2026-03-05");
    EXPECT_EQ(dayAt("2024-03-01T00:30:00.000Z", -1h), "2024-02-29");
}

}  // namespace
}  // namespace vorlinden
