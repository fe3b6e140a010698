#include "platform/text.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace vorlinden::platform {
namespace {

TEST(Text, ValidityFollowsTheUnicodeTableOfWellFormedSequences) {
    const std::string ascii(61, 'a');  // so that sequences also stand across the fast path's steps
    const auto check = [&](const std::string& bytes, bool valid) {
        EXPECT_EQ(isValidUTF8(bytes), valid) << testing::PrintToString(bytes);
        EXPECT_EQ(isValidUTF8(ascii + bytes), valid) << testing::PrintToString(bytes);
        EXPECT_EQ(isValidUTF8(bytes + ascii), valid) << testing::PrintToString(bytes);
        EXPECT_TRUE(isValidUTF8(repairedUTF8(ascii + bytes + ascii)));
        EXPECT_EQ(repairedUTF8(bytes) == bytes, valid);
    };
    for (const std::string& bytes :
         {std::string(), std::string("a\0b", 3), std::string("\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80"),
          std::string("\xEF\xBF\xBF"), std::string("\xF4\x8F\xBF\xBF")})
        check(bytes, true);
    // A lone byte, overlong forms, a surrogate, beyond U+10FFFF, cut off, interrupted.
    for (const char* bytes : {"\x80", "\xC3", "\xFF", "\xC0\xAF", "\xE0\x80\xAF", "\xED\xA0\x80",
                              "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80", "\xE2\x82", "\xE2\x28\xA1"})
        check(bytes, false);
    EXPECT_EQ(repairedUTF8("a\xC3(\xF0\x9F\x98z\x80\x80"), "a\uFFFD(\uFFFDz\uFFFD\uFFFD");
}

using Cases = std::vector<std::pair<std::string, std::string>>;

TEST(Text, FormsAndCaseFollowUnicodeWithoutALocale) {
    EXPECT_EQ(utf16Length("h\u00E9llo \u20AC \U0001F600"), 10u);
    EXPECT_EQ(utf16Length("e\u0301"), 2u);
    // Angstrom sign, Hangul jamo, canonical order of marks; compatibility forms stay apart.
    for (const auto& [from, to] : Cases{{"cafe\u0301", "caf\u00E9"},
                                        {"\u212B", "\u00C5"},
                                        {"\u1112\u1161\u11AB", "\uD55C"},
                                        {"q\u0307\u0323", "q\u0323\u0307"},
                                        {"\uFB01", "\uFB01"},
                                        {"e\u0301\xFF", "\u00E9\uFFFD"}})
        EXPECT_EQ(composed(from), to);
    EXPECT_EQ(lowerCased("\u00C4RGER \u0130I"), "\u00E4rger i\u0307i");
    EXPECT_EQ(lowerCased("\u039F\u0394\u039F\u03A3"), "\u03BF\u03B4\u03BF\u03C2");  // final sigma
    EXPECT_EQ(caseFolded("\u039F\u0394\u039F\u03A3"), "\u03BF\u03B4\u03BF\u03C3");
    EXPECT_EQ(caseFolded("STRASSE"), caseFolded("stra\u00DFe"));
    EXPECT_EQ(caseFolded("A[Z]{z}"), "a[z]{z}");
}

TEST(Text, TrimmingTakesEveryWhiteSpaceOfBothEndsOnly) {
    for (const auto& [from, to] : Cases{{"  a b\t\r\n", "a b"},
                                        {"\u00A0\u2003\u3000x y\u2028\u0085", "x y"},
                                        {"\u200Bx", "\u200Bx"},  // no White_Space
                                        {" \n\u2029", ""},
                                        {" \U0001F600 ", "\U0001F600"}})
        EXPECT_EQ(trimmed(from), to);
}

}  // namespace
}  // namespace vorlinden::platform
