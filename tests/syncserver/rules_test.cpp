// The server judges by rules of its own: here they are held to the client's.
#include "linux/server/rules.h"

#include <gtest/gtest.h>

#include "synckit/upload/ignore_list.h"
#include "synckit/upload/path_rules.h"
#include "synckit/upload/upload_planner.h"

namespace vorlinden::tests {
namespace {

TEST(Rules, TextPathsTitlesAndJunkAreTheClients) {
    std::string astral;
    for (int count = 0; count < 524'288; ++count)
        astral += "\xF0\x9F\x98\x80";
    const std::vector<std::string> contents = {
        "",          "caf\xC3\xA9",  "\xEF\xBB\xBFmarked",          std::string("ends in NUL\0", 12),  "\xC3",
        "\xC0\x80",  "\xED\xA0\x80", std::string(1024 * 1024, 'x'), std::string(1024 * 1024 + 1, 'x'), astral,
        astral + "x"};
    for (const auto& content : contents) {
        const auto classified = ContentClassifier::classify(Data(content));
        EXPECT_EQ(server::isText(content),
                  std::holds_alternative<ContentClassification::Text>(classified.value))
            << content.substr(0, 20);
    }
    const std::vector<std::string> paths = {"",
                                            "a",
                                            "a/b.md",
                                            "/a",
                                            "a/",
                                            "a//b",
                                            ".",
                                            "..",
                                            "a/../b",
                                            "a/.../b",
                                            "a\\b",
                                            std::string("a\0b", 3),
                                            ".bashrc",
                                            "dot.",
                                            "report.final.md",
                                            "a/.DS_Store",
                                            ".localized",
                                            "Icon\r",
                                            "x/.gitkeep",
                                            ".ds_store",
                                            "._file",
                                            " ",
                                            "caf\xC3\xA9/\xE2\x80\x93.txt",
                                            "caf\xE9.txt",
                                            ".DS_Store/a"};
    for (const auto& path : paths) {
        EXPECT_EQ(server::isValidPath(path), PathRules::isNormalizedWritePath(path)) << path;
        EXPECT_EQ(server::isJunk(path), IgnoreList::isJunk(path)) << path;
        EXPECT_EQ(server::titleOf(path), UploadPlanner::defaultTitle(path)) << path;
    }
    // Beyond the client's rule: what no client can send, and no end of a path.
    EXPECT_FALSE(server::isValidPath("\xFF"));
    EXPECT_FALSE(server::isValidPath(std::string(4097, 'x')));
}

}  // namespace
}  // namespace vorlinden::tests
