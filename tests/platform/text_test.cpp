#include "platform/text.h"

#include <string>

#include <gtest/gtest.h>

namespace vorlinden::platform {
namespace {

TEST(Text, ValidityFollowsTheUnicodeTableOfWellFormedSequences) {
    const std::string ascii(61, 'a');  // so that sequences also stand across the fast path's steps
    const struct {
        std::string bytes;
        bool valid;
    } cases[] = {
        {"", true},
        {"plain", true},
        {std::string("a\0b", 3), true},
        {"\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80", true},
        {"\xEF\xBF\xBF", true},
        {"\xF4\x8F\xBF\xBF", true},
        {"\x80", false},
        {"\xC3", false},
        {"\xC0\xAF", false},          // overlong
        {"\xE0\x80\xAF", false},      // overlong
        {"\xED\xA0\x80", false},      // surrogate
        {"\xF4\x90\x80\x80", false},  // beyond U+10FFFF
        {"\xF8\x88\x80\x80\x80", false},
        {"\xE2\x82", false},
        {"\xE2\x28\xA1", false},
        {"\xFF", false},
    };
    for (const auto& [bytes, valid] : cases) {
        EXPECT_EQ(isValidUTF8(bytes), valid) << testing::PrintToString(bytes);
        EXPECT_EQ(isValidUTF8(ascii + bytes), valid) << testing::PrintToString(bytes);
        EXPECT_EQ(isValidUTF8(bytes + ascii), valid) << testing::PrintToString(bytes);
        EXPECT_TRUE(isValidUTF8(repairedUTF8(ascii + bytes + ascii)));
        EXPECT_EQ(repairedUTF8(bytes) == bytes, valid);
    }
    EXPECT_EQ(repairedUTF8("a\xC3(\xF0\x9F\x98z\x80\x80"), "a\uFFFD(\uFFFDz\uFFFD\uFFFD");
}

TEST(Text, LengthsCountUTF16Units) {
    EXPECT_EQ(utf16Length(""), 0u);
    EXPECT_EQ(utf16Length("abc"), 3u);
    EXPECT_EQ(utf16Length("h\u00E9llo \u20AC"), 7u);
    EXPECT_EQ(utf16Length("\U0001F600\U0001F600"), 4u);
    EXPECT_EQ(utf16Length("e\u0301"), 2u);
}

TEST(Text, ComposedFormOfEquivalentTextsIsOne) {
    EXPECT_EQ(composed("plain.md"), "plain.md");
    EXPECT_EQ(composed("cafe\u0301"), "caf\u00E9");
    EXPECT_EQ(composed("caf\u00E9"), "caf\u00E9");
    EXPECT_EQ(composed("\u212B"), "\u00C5");                // Angstrom sign
    EXPECT_EQ(composed("\u1112\u1161\u11AB"), "\uD55C");    // Hangul jamo
    EXPECT_EQ(composed("q\u0307\u0323"), "q\u0323\u0307");  // canonical order of marks
    EXPECT_EQ(composed("\uFB01"), "\uFB01");                // compatibility forms stay apart
    EXPECT_NE(composed("Stra\u00DFe"), composed("Strasse"));
    EXPECT_EQ(composed("e\u0301\xFF"), "\u00E9\uFFFD");
}

TEST(Text, CaseIsChangedInFullAndWithoutALocale) {
    EXPECT_EQ(lowerCased("README.MD"), "readme.md");
    EXPECT_EQ(lowerCased("\u00C4RGER \u0130I"), "\u00E4rger i\u0307i");
    EXPECT_EQ(lowerCased("\u039F\u0394\u039F\u03A3"), "\u03BF\u03B4\u03BF\u03C2");  // final sigma
    EXPECT_EQ(caseFolded("\u039F\u0394\u039F\u03A3"), "\u03BF\u03B4\u03BF\u03C3");
    EXPECT_EQ(caseFolded("STRASSE"), caseFolded("stra\u00DFe"));
    EXPECT_EQ(caseFolded("A[Z]{z}"), "a[z]{z}");
}

TEST(Text, TrimmingTakesEveryWhiteSpaceOfBothEndsOnly) {
    EXPECT_EQ(trimmed("  a b\t\r\n"), "a b");
    EXPECT_EQ(trimmed("\u00A0\u2003\u3000x y\u2028\u0085"), "x y");
    EXPECT_EQ(trimmed("\u200Bx"), "\u200Bx");  // no White_Space
    EXPECT_EQ(trimmed(" \n\u2029"), "");
    EXPECT_EQ(trimmed(""), "");
    EXPECT_EQ(trimmed(" \U0001F600 "), "\U0001F600");
}

}  // namespace
}  // namespace vorlinden::platform
