// The raw header parser that reads Shoutcast header blocks.
#include <belvane/BVURLProbe.h>

#include "foundation/text_encoding.h"

#include <gtest/gtest.h>

namespace {

std::optional<std::string> rawContentType(std::string_view bytes) {
  return BVURLProbe::contentTypeFromRawBytes(belvane::detail::bytesOf(bytes));
}

}  // namespace

TEST(RawHeaderParser, LineRulesAreByteExact) {
  BVHeaderDictionary fields = BVURLProbe::parseHeader(
      "HTTP/1.0 200 OK\r\nContent-Type :audio/mpeg\r\nIcy-Name: \tMy Radio\t \r\n"
      "icy-url:http://x.org:8000/\r\nA: 1\nB: 2\r\nbody without colon\r\n\r\n",
      nullptr);
  // A space before the colon stays in the (lower-cased) key.
  EXPECT_EQ(fields.count("content-type"), 0u);
  EXPECT_EQ(fields["content-type "], "audio/mpeg");
  // Values are trimmed of spaces and tabs; only the first colon splits.
  EXPECT_EQ(fields["icy-name"], "My Radio");
  EXPECT_EQ(fields["icy-url"], "http://x.org:8000/");
  // A lone LF does not end a line.
  EXPECT_EQ(fields["a"], "1\nB: 2");
  EXPECT_EQ(fields.size(), 4u);
  EXPECT_TRUE(BVURLProbe::parseHeader("", nullptr).empty());

  // A later line with the same key wins, and non-ASCII keys are lower-cased.
  fields = BVURLProbe::parseHeader("X-Type: a\r\nx-type: b\r\nÄRGER: c", nullptr);
  EXPECT_EQ(fields["x-type"], "b");
  EXPECT_EQ(fields["ärger"], "c");
}

TEST(RawHeaderParser, ShoutcastStatusLines) {
  BVErrorRef error;
  BVHeaderDictionary fields =
      BVURLProbe::parseHeader("ICY 200 OK\r\ncontent-type:audio/mpeg\r\nicy-name:X\r\n\r\n", &error);
  EXPECT_EQ(error, nullptr);
  EXPECT_EQ(fields["content-type"], "audio/mpeg");

  BVURLProbe::parseHeader("ICY 404 Resource Not Found\r\n\r\n", &error);
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->domain(), "ORShoutcastErrorDomain");
  EXPECT_EQ(error->code(), 404);
  EXPECT_EQ(error->localizedDescription(), "This stream appears to be offline or otherwise unavailable.");
  EXPECT_EQ(error->userInfo().at(BVLocalizedFailureReasonErrorKey), BVValue("ICY 404 Resource Not Found"));

  // A later status line replaces the error; 200 never clears it; the prefix
  // is case-sensitive and the line must be longer than seven characters.
  error = nullptr;
  BVURLProbe::parseHeader("ICY 401 Unauthorized\r\nICY 503 Busy\r\nICY 200 OK\r\nicy 500 x\r\nICY 500", &error);
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->code(), 503);
  // Without an error slot the parse still yields its fields.
  EXPECT_EQ(BVURLProbe::parseHeader("ICY 404 x\r\na:b", nullptr).at("a"), "b");
}

TEST(RawHeaderParser, ContentTypeComesFromTheTextUpToTheLastBlankLine) {
  EXPECT_EQ(rawContentType("ICY 200 OK\r\ncontent-type:audio/mpeg\r\nicy-name:X\r\n\r\n\xff\xfb\x90"), "audio/mpeg");
  // No blank line, or fewer than four bytes: nothing is parsed.
  EXPECT_EQ(rawContentType("ICY 200 OK\r\ncontent-type:audio/mpeg\r\n"), std::nullopt);
  EXPECT_EQ(rawContentType("\r\n\r"), std::nullopt);
  // The last content-type before the last blank line wins; the text is
  // parsed from its start, so a line in an earlier block still counts.
  EXPECT_EQ(rawContentType("content-type: a/1\r\n\r\nContent-Type: a/2\r\n\r\ncontent-type: a/3\r\n"), "a/2");
  EXPECT_EQ(rawContentType("content-type: a/1\r\n\r\nicy-name: X\r\n\r\n"), "a/1");
  // Latin-1 bytes survive as characters.
  EXPECT_EQ(rawContentType("content-type: audio/\xe9\r\n\r\n"), "audio/\xc3\xa9");
  // The space-before-colon key is not "content-type".
  EXPECT_EQ(rawContentType("Content-Type :audio/mpeg\r\n\r\n"), std::nullopt);
}

TEST(RawHeaderParser, LowercasingKeysTrimsValues) {
  BVHeaderDictionary fields = BVURLProbe::dictionaryWithAllKeysLowercase(
      {{"Content-Type", " text/html\t"}, {"content-type", "audio/mpeg "}, {"X", "\t1"}});
  EXPECT_EQ(fields.size(), 2u);
  // Of keys differing only by case, the later in key order wins.
  EXPECT_EQ(fields["content-type"], "audio/mpeg");
  EXPECT_EQ(fields["x"], "1");
}
