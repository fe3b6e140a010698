#include "platform/url.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

namespace vorlinden::tests {
namespace {

using platform::percentDecoded;
using platform::percentEncoded;
using platform::URL;

TEST(URL, KeepsTheTextThatItWasGivenAndTellsItsParts) {
    for (const auto* text :
         {"https://Host.Example:8443/a%2fb/?q=%20#f", "vorlinden://oauth/callback?code=a%20b",
          "http://[::1]:80/", "relative/path", "mailto:a@b"})
        EXPECT_EQ(URL::parse(text)->absoluteString(), text);
    for (const auto* text :
         {"", "http://a b/", "http://host/%zz", "http://ho\\st/", "http://hööst/", "://x", "http://[::1/"})
        EXPECT_FALSE(URL::parse(text)) << text;
    const auto url = *URL::parse("HTTPS://user@Example.COM/p%20q//?a=b&c=%2F#frag");
    EXPECT_EQ(url.scheme(), "HTTPS");
    EXPECT_EQ(url.host(), "Example.COM");
    EXPECT_EQ(url.encodedPath(), "/p%20q//");
    EXPECT_EQ(url.encodedQuery(), "a=b&c=%2F");
    EXPECT_EQ(URL::parse("http://h")->encodedQuery(), std::nullopt);
    EXPECT_EQ(URL::parse("http://[::1]:5/")->host(), "::1");
    EXPECT_EQ(URL::parse("a/b")->host(), std::nullopt);
}

TEST(URL, OriginsAreEqualWhenTheServerIs) {
    const auto origin = [](const char* text) { return URL::parse(text)->origin(); };
    EXPECT_EQ(origin("HTTPS://Example.com/a"), "https://example.com:443");
    EXPECT_EQ(origin("https://example.com:443"), "https://example.com:443");
    EXPECT_EQ(origin("http://user:pw@[::1]/x"), "http://[::1]:80");
    EXPECT_NE(origin("http://example.com"), origin("https://example.com"));
    EXPECT_NE(origin("http://example.com@evil.example"), origin("http://example.com"));
    EXPECT_EQ(origin("http://10.0.0.1.example/a"), "http://10.0.0.1.example:80");
    EXPECT_EQ(origin("vorlinden:x"), std::nullopt);
    EXPECT_EQ(origin("file:///etc"), std::nullopt);
}

TEST(URL, KnowsThisMachine) {
    for (const auto* text :
         {"http://127.0.0.1:9/", "https://LocalHost", "http://[::1]/", "http://127.8.8.8/"})
        EXPECT_TRUE(URL::parse(text)->isLoopback()) << text;
    for (const auto* text : {"http://127.0.0.1.example/", "http://localhost.example", "http://10.0.0.1/",
                             "http://[::2]/", "http://127.0.0.1@example/", "http:127.0.0.1", "/localhost"})
        EXPECT_FALSE(URL::parse(text)->isLoopback()) << text;
}

TEST(URL, TakesANewPathAndQueryAsTheyAre) {
    const auto url = *URL::parse("https://h:1/old?x#f");
    EXPECT_EQ(url.with("/a%2Fb/%7E", "q=%20&r=")->absoluteString(), "https://h:1/a%2Fb/%7E?q=%20&r=#f");
    EXPECT_EQ(url.with("/a", std::nullopt)->absoluteString(), "https://h:1/a#f");
    EXPECT_EQ(URL::parse("http://u@1.2.3.4x:5")->with("/a", "b")->absoluteString(),
              "http://u@1.2.3.4x:5/a?b");
    for (const auto* path : {"/with blank", "/a%zz", "no-slash"})
        EXPECT_EQ(url.with(path, std::nullopt), std::nullopt) << path;
}

TEST(PercentEncoding, LeavesOnlyTheUnreservedSet) {
    EXPECT_EQ(percentEncoded("AZaz09-._~"), "AZaz09-._~");
    EXPECT_EQ(percentEncoded("a/b c+d&e=ä*'"), "a%2Fb%20c%2Bd%26e%3D%C3%A4%2A%27");
    EXPECT_EQ(percentEncoded(std::string_view("\0\xff", 2)), "%00%FF");
    EXPECT_EQ(percentDecoded("a+b%2fc"), "a+b/c");
    EXPECT_EQ(percentDecoded("%GG"), std::nullopt);
}

RC_GTEST_PROP(PercentEncoding, IsUndoneByDecoding, (const std::string& text)) {
    RC_ASSERT(percentDecoded(percentEncoded(text)) == text);
}

}  // namespace
}  // namespace vorlinden::tests
