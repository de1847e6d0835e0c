// BVMediaLink and BVMediaLinkSource: construction, copying, equality,
// descriptions and the property-list forms hosts persist.
#include <belvane/BVMediaLink.h>
#include <belvane/BVPropertyList.h>

#include <gtest/gtest.h>

namespace {

BVURL url(const std::string& s) { return *BVURL::URLWithString(s); }

std::shared_ptr<BVMediaLinkSource> fullSource() {
  return BVMediaLinkSource::linkSourceWithKind(0x57454250 /* 'WEBP' */, url("http://example.com/page.html"),
                                               url("http://example.com/"), url("http://plugins.example.com/x"),
                                               "<a href=\"s.pls\">Listen</a>");
}

}  // namespace

TEST(MediaLink, CreateTrimsTheTitleAndStoresImmutableCopies) {
  auto blank = BVMediaLink::create(url("http://a/s.mp3"), " \t\r\n ", nullptr, nullptr);
  EXPECT_EQ(blank->title(), std::nullopt);
  EXPECT_EQ(blank->format()->plistRepresentation(), BVDictionary{});
  EXPECT_EQ(blank->source()->kind(), BVMediaLinkSource::kUnknownKind);

  auto format = BVMediaMutableFormat::formatWithRadioTimeMediaType("MP3");
  auto source = BVMediaLinkSource::emptySource();
  auto link = BVMediaLink::create(url("http://a/s.mp3"), "\n  Radio One \t", format, source);
  EXPECT_EQ(link->title(), "Radio One");
  EXPECT_NE(link->format().get(), format.get());
  EXPECT_EQ(link->format()->className(), "BVMediaFormat");
  EXPECT_EQ(link->source(), source);  // immutable: shared
  EXPECT_TRUE(link->isRadioTimeMediaLink());
  format->setRadioTimeMediaType(std::nullopt);
  EXPECT_TRUE(link->isRadioTimeMediaLink());

  auto inferred = BVMediaLink::linkWithURL(url("HTTP://a/Show.OGG"));
  EXPECT_EQ(inferred->format()->fileExtension(), "ogg");
  EXPECT_EQ(inferred->title(), std::nullopt);
  EXPECT_FALSE(inferred->isRadioTimeMediaLink());
  EXPECT_EQ(inferred->description(),
            "<BVMediaLink: HTTP://a/Show.OGG, '(null)', <BVMediaFormat: (null), '(null)', ogg, http>, "
            "<BVMediaLinkSource: '\?\?\?\?'>>");
}

TEST(MediaLink, LinksWithoutURLAnswerHTTPAndCompareByURL) {
  auto a = BVMediaLink::create(std::nullopt, "A", nullptr, nullptr);
  auto b = BVMediaLink::create(std::nullopt, "B", nullptr, nullptr);
  EXPECT_EQ(a->url().absoluteString(), "http://");
  EXPECT_TRUE(a->isEqualToLink(b));
  EXPECT_FALSE(a->isEqualToLink(nullptr));
  EXPECT_EQ(a->description().rfind("<BVMediaLink: (null), 'A', ", 0), 0u);

  auto c = BVMediaLink::linkWithURL(url("http://x/1"));
  EXPECT_TRUE(c->isEqualToLink(BVMediaLink::create(url("http://x/1"), "other", nullptr, nullptr)));
  EXPECT_FALSE(c->isEqualToLink(BVMediaLink::linkWithURL(url("http://x/2"))));
}

TEST(MediaLink, CopiesFollowMutability) {
  auto link = BVMediaLink::create(std::nullopt, "T", nullptr, fullSource());
  EXPECT_EQ(link->copy(), link);

  auto mutableLink = link->mutableCopy();
  EXPECT_EQ(mutableLink->className(), "BVMediaMutableLink");
  // The basic copy reads the URL through its getter.
  EXPECT_EQ(mutableLink->url().absoluteString(), "http://");
  EXPECT_EQ(mutableLink->source(), link->source());

  // Setters store what they are given: no trimming, no copying.
  auto format = BVMediaMutableFormat::emptyFormat();
  mutableLink->setTitle("  spaced  ");
  mutableLink->setFormat(format);
  mutableLink->setURL(url("mms://m/s"));
  EXPECT_EQ(mutableLink->title(), "  spaced  ");
  EXPECT_EQ(mutableLink->format(), format);

  auto frozen = mutableLink->copy();
  EXPECT_NE(frozen.get(), mutableLink.get());
  EXPECT_EQ(frozen->className(), "BVMediaLink");
  EXPECT_NE(frozen->format().get(), format.get());
  EXPECT_EQ(frozen->format()->className(), "BVMediaFormat");
  EXPECT_EQ(frozen->url().absoluteString(), "mms://m/s");
  EXPECT_EQ(link->title(), "T");

  auto source = BVMediaLinkSource::emptySource();
  EXPECT_EQ(source->copy(), source);
  auto editable = source->mutableCopy();
  editable->setKind(0x41424344);
  editable->setElementHTML("<embed>");
  EXPECT_EQ(source->kind(), BVMediaLinkSource::kUnknownKind);
  EXPECT_EQ(editable->copy()->description(), "<BVMediaLinkSource: 'ABCD'>");
  EXPECT_EQ(editable->copy()->elementHTML(), "<embed>");
}

TEST(MediaLink, PropertyListRoundTripThroughXMLText) {
  auto format = BVMediaMutableFormat::formatByInferringFromURL(url("http://example.com/s.pls"), "audio/x-scpls");
  format->setEngineID("QuickTime");
  auto link = BVMediaLink::create(url("http://example.com/s.pls"), "Jazz", format, fullSource());
  BVDictionary plist = link->plistRepresentation();
  EXPECT_EQ(plist.at("URL"), BVValue("http://example.com/s.pls"));
  EXPECT_EQ(plist.at("title"), BVValue("Jazz"));
  EXPECT_EQ(plist.at("source")["kind"], BVValue(0x57454250));
  EXPECT_EQ(plist.at("source")["pageURL"], BVValue("http://example.com/page.html"));
  EXPECT_EQ(plist.at("format")["engineID"], BVValue("QuickTime"));

  // The host saves the dictionary as an XML property list and reads it back.
  auto text = BVPropertyList::serialize(BVValue(plist), BVPropertyListFormat::XML);
  ASSERT_TRUE(text);
  auto parsed = BVPropertyList::parse({reinterpret_cast<const uint8_t*>(text->data()), text->size()});
  ASSERT_TRUE(parsed && parsed->isDictionary());
  auto back = BVMediaLink::createWithPlistRepresentation(*parsed->dictionary());
  EXPECT_EQ(BVMediaMutableLink::createWithPlistRepresentation(plist)->className(), "BVMediaMutableLink");
  EXPECT_EQ(back->description(), link->description());
  EXPECT_EQ(back->plistRepresentation(), plist);
  EXPECT_EQ(back->source()->engineURL()->absoluteString(), "http://plugins.example.com/x");
  EXPECT_EQ(back->source()->elementHTML(), "<a href=\"s.pls\">Listen</a>");
}

TEST(MediaLink, PropertyListReadingIsLenient) {
  // No "format" or "source": those fields stay empty. Titles are not trimmed;
  // a "URL" that does not parse gives no URL; wrong kinds do not crash.
  auto link = BVMediaLink::createWithPlistRepresentation(
      {{"title", "  As Saved "}, {"URL", "http://bad host/"}, {"format", "not a dictionary"}, {"extra", 1}});
  EXPECT_EQ(link->title(), "  As Saved ");
  EXPECT_EQ(link->format(), nullptr);
  EXPECT_EQ(link->source(), nullptr);
  EXPECT_FALSE(link->isRadioTimeMediaLink());
  EXPECT_EQ(link->url().absoluteString(), "http://");
  EXPECT_EQ(link->description(), "<BVMediaLink: (null), '  As Saved ', (null), (null)>");
  EXPECT_EQ(link->plistRepresentation(), (BVDictionary{{"title", "  As Saved "}}));
  auto odd = BVMediaLink::createWithPlistRepresentation({{"title", BVArray{1, 2}}});
  EXPECT_EQ(odd->title(), std::nullopt);
  auto copied = odd->copy();
  EXPECT_EQ(copied, odd);
  EXPECT_EQ(odd->mutableCopy()->format(), nullptr);

  // A source always writes its kind; a missing kind reads as 0.
  EXPECT_EQ(BVMediaLinkSource::emptySource()->plistRepresentation(), (BVDictionary{{"kind", 1061109567}}));
  auto empty = BVMediaLinkSource::createWithPlistRepresentation({});
  EXPECT_EQ(empty->kind(), 0u);
  EXPECT_EQ(empty->plistRepresentation(), (BVDictionary{{"kind", 0}}));
  auto high = BVMediaLinkSource::createWithPlistRepresentation({{"kind", 0xF0000001u}, {"baseURL", 7}});
  EXPECT_EQ(high->kind(), 0xF0000001u);
  EXPECT_EQ(high->baseURL(), std::nullopt);
  EXPECT_EQ(high->plistRepresentation().at("kind"), BVValue(0xF0000001u));
}
