// The shared text helpers: lower-casing, case-insensitive comparison, the
// media type of a Content-Type value and station titles in UTF-8.
#include "foundation/mime_type.h"
#include "foundation/text_encoding.h"
#include "foundation/title_encoding.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <vector>

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

namespace {
// text in the named character set, as a station would send it.
std::string encoded(const char* text, const char* charset) {
  gsize length = 0;
  gchar* converted = g_convert(text, -1, charset, "UTF-8", nullptr, &length, nullptr);
  std::string result(converted, length);
  g_free(converted);
  return result;
}
std::string title(const std::string& bytes, std::string_view encodingOverride = {}) {
  return stationTitleToUTF8(bytesOf(bytes), encodingOverride);
}
}  // namespace

TEST(StationTitles, AreReadInTheCharacterSetTheStationUsed) {
  for (const auto& [text, charset] : std::vector<std::pair<const char*, const char*>>{
           {"Кино - Группа крови", "WINDOWS-1251"},
           {"Кино - Группа крови", "KOI8-R"},
           {"Сплин - Выхода нет", "KOI8-R"},
           {"Beyoncé - Déjà vu", "WINDOWS-1252"},
           {"Łódź - Zażółć gęślą jaźń", "ISO-8859-2"},
           {"宇多田ヒカル - ファースト・ラブ", "SHIFT_JIS"},
           {"王菲 - 红豆", "GB18030"}})
    EXPECT_EQ(title(encoded(text, charset)), text) << charset;
  // UTF-8 stays as it is; the empty title is empty (the host clears it).
  EXPECT_EQ(title("Sigur Rós - Hoppípolla"), "Sigur Rós - Hoppípolla");
  EXPECT_EQ(title(""), "");
  // An override wins over the detection, unless the bytes are not valid in it.
  EXPECT_EQ(title(encoded("Кино", "WINDOWS-1251"), "KOI8-R"), "йХМН");
  EXPECT_EQ(title("\x81\x82", "UTF-8"), title("\x81\x82"));
}
