// QTMetaData over hand-made containers: the data-type conversions, the key
// lists' order and quirks, the duration, and comn items from GStreamer tags.
#include "players/quicktime/QTMetaData.h"

#include <belvane/BVIconCenter.h>

#include <gst/gst.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace belvane::detail;

namespace {

constexpr QTTime kMinute{60 * kQTMovieTimeScale, kQTMovieTimeScale, 0};

std::shared_ptr<QTMetaDataContainer> container(std::vector<QTMetaDataItem> items) {
  auto c = std::make_shared<QTMetaDataContainer>();
  c->items = std::move(items);
  return c;
}

BVValue convert(uint32_t type, const std::string& bytes) {
  QTMetaDataContainer c;
  return QTMetaData::_valueFromQTMetaData(c, {kQTMetaDataKeyFormatUserData, "key ", type, bytes});
}

QTMetaDataItem udta(const std::string& key, const std::string& text) {
  return {kQTMetaDataKeyFormatUserData, key, kQTMetaDataTypeUTF8, text};
}
QTMetaDataItem comn(const std::string& key, const std::string& text) {
  return {kQTMetaDataKeyFormatCommon, key, kQTMetaDataTypeUTF8, text};
}

}  // namespace

TEST(QTMetaDataValues, DataTypesConvertAsTheTableSays) {
  EXPECT_EQ(convert(kQTMetaDataTypeUTF8, "Caf\xC3\xA9"), BVValue("Café"));
  EXPECT_TRUE(convert(kQTMetaDataTypeUTF8, "bad \xC3").isNone());
  EXPECT_EQ(convert(kQTMetaDataTypeUTF16BE, std::string("\x00S\x00\xE9", 4)), BVValue("Sé"));
  EXPECT_EQ(convert(kQTMetaDataTypeMacEncodedText, "Caf\x8E \xA9"), BVValue("Café ©"));
  EXPECT_EQ(convert(kQTMetaDataTypeBinary, std::string("\x00\x01", 2)), BVValue(BVData{0, 1}));
  EXPECT_TRUE(convert(kQTMetaDataTypeUTF8, "").isNone());
  EXPECT_TRUE(convert(99, "x").isNone());

  EXPECT_EQ(convert(kQTMetaDataTypeSignedIntegerBE, "\xFF\xFE"), BVValue(-2));
  EXPECT_EQ(convert(kQTMetaDataTypeSignedIntegerBE, std::string("\x80\0\0\0\0\0\0\0", 8)).integerValue(),
            std::numeric_limits<int64_t>::min());
  EXPECT_TRUE(convert(kQTMetaDataTypeSignedIntegerBE, std::string("\0\0\1", 3)).isNone());
  EXPECT_EQ(convert(kQTMetaDataTypeUnsignedIntegerBE, "\xFF\xFF\xFF\xFF"), BVValue(4294967295LL));
  EXPECT_EQ(convert(kQTMetaDataTypeFloat32BE, std::string("\x3F\xC0\x00\x00", 4)).doubleValue(), 1.5);
  EXPECT_EQ(convert(kQTMetaDataTypeFloat64BE, std::string("\x40\x09\0\0\0\0\0\0\xAA", 9)).doubleValue(), 3.125);
  EXPECT_TRUE(convert(kQTMetaDataTypeFloat64BE, "\x40\x09").isNone());

  auto image = convert(kQTMetaDataTypePNGImage, "\x89PNG").objectAs<BVImage>();
  ASSERT_TRUE(image && image->data());
  EXPECT_EQ(image->data()->size(), 4u);
}

TEST(QTMetaDataValues, KeyListsTakeTheFirstUsableValue) {
  // An empty common name falls through to the user-data title.
  QTMetaData titled(container({comn("name", ""), udta("\xA9nam", "Real title"), udta("name", "Later")}), kMinute);
  EXPECT_EQ(titled.title(), BVValue("Real title"));
  // Only empty strings: nothing, not an empty string.
  QTMetaData empty(container({comn("name", ""), udta("\xA9nam", "")}), kMinute);
  EXPECT_TRUE(empty.title().isNone());
  // A value that is no string wins even before later strings.
  QTMetaData numbered(container({{kQTMetaDataKeyFormatUserData, "\xA9" "day", kQTMetaDataTypeUnsignedIntegerBE, "\x07\xCF"},
                                 {kQTMetaDataKeyFormatiTunesShortForm, "\xA9" "day", kQTMetaDataTypeUTF8, "1999"}}),
                      kMinute);
  EXPECT_EQ(numbered.year(), BVValue(1999));

  // An album in user data with no common artist is the artist too; the
  // iTunes copyright is asked under cprt; the mdta display name is a title.
  QTMetaData tagged(container({udta("\xA9" "alb", "The Album"),
                               {kQTMetaDataKeyFormatiTunesShortForm, "cprt", kQTMetaDataTypeUTF8, "(c) Label"},
                               {kQTMetaDataKeyFormatiTunesShortForm, "\xA9" "cpy", kQTMetaDataTypeUTF8, "unused"},
                               {kQTMetaDataKeyFormatQuickTime, "com.apple.quicktime.displayname", kQTMetaDataTypeUTF8, "Shown"}}),
                    kMinute);
  EXPECT_EQ(tagged.artist(), BVValue("The Album"));
  EXPECT_EQ(tagged.album(), BVValue("The Album"));
  EXPECT_EQ(tagged.copyright(), BVValue("(c) Label"));
  EXPECT_EQ(tagged.title(), BVValue("Shown"));
  // A common artist comes first; the author and performers come last.
  QTMetaData credited(container({udta("\xA9prf", "Performer"), comn("auth", "Author")}), kMinute);
  EXPECT_EQ(credited.artist(), BVValue("Author"));

  // Keys travel as quoted type-code text; other text is the key's bytes.
  EXPECT_EQ(NSFileTypeForHFSTypeCode(QTFourCharCode("\xA9nam")), "'©nam'");
  EXPECT_EQ(NSHFSTypeCodeFromFileType("'©nam'"), QTFourCharCode("\xA9nam"));
  EXPECT_EQ(NSHFSTypeCodeFromFileType("'toolong'"), 0u);
  EXPECT_EQ(tagged._valueWithKeyFormat(kQTMetaDataKeyFormatiTunesShortForm, "'cprt'"), BVValue("(c) Label"));
  EXPECT_TRUE(tagged._valueWithKeyFormat(kQTMetaDataKeyFormatiTunesShortForm, "'cpr'").isNone());
  EXPECT_EQ(tagged._valueWithKeyFormat(kQTMetaDataKeyFormatQuickTime, "com.apple.quicktime.displayname"), BVValue("Shown"));
}

TEST(QTMetaDataValues, DurationAndDescription) {
  auto none = container({});
  EXPECT_EQ(QTMetaData(none, kMinute).duration(), BVValue(60.0));
  EXPECT_TRUE(QTMetaData(none, QTTime{0, kQTMovieTimeScale, kQTTimeIsIndefinite}).duration().isNone());
  EXPECT_TRUE(QTMetaData(none, QTTime{0, kQTMovieTimeScale, 0}).duration().isNone());
  EXPECT_TRUE(QTMetaData(none, QTTime{-5, kQTMovieTimeScale, 0}).duration().isNone());
  EXPECT_TRUE(QTMetaData(none, QTTime{5, 0, 0}).duration().isNone());
  EXPECT_TRUE(QTMetaData(nullptr, kMinute).title().isNone());

  // Common items are left out; four-character keys show as quoted codes.
  QTMetaData described(container({comn("name", "hidden"), udta("\xA9nam", "Shown title"),
                                  {kQTMetaDataKeyFormatQuickTime, "com.example.key", kQTMetaDataTypeUTF8, "keyed"}}),
                       kMinute);
  std::string text = described.description();
  for (const char* part : {"'©nam'", "Shown title", "com.example.key"}) EXPECT_NE(text.find(part), std::string::npos) << text;
  EXPECT_EQ(text.find("hidden"), std::string::npos) << text;
}

TEST(QTMetaDataValues, CommonItemsComeFromTags) {
  gst_init(nullptr, nullptr);
  GstTagList* tags = gst_tag_list_new(GST_TAG_TITLE, "Now Playing", GST_TAG_ARTIST, "Band", GST_TAG_COMPOSER, "Writer",
                                      GST_TAG_COMMENT, "Live", GST_TAG_GENRE, "Jazz", nullptr);
  gst_tag_list_add(tags, GST_TAG_MERGE_APPEND, GST_TAG_ARTIST, "Guest", nullptr);
  QTMetaDataContainer items;
  appendCommonItemsFromTags(items, tags);
  appendCommonItemsFromTags(items, nullptr);
  gst_tag_list_unref(tags);

  QTMetaData reader(std::make_shared<QTMetaDataContainer>(items), kMinute);
  EXPECT_EQ(reader.title(), BVValue("Now Playing"));
  EXPECT_EQ(reader.artist(), BVValue("Band, Guest"));
  EXPECT_EQ(reader.comment(), BVValue("Live"));
  EXPECT_EQ(reader.genre(), BVValue("Jazz"));
  ASSERT_NE(items.firstItem(kQTMetaDataKeyFormatCommon, "auth"), nullptr);
  EXPECT_EQ(items.firstItem(kQTMetaDataKeyFormatCommon, "auth")->value, "Writer");
}
