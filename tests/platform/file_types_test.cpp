#include "platform/file_types.h"

#include <sstream>

#include <gtest/gtest.h>

#include "platform/mime_globs.h"

namespace vorlinden::platform {
namespace {

MimeGlobs globsOf(std::initializer_list<const char*> files) {
    MimeGlobs globs;
    for (const char* text : files) {
        std::istringstream file(text);
        globs.read(file);
    }
    return globs;
}

TEST(FileTypes, ExtensionIsWhatFollowsTheLastDot) {
    EXPECT_EQ(pathExtension("notes.md"), "md");
    EXPECT_EQ(pathExtension("archive.tar.GZ"), "GZ");
    for (const char* name : {"", "README", ".profile", "trailing.", "."})
        EXPECT_EQ(pathExtension(name), "") << name;
    EXPECT_EQ(pathExtension(".profile.bak"), "bak");
}

TEST(FileTypes, DatabaseLinesAreWeighedAndOddOnesPassedOver) {
    const MimeGlobs globs =
        globsOf({"# a comment\n"
                 "50:text/markdown:*.md\n"
                 "60:application/heavy:*.md\n"
                 "40:application/light:*.md\n"
                 "50:text/x-c++src:*.C:cs\n"
                 "50:text/x-csrc:*.c:cs\n"
                 "50:image/jpeg:*.JPG\n"
                 "50:text/x-readme:readme*\n"
                 "50:text/x-pattern:*.v[0-9]\n"
                 "50:text/x-makefile:makefile\n"
                 "fifty:text/x-broken:*.broken\n"
                 "50:text/x-broken\n"
                 "\n"});
    const struct {
        const char* extension;
        std::optional<std::string> type;
    } cases[] = {
        {"md", "application/heavy"}, {"MD", "application/heavy"}, {"C", "text/x-c++src"},
        {"c", "text/x-csrc"},        {"jpg", "image/jpeg"},       {"Jpg", "image/jpeg"},
        {"v1", std::nullopt},        {"v[0-9]", std::nullopt},    {"broken", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& [extension, type] : cases)
        EXPECT_EQ(globs.typeFor(extension), type) << extension;
}

TEST(FileTypes, UsersFolderOverrulesTheSystems) {
    const char* system = "50:text/plain:*.txt\n50:text/x-log:*.log\n50:text/x-keep:*.keep\n";
    EXPECT_EQ(globsOf({system, "50:text/x-mine:*.txt\n"}).typeFor("txt"), "text/x-mine");
    EXPECT_EQ(globsOf({system, "40:text/x-mine:*.txt\n"}).typeFor("txt"), "text/plain");
    const MimeGlobs withdrawn = globsOf({system, "0:text/x-log:__NOGLOBS__\n50:text/x-log:*.journal\n"});
    EXPECT_EQ(withdrawn.typeFor("log"), std::nullopt);
    EXPECT_EQ(withdrawn.typeFor("journal"), "text/x-log");
    EXPECT_EQ(withdrawn.typeFor("keep"), "text/x-keep");
}

TEST(FileTypes, MachinesOwnDatabaseAnswers) {
    EXPECT_EQ(FileType::forExtension("png"), FileType{"image/png"});
    EXPECT_EQ(FileType::forExtension("PNG"), FileType{"image/png"});
    EXPECT_EQ(FileType::forExtension("no-such-extension"), std::nullopt);
    EXPECT_TRUE(FileType::folder().isDirectory());
    EXPECT_FALSE(FileType::data().isDirectory());
}

}  // namespace
}  // namespace vorlinden::platform
