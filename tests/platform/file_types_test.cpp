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
    EXPECT_EQ(pathExtension("archive.tar.GZ"), "GZ");
    EXPECT_EQ(pathExtension(".profile.bak"), "bak");
    for (const char* name : {"", "README", ".profile", "trailing.", "."})
        EXPECT_EQ(pathExtension(name), "") << name;
}

TEST(FileTypes, DatabaseLinesAreWeighedAndOddOnesPassedOver) {
    const MimeGlobs globs = globsOf({R"(# a comment
50:text/markdown:*.md
60:application/heavy:*.md
40:application/light:*.md
50:text/x-c++src:*.C:cs
50:text/x-csrc:*.c:cs
50:image/jpeg:*.JPG
50:text/x-readme:readme*
50:text/x-pattern:*.v[0-9]
fifty:text/x-broken:*.broken
50:text/x-broken

)"});
    const std::pair<const char*, std::optional<std::string>> cases[] = {
        {"md", "application/heavy"}, {"MD", "application/heavy"}, {"C", "text/x-c++src"},
        {"c", "text/x-csrc"},        {"jpg", "image/jpeg"},       {"v1", std::nullopt},
        {"v[0-9]", std::nullopt},    {"broken", std::nullopt},    {"", std::nullopt},
    };
    for (const auto& [extension, type] : cases)
        EXPECT_EQ(globs.typeFor(extension), type) << extension;
}

TEST(FileTypes, UsersFolderOverrulesTheSystems) {
    const char* system = "50:text/plain:*.txt\n50:text/x-log:*.log\n";
    EXPECT_EQ(globsOf({system, "50:text/x-mine:*.txt\n"}).typeFor("txt"), "text/x-mine");
    EXPECT_EQ(globsOf({system, "40:text/x-mine:*.txt\n"}).typeFor("txt"), "text/plain");
    const MimeGlobs withdrawn = globsOf({system, "0:text/x-log:__NOGLOBS__\n50:text/x-log:*.journal\n"});
    EXPECT_EQ(withdrawn.typeFor("log"), std::nullopt);
    EXPECT_EQ(withdrawn.typeFor("journal"), "text/x-log");
    EXPECT_EQ(withdrawn.typeFor("txt"), "text/plain");
}

TEST(FileTypes, MachinesOwnDatabaseAnswers) {
    EXPECT_EQ(FileType::forExtension("PNG"), FileType{"image/png"});
    EXPECT_EQ(FileType::forExtension("no-such-extension"), std::nullopt);
}

}  // namespace
}  // namespace vorlinden::platform
