// The ASX reader: the XML path, the bare-URL case and the tag scanner.
#include <belvane/BVASXWebPlaylist.h>

#include "playlists/playlist_test_support.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

using namespace belvane::test;
using Strings = std::vector<std::string>;

TEST(ASXReader, WellFormedEntriesInAnyCaseGiveOneTrackEach) {
  auto tracks = parseWith<BVASXWebPlaylist>(
      "<ASX version=\"3.0\"><Title>Radio</Title>\n"
      "<Entry><REF HREF=\"MMS://Host/A1\"/><ref href=\"http://host/a2\"></ref></Entry>\n"
      "<entry><title>no refs</title></entry>\n"
      "<ENTRY><Ref Href=\"http://host/B1\" /><!-- c --><Ref Href=\"http://host/b2\"/></ENTRY></ASX>");
  ASSERT_EQ(tracks.size(), 2u);
  EXPECT_EQ(str(tracks[0], kPlaylistAttributeTrackURL), "mms://host/a1");
  EXPECT_EQ(strings(tracks[0][kPlaylistAttributeAlternateTrackURLs]), (Strings{"mms://host/a1", "http://host/a2"}));
  EXPECT_EQ(str(tracks[1], kPlaylistAttributeTrackURL), "http://host/b1");
  EXPECT_EQ(strings(tracks[1][kPlaylistAttributeAlternateTrackURLs]), (Strings{"http://host/b1", "http://host/b2"}));
}

TEST(ASXReader, BareURLTextIsOneTrack) {
  auto tracks = parseWith<BVASXWebPlaylist>("http://Host/Stream \r\n");
  ASSERT_EQ(tracks.size(), 1u);
  EXPECT_EQ(*tracks[0].dictionary(), (BVDictionary{{kPlaylistAttributeTrackURL, "http://Host/Stream"}}));
  // With a leading blank it is no bare URL; as XML or tags it holds nothing.
  EXPECT_TRUE(parseWith<BVASXWebPlaylist>(" http://host/stream").empty());
  EXPECT_TRUE(parseWith<BVASXWebPlaylist>("").empty());
}

TEST(ASXReader, MalformedFileGoesToTagScannerWithItsQuirks) {
  LogCapture log;
  testing::internal::CaptureStderr();
  auto tracks = parseWith<BVASXWebPlaylist>(
      "<asx><!-- <entry> --><Entry>\n  <Ref HREF=\"http://Host/a?x=1&y=2\"/>\n"
      "<ref href=\"http://host/open\">text</ref>\n<ref href=\"\"/>\n</entry></asx>");
  // libxml2 prints nothing itself; the XML failure is silent, not logged.
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_TRUE(log.messages().empty());
  ASSERT_EQ(tracks.size(), 1u);
  EXPECT_EQ(str(tracks[0], kPlaylistAttributeTrackURL), "http://host/a?x=1&y=2");
  EXPECT_EQ(strings(tracks[0][kPlaylistAttributeAlternateTrackURLs]),
            (Strings{"http://host/a?x=1&y=2", "http://host/open\"", "href=\""}));
}

TEST(ASXReader, TagScannerSharesOneTrackAcrossEntries) {
  auto tracks = parseWith<BVASXWebPlaylist>(
      "<asx><entry></entry><entry><ref href=\"http://a/1\"/><ref href=\"http://a/2\"/></entry> &\n"
      "<entry></entry><entry><ref href=\"http://b/1\"/></entry><ref href=\"http://outside\"/>");
  // The empty first entry inserts nothing; the three later ones each insert
  // the same dictionary, which ends up holding every URL read.
  ASSERT_EQ(tracks.size(), 3u);
  EXPECT_EQ(tracks[0].dictionary(), tracks[2].dictionary());
  EXPECT_EQ(str(tracks[0], kPlaylistAttributeTrackURL), "http://a/1");
  EXPECT_EQ(strings(tracks[1][kPlaylistAttributeAlternateTrackURLs]), (Strings{"http://a/1", "http://a/2", "http://b/1"}));

  // Many entries stay linear in the text size.
  std::string big = "<asx><entry><ref href=\"http://a/1\"/>";
  for (int i = 0; i < 100000; ++i) big += "</entry>";
  EXPECT_EQ(parseWith<BVASXWebPlaylist>(big + "&").size(), 100000u);
}

TEST(ASXReader, RecoverableXMLErrorsAreLoggedAndEntityBombsRefused) {
  LogCapture log;
  auto tracks = parseWith<BVASXWebPlaylist>("<asx><entry><x:ref href=\"http://a\"/><ref href=\"http://b\"/></entry></asx>");
  ASSERT_EQ(tracks.size(), 1u);
  EXPECT_EQ(str(tracks[0], kPlaylistAttributeTrackURL), "http://b");
  ASSERT_EQ(log.messages().size(), 1u);
  EXPECT_EQ(log.messages()[0].rfind("asx document error: ", 0), 0u) << log.messages()[0];

  std::string bomb = "<!DOCTYPE asx [<!ENTITY a \"aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa\">";
  for (char c = 'b'; c <= 'k'; ++c) {
    bomb += std::string("<!ENTITY ") + c + " \"";
    for (int i = 0; i < 10; ++i) bomb += std::string("&") + char(c - 1) + ";";
    bomb += "\">";
  }
  bomb += "]><asx><entry><ref href=\"&k;\"/></entry></asx>";
  tracks = parseWith<BVASXWebPlaylist>(bomb);
  ASSERT_LE(tracks.size(), 1u);
  if (!tracks.empty()) {
    EXPECT_LT(str(tracks[0], kPlaylistAttributeTrackURL).size(), 1000u);
  }

  // An external entity is never read.
  tracks = parseWith<BVASXWebPlaylist>(
      "<!DOCTYPE asx [<!ENTITY x SYSTEM \"file:///proc/self/environ\">]><asx><entry><ref href=\"&x;\"/></entry></asx>");
  for (auto& track : tracks) EXPECT_EQ(str(track, kPlaylistAttributeTrackURL).find('='), std::string::npos);
}
