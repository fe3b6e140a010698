#include "platform/json.h"

#include <gtest/gtest.h>

namespace vorlinden::tests {
namespace {

using platform::JSONDocument;
using platform::JSONError;
using platform::JSONObjectBuilder;
using Kind = platform::JSONError::Kind;

std::optional<JSONError> failureOf(const std::function<void()>& action) {
    try {
        action();
        return std::nullopt;
    } catch (const JSONError& error) {
        return error;
    }
}

std::string nested(std::size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
}

std::string objectOf(std::size_t members, const std::string& lastKey) {
    std::string text = "{";
    for (std::size_t i = 0; i < members; ++i)
        text += "\"k" + std::to_string(i) + "\":0,";
    return text + "\"" + lastKey + "\":0}";
}

TEST(JSON, RefusesWhatIsNoCleanDocument) {
    // Among them: no UTF-8, a surrogate in UTF-8, half a pair, an overlong form in a key, a raw control
    // character, keys that are equal once the escape is read, nesting that would exhaust the stack.
    for (const std::string& text : std::initializer_list<std::string>{
             "", "   ", "{", "{}{}", "{\"a\":1,}", "{'a':1}", "{\"a\":01}", "{\"a\":NaN}", "// comment\n{}",
             "{\"a\":\"\xff\"}", "{\"a\":\"\xed\xa0\x80\"}", "{\"a\":\"\\ud800\"}", "{\"\xc0\xaf\":1}",
             std::string("{\"a\":\"\0\"}", 9), "{\"a\":1,\"b\":2,\"a\":3}", "{\"x\":{\"a\":1,\"\\u0061\":3}}",
             objectOf(100, "k50"), nested(65), nested(100'000)}) {
        const auto failure = failureOf([&] { JSONDocument document(text); });
        ASSERT_TRUE(failure) << text.substr(0, 80);
        EXPECT_EQ(failure->kind, Kind::malformed) << text.substr(0, 80);
    }
    for (const auto& text : {nested(64), objectOf(100, "k100"), std::string(" {} \n")})
        EXPECT_FALSE(failureOf([&] { JSONDocument document(text); })) << text.substr(0, 80);
}

TEST(JSON, ReadsStringsWithAndWithoutEscapes) {
    const std::string longPlain(5000, 'x');
    const auto text = R"({"plain":"äöü","escaped":"a\n\"\u00e9\ud83d\ude00\/","k\u0065y":"","long":")" +
                      longPlain + R"(","longEscaped":")" + longPlain + R"(\n)" + longPlain + R"("})";
    const JSONDocument document(text);
    const auto root = document.root();
    EXPECT_EQ(root.requiredString("plain"), "äöü");
    EXPECT_EQ(root.requiredString("escaped"), "a\n\"é😀/");
    EXPECT_EQ(root.requiredString("key"), "");
    EXPECT_EQ(root.requiredString("long"), longPlain);
    EXPECT_EQ(root.requiredString("longEscaped"), longPlain + "\n" + longPlain);
}

TEST(JSON, ReadsWholeNumbersOfSixtyFourBitsAndNoOthers) {
    const std::pair<const char*, std::int64_t> numbers[] = {{"0", 0},
                                                            {"-1", -1},
                                                            {"9223372036854775807", INT64_MAX},
                                                            {"-9223372036854775808", INT64_MIN},
                                                            {"5.0", 5},
                                                            {"1e3", 1000},
                                                            {"9007199254740992.0", 9007199254740992}};
    for (const auto& [text, expected] : numbers)
        EXPECT_EQ(JSONDocument(text).root().integer(), expected) << text;
    for (const auto* text :
         {"9223372036854775808", "18446744073709551616", "1e300", "1e999", "0.5", "\"5\"", "true", "null"})
        EXPECT_TRUE(failureOf([&] { JSONDocument(text).root().integer(); })) << text;
}

TEST(JSON, NullIsAbsentAndAFailureSaysWhereItArose) {
    const JSONDocument document(
        R"({"a":null,"l":["x"],"n":[1],"entries":[{"x":0},{"ops":[{"kind":"a"},{"kind":7,"path":"a\u0000b"}]}]})");
    const auto root = document.root();
    EXPECT_EQ(root.optionalString("a"), std::nullopt);
    EXPECT_EQ(root.optionalInteger("missing"), std::nullopt);
    EXPECT_EQ(root.optionalStrings("l"), std::vector<std::string>{"x"});
    EXPECT_EQ(failureOf([&] { root.requiredString("a"); })->kind, Kind::missingKey);
    EXPECT_EQ(failureOf([&] { root.optionalString("n"); })->kind, Kind::wrongType);
    EXPECT_EQ(failureOf([&] { root.requiredStrings("n"); })->path, "n[0]");
    EXPECT_EQ(failureOf([&] { root.list(); })->path, "");
    const auto op = root.required("entries").list()[1].required("ops").list()[1];
    EXPECT_EQ(*failureOf([&] { op.requiredString("kind"); }),
              JSONError(Kind::wrongType, "entries[1].ops[1].kind", "Expected a string."));
    EXPECT_EQ(failureOf([&] { op.required("at"); })->path, "entries[1].ops[1]");
    EXPECT_EQ(failureOf([&] { op.requiredName("path"); })->kind, Kind::corrupted);
    EXPECT_STREQ(failureOf([&] { op.requiredBool("kind"); })->what(),
                 "Expected true or false. (at entries[1].ops[1].kind)");
}

TEST(JSON, WritesCompactText) {
    const auto object = JSONObjectBuilder()
                            .add("z", "a\"/\n\x01é")
                            .add("a", std::int64_t{-5})
                            .add("left out", std::optional<std::string>())
                            .add("m", true)
                            .add("list", std::vector<std::string>{"x", ""});
    EXPECT_EQ(object.text().text, R"({"z":"a\"/\n\u0001é","a":-5,"m":true,"list":["x",""]})");
    EXPECT_EQ(object.sortedText().text, R"({"a":-5,"list":["x",""],"m":true,"z":"a\"/\n\u0001é"})");
    EXPECT_EQ(failureOf([] { platform::toJSON("\xff"); })->kind, Kind::notEncodable);
}

}  // namespace
}  // namespace vorlinden::tests
