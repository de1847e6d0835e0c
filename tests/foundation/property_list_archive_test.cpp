// Property lists (XML and binary) and archives: round trips of every value
// kind, and refusal of what they cannot hold or should not trust.
#include <belvane/BVArchive.h>
#include <belvane/BVError.h>
#include <belvane/BVPropertyList.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

using belvane::BVArchivedData;
using belvane::BVArchiveLimits;
using belvane::BVUnarchive;

namespace {

std::span<const uint8_t> bytesOf(const std::string& s) { return {reinterpret_cast<const uint8_t*>(s.data()), s.size()}; }

std::optional<BVValue> throughPlist(const BVValue& value, BVPropertyListFormat format) {
  auto bytes = BVPropertyList::serialize(value, format);
  if (!bytes) return std::nullopt;
  return BVPropertyList::parse(bytesOf(*bytes));
}

void appendBigEndian(std::string& out, uint64_t value, int width) {
  for (int i = width - 1; i >= 0; --i) out.push_back(char((value >> (8 * i)) & 0xFF));
}

// A binary property list of `levels` arrays, each holding `fanout`
// references to the next; the last holds the integer 1. Fan-out 1 nests
// deeply; fan-out 2 doubles the expanded tree at every level.
std::string chainedArrays(uint32_t levels, uint32_t fanout) {
  std::string out = "bplist00";
  std::vector<uint64_t> offsets;
  for (uint32_t i = 0; i < levels; ++i) {
    offsets.push_back(out.size());
    out.push_back(char(0xA0 | fanout));
    for (uint32_t k = 0; k < fanout; ++k) appendBigEndian(out, i + 1, 4);
  }
  offsets.push_back(out.size());
  out += std::string("\x10\x01", 2);
  uint64_t table = out.size();
  for (uint64_t offset : offsets) appendBigEndian(out, offset, 4);
  out += std::string(6, '\0');
  out.push_back(4);  // offset size
  out.push_back(4);  // reference size
  appendBigEndian(out, offsets.size(), 8);
  appendBigEndian(out, 0, 8);
  appendBigEndian(out, table, 8);
  return out;
}

std::string nestedXML(int depth, const std::string& inner) {
  std::string s = "<?xml version=\"1.0\"?><plist version=\"1.0\">";
  for (int i = 0; i < depth; ++i) s += "<array>" + inner;
  for (int i = 0; i < depth; ++i) s += "</array>";
  return s + "</plist>";
}

class Unarchivable : public BVObject {
 public:
  std::string className() const override { return "Unarchivable"; }
};

}  // namespace

TEST(PropertyList, EveryKindRoundTripsThroughXMLAndBinary) {
  BVValue value(BVDictionary{
      {"text", "a < b & \"c\" — ünïcode"},
      {"empty", ""},
      {"negative", -5},
      {"min", INT64_MIN},
      {"max", INT64_MAX},
      {"code", 0x3F3F3F3F},
      {"real", 0.1},
      {"flags", BVArray{true, false}},
      {"date", BVDate{-86400.0}},
      {"data", BVData{0, 1, 2, 255}},
      {"none", BVData{}},
      {"nested", BVArray{BVDictionary{}, BVArray{}, BVDictionary{{"k", BVArray{1.5}}}}},
  });
  for (auto format : {BVPropertyListFormat::XML, BVPropertyListFormat::Binary}) {
    auto back = throughPlist(value, format);
    ASSERT_TRUE(back) << int(format);
    EXPECT_EQ(*back, value) << back->description();
    EXPECT_EQ((*back)["negative"].integerValue(), -5);
  }
  // Binary dates keep fractions of a second, also before 2001; XML keeps whole seconds.
  for (double seconds : {-99.5, -3600.25, 7.75}) {
    auto binary = throughPlist(BVValue(BVDate{seconds}), BVPropertyListFormat::Binary);
    ASSERT_TRUE(binary && binary->date());
    EXPECT_DOUBLE_EQ(binary->date()->secondsSinceReferenceDate, seconds);
  }
  auto xml = BVPropertyList::serialize(BVValue(BVDate{86400.0}), BVPropertyListFormat::XML);
  EXPECT_NE(xml->find("<date>2001-01-02T00:00:00Z</date>"), std::string::npos);
}

TEST(PropertyList, RefusesWhatAPropertyListCannotHold) {
  EXPECT_EQ(BVPropertyList::serialize(BVValue(), BVPropertyListFormat::XML), std::nullopt);
  EXPECT_EQ(BVPropertyList::serialize(BVValue(BVArray{1, BVNull{}}), BVPropertyListFormat::Binary), std::nullopt);
  EXPECT_EQ(BVPropertyList::serialize(BVValue(BVDictionary{{"e", BVValue(std::const_pointer_cast<BVError>(BVError::create("D", 1)))}}),
                                      BVPropertyListFormat::XML),
            std::nullopt);
  for (std::string junk : {"", "not a plist", "<plist><array><string>x</array></plist>", "bplist00\x01"})
    EXPECT_EQ(BVPropertyList::parse(bytesOf(junk)), std::nullopt) << junk;
}

TEST(PropertyList, RefusesHostileNestingWithoutExhaustingTheStack) {
  EXPECT_TRUE(BVPropertyList::parse(bytesOf(nestedXML(200, ""))));
  EXPECT_EQ(BVPropertyList::parse(bytesOf(nestedXML(200000, ""))), std::nullopt);
  // Closing tags hidden in comments and CDATA do not lower the count.
  EXPECT_EQ(BVPropertyList::parse(bytesOf(nestedXML(100000, "<!--</array>--><string><![CDATA[</array>]]></string>"))),
            std::nullopt);
  // Unclosed nesting makes the reader give up and free what it built.
  std::string unclosed = "<plist>";
  for (int i = 0; i < 300000; ++i) unclosed += "<array>";
  EXPECT_EQ(BVPropertyList::parse(bytesOf(unclosed)), std::nullopt);

  EXPECT_TRUE(BVPropertyList::parse(bytesOf(chainedArrays(100, 1))));
  EXPECT_EQ(BVPropertyList::parse(bytesOf(chainedArrays(200000, 1))), std::nullopt);
  // Shared references would expand to 2^60 nodes.
  EXPECT_EQ(BVPropertyList::parse(bytesOf(chainedArrays(60, 2))), std::nullopt);
}

TEST(Archive, ValuesNullsAndErrorsRoundTrip) {
  auto described = BVError::withDescription("NetHTTPErrorDomain", 404, "Not Found");
  auto bare = std::make_shared<BVError>("NSOSStatusErrorDomain", -43, BVDictionary{}, false);
  BVValue value(BVDictionary{
      {"$class", "a key of the host's own"},
      {"items", BVArray{BVNull{}, BVValue(), -1, "x", BVDictionary{{"$none", 1}}}},
      {"errors", BVArray{BVValue(std::const_pointer_cast<BVError>(described)), BVValue(bare)}},
      {"when", BVDate{12.5}},
  });
  auto bytes = BVArchivedData(value);
  ASSERT_FALSE(bytes.empty());
  auto back = BVUnarchive(bytes, {"NSError"});
  ASSERT_TRUE(back);
  EXPECT_EQ(*back, value) << back->description();
  auto errors = (*back)["errors"].array();
  EXPECT_EQ(errors->at(0).objectAs<BVError>()->localizedDescription(), "Not Found");
  EXPECT_TRUE(errors->at(0).objectAs<BVError>()->hasUserInfo());
  EXPECT_FALSE(errors->at(1).objectAs<BVError>()->hasUserInfo());
  EXPECT_EQ(errors->at(1).objectAs<BVError>()->code(), -43);
  EXPECT_TRUE((*back)["items"].array()->at(1).isNone());

  EXPECT_TRUE(BVArchivedData(BVValue(std::make_shared<Unarchivable>())).empty());
}

TEST(Archive, RefusesUnknownDeepTruncatedAndOversizedArchives) {
  auto error = BVValue(std::const_pointer_cast<BVError>(BVError::create("D", 1)));
  auto bytes = BVArchivedData(BVValue(BVArray{error, "tail"}));
  ASSERT_TRUE(BVUnarchive(bytes, {"NSError"}));
  // Classes the caller does not allow, or nobody registered, are never made.
  EXPECT_EQ(BVUnarchive(bytes, {}), std::nullopt);
  auto evil = BVPropertyList::serialize(BVValue(BVDictionary{{"$class", "Evil"}, {"$items", BVArray{}}}),
                                        BVPropertyListFormat::Binary);
  EXPECT_EQ(BVUnarchive(bytesOf(*evil), {"Evil"}), std::nullopt);
  auto unknownTag = BVPropertyList::serialize(BVValue(BVDictionary{{"$ref", 1}}), BVPropertyListFormat::Binary);
  EXPECT_EQ(BVUnarchive(bytesOf(*unknownTag), {}), std::nullopt);
  // Only binary archives are read.
  auto xml = BVPropertyList::serialize(BVValue(1), BVPropertyListFormat::XML);
  EXPECT_EQ(BVUnarchive(bytesOf(*xml), {}), std::nullopt);

  for (size_t length = 0; length < bytes.size(); ++length)
    EXPECT_EQ(BVUnarchive(std::span(bytes.data(), length), {"NSError"}), std::nullopt) << length;

  BVValue deep = error;
  for (int i = 0; i < 10; ++i) deep = BVValue(BVArray{deep});
  auto deepBytes = BVArchivedData(deep);
  EXPECT_TRUE(BVUnarchive(deepBytes, {"NSError"}, BVArchiveLimits{.maxDepth = 12}));
  EXPECT_EQ(BVUnarchive(deepBytes, {"NSError"}, BVArchiveLimits{.maxDepth = 11}), std::nullopt);
  EXPECT_EQ(BVUnarchive(deepBytes, {"NSError"}, BVArchiveLimits{.maxBytes = deepBytes.size() - 1}), std::nullopt);
  EXPECT_EQ(BVUnarchive(bytesOf(chainedArrays(40, 2)), {}), std::nullopt);
  EXPECT_EQ(BVUnarchive(bytesOf(chainedArrays(100000, 1)), {}), std::nullopt);
}
