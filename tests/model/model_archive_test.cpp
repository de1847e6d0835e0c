// The records' sequential archives: round trips through the archive format,
// mutable classes preserved, and damaged records refused.
#include <belvane/BVArchive.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVPropertyList.h>

#include "model/model_archiving.h"

#include <gtest/gtest.h>

using belvane::BVArchivedData;
using belvane::BVUnarchive;
using belvane::detail::BVModelArchivableClasses;

namespace {

BVURL url(const std::string& s) { return *BVURL::URLWithString(s); }

template <class T>
std::shared_ptr<T> roundTrip(const std::shared_ptr<T>& object) {
  auto bytes = BVArchivedData(BVValue(object));
  EXPECT_FALSE(bytes.empty());
  auto value = BVUnarchive(bytes, BVModelArchivableClasses());
  EXPECT_TRUE(value);
  return value ? value->template objectAs<T>() : nullptr;
}

// Archive bytes written by hand from a tagged plain value, as an attacker would.
std::vector<uint8_t> rawArchive(const BVValue& plain) {
  auto bytes = BVPropertyList::serialize(plain, BVPropertyListFormat::Binary);
  return bytes ? std::vector<uint8_t>(bytes->begin(), bytes->end()) : std::vector<uint8_t>{};
}

}  // namespace

TEST(ModelArchive, RecordsRoundTripWithTheirClasses) {
  auto format = BVMediaMutableFormat::formatByInferringFromURL(url("http://example.com/a.mp3"), "audio/mpeg");
  format->setEngineID("Shoutcast");
  format->setRadioTimeMediaType("");
  auto source = BVMediaLinkSource::linkSourceWithKind(0xF0E1D2C3, url("http://example.com/"), std::nullopt,
                                                      url("http://e/"), std::nullopt);
  auto link = BVMediaLink::create(url("http://example.com/a.mp3"), "Title", format, source);

  auto back = roundTrip(link);
  ASSERT_TRUE(back);
  EXPECT_EQ(back->className(), "BVMediaLink");
  EXPECT_EQ(back->description(), link->description());
  EXPECT_EQ(back->format()->radioTimeMediaType(), "");
  // A decoded format has no source URL, so it never asks for its type.
  EXPECT_EQ(back->format()->sourceURL(), std::nullopt);
  EXPECT_EQ(back->source()->kind(), 0xF0E1D2C3u);  // archived as a negative 32-bit number
  EXPECT_EQ(back->source()->pageURL()->absoluteString(), "http://example.com/");
  EXPECT_EQ(back->source()->baseURL(), std::nullopt);

  auto formatBack = roundTrip(format);
  ASSERT_TRUE(formatBack);
  EXPECT_EQ(formatBack->className(), "BVMediaMutableFormat");
  EXPECT_EQ(formatBack->plistRepresentation(), format->plistRepresentation());

  // The URL field is archived as stored: a link without one stays without.
  auto bare = BVMediaMutableLink::create(std::nullopt, std::nullopt, nullptr, nullptr);
  bare->setFormat(nullptr);
  auto bareBack = roundTrip(bare);
  ASSERT_TRUE(bareBack);
  EXPECT_EQ(bareBack->className(), "BVMediaMutableLink");
  EXPECT_EQ(bareBack->description(), "<BVMediaMutableLink: (null), '(null)', (null), <BVMediaLinkSource: '\?\?\?\?'>>");
}

TEST(ModelArchive, RefusesRecordsWithItemsOfTheWrongKind) {
  const auto& allowed = BVModelArchivableClasses();
  EXPECT_TRUE(allowed.count("NSError"));
  EXPECT_TRUE(allowed.count("BVMediaMutableLinkSource"));

  // A format whose scheme is a number, a link whose format is an error, and
  // a source whose kind is a string are all damaged archives.
  auto tagged = [](const char* className, BVArray items) {
    return BVValue(BVDictionary{{"$class", className}, {"$items", BVValue(std::move(items))}});
  };
  auto error = tagged("NSError", {"Domain", 1, BVDictionary{{"$none", true}}});
  const BVValue damaged[] = {
      tagged("BVMediaFormat", {7, "mp3", "id", "audio/mpeg", "MP3"}),
      tagged("BVMediaLink", {"http://a/", "t", error, BVDictionary{{"$none", true}}}),
      tagged("BVMediaLinkSource", {"WEBP", BVDictionary{{"$none", true}}}),
  };
  for (const BVValue& plain : damaged) {
    auto bytes = rawArchive(plain);
    ASSERT_FALSE(bytes.empty());
    EXPECT_EQ(BVUnarchive(bytes, allowed), std::nullopt) << plain.description();
  }
  // The same error on its own decodes.
  auto decoded = BVUnarchive(rawArchive(error), allowed);
  ASSERT_TRUE(decoded);
  EXPECT_EQ(decoded->objectAs<BVError>()->domain(), "Domain");
}
