// Turning user and web-page strings into URLs.
#include <belvane/BVURLAdditions.h>

#include <gtest/gtest.h>

namespace {

std::string resolved(std::string_view string, std::string_view base) {
  auto url = bvURLFromString(string, BVURL::URLWithString(base));
  return url ? url->absoluteString() : "<nil>";
}

}  // namespace

TEST(URLFromString, RefusesNonMediaSchemesCaseSensitively) {
  EXPECT_FALSE(bvURLFromString("javascript:alert(1)"));
  EXPECT_FALSE(bvURLFromString("mailto:someone@example.com"));
  EXPECT_FALSE(bvURLFromString("aim:goim?screenname=x"));
  EXPECT_FALSE(bvURLFromString(""));
  EXPECT_FALSE(bvURLFromString(static_cast<const std::string*>(nullptr)));
  // Refused whatever the base.
  EXPECT_EQ(resolved("mailto:x@y.z", "http://example.com/"), "<nil>");
  EXPECT_EQ(resolved("", "http://example.com/"), "<nil>");

  // Only the exact spelling is refused.
  auto upper = bvURLFromString("JavaScript:void(0)");
  ASSERT_TRUE(upper);
  EXPECT_EQ(upper->absoluteString(), "JavaScript:void(0)");
  EXPECT_TRUE(bvURLFromString("MAILTO:x@y.z"));
}

TEST(URLFromString, KeepsTheStringAsItStands) {
  auto url = bvURLFromString("http://example.com/radio%20one.pls?x=1");
  ASSERT_TRUE(url);
  EXPECT_EQ(url->absoluteString(), "http://example.com/radio%20one.pls?x=1");
  // No trimming, escaping or default scheme: these are not URLs.
  EXPECT_FALSE(bvURLFromString(" http://example.com/"));
  EXPECT_FALSE(bvURLFromString("http://example.com/a b"));
  auto bare = bvURLFromString("example.com/stream");
  ASSERT_TRUE(bare);
  EXPECT_EQ(bare->scheme(), "");
}

TEST(URLFromString, ResolvesRelativeStringsAgainstTheBase) {
  EXPECT_EQ(resolved("a.pls", "http://example.com/dir/list.m3u"), "http://example.com/dir/a.pls");
  EXPECT_EQ(resolved("/top.mp3", "http://example.com/dir/list.m3u"), "http://example.com/top.mp3");
  // A scheme with an authority stands on its own.
  EXPECT_EQ(resolved("http://other.org/x.mp3", "http://example.com/dir/"), "http://other.org/x.mp3");
  // A single slash after the colon is not absolute by the "//" test, so the
  // string goes through resolution, where its own scheme makes it stand.
  EXPECT_EQ(resolved("file:/tmp/a.mp3", "file:///music/list.m3u"), "file:/tmp/a.mp3");
  // A string the parser refuses falls back to relative resolution, which
  // refuses it too.
  EXPECT_EQ(resolved("a b.mp3", "http://example.com/"), "<nil>");

  // Without a base the relative URL comes back unresolved.
  auto relative = bvURLFromString("a.pls", std::nullopt);
  ASSERT_TRUE(relative);
  EXPECT_EQ(relative->absoluteString(), "a.pls");
}

TEST(URLFromString, AbsoluteMeansDoubleSlashAfterTheScheme) {
  EXPECT_TRUE(bvIsAbsoluteURL(*BVURL::URLWithString("http://example.com/")));
  EXPECT_TRUE(bvIsAbsoluteURL(*BVURL::URLWithString("file:///tmp/x")));
  EXPECT_FALSE(bvIsAbsoluteURL(*BVURL::URLWithString("file:/tmp/x")));
  EXPECT_FALSE(bvIsAbsoluteURL(*BVURL::URLWithString("mms:example")));
  EXPECT_FALSE(bvIsAbsoluteURL(*BVURL::URLWithString("dir/a.pls")));
}
