// The shared text helpers: lower-casing, case-insensitive comparison and the
// media type of a Content-Type value.
#include "foundation/mime_type.h"
#include "foundation/text_encoding.h"

#include <gtest/gtest.h>

using namespace belvane::detail;

TEST(TextHelpers, LowerCasingAndComparisonIgnoreOnlyLetterCase) {
  EXPECT_EQ(asciiLower("HTTP://Host/ÄB"), "http://host/Äb");
  EXPECT_EQ(utf8Lower("<ASX Version=3>"), "<asx version=3>");
  EXPECT_EQ(utf8Lower("TITEL ÄÖÜ"), "titel äöü");
  // Invalid UTF-8 is lower-cased byte by byte and keeps its other bytes.
  EXPECT_EQ(utf8Lower("AB\xff\xfe"), "ab\xff\xfe");

  EXPECT_TRUE(equalsIgnoringASCIICase("File", "fILE"));
  EXPECT_FALSE(equalsIgnoringASCIICase("file", "files"));
  EXPECT_FALSE(equalsIgnoringASCIICase("Ä", "ä"));
  EXPECT_TRUE(hasPrefixIgnoringASCIICase("ICY 200 OK", "icy"));
  EXPECT_TRUE(hasPrefixIgnoringASCIICase("#EXT-X-VERSION:3", "#ext-x-"));
  EXPECT_FALSE(hasPrefixIgnoringASCIICase("IC", "icy"));
  EXPECT_FALSE(hasPrefixIgnoringASCIICase("xicy", "icy"));
}

TEST(TextHelpers, MIMETypeDropsParametersAndBlanks) {
  EXPECT_EQ(mimeTypeWithoutParameters(" Audio/X-SCPLS ; charset=UTF-8"), "audio/x-scpls");
  EXPECT_EQ(mimeTypeWithoutParameters("\tAUDIO/MPEG\r\n"), "audio/mpeg");
  EXPECT_EQ(mimeTypeWithoutParameters("audio/aacp;charset=x;y=z"), "audio/aacp");
  EXPECT_EQ(mimeTypeWithoutParameters("; charset=x"), "");
  EXPECT_EQ(mimeTypeWithoutParameters(""), "");
  EXPECT_EQ(mimeTypeWithoutParameters(" Audio/MPEG; charset=x", MIMETypeCase::AsWritten), "Audio/MPEG");
}
