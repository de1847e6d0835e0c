// The M3U and PLS readers and the line splitter they share.
#include <belvane/BVM3UWebPlaylist.h>
#include <belvane/BVPLSWebPlaylist.h>

#include "playlists/parser_helpers.h"
#include "playlists/playlist_test_support.h"

#include <gtest/gtest.h>

using namespace belvane::test;
using belvane::detail::componentsSeparatedByNewLineCharacters;
using Lines = std::vector<std::string_view>;

TEST(LineSplitter, SplitsAtEveryLineBreakAndDropsEmptyLines) {
  EXPECT_EQ(componentsSeparatedByNewLineCharacters("a\nb\rc\r\nd\xC2\x85" "e\xE2\x80\xA8" "f\xE2\x80\xA9g"),
            (Lines{"a", "b", "c", "d", "e", "f", "g"}));
  EXPECT_EQ(componentsSeparatedByNewLineCharacters("\n\r\n  \n x \r\r"), (Lines{"  ", " x "}));
  // A text of one character (one UTF-16 unit) has no line; two units do.
  EXPECT_TRUE(componentsSeparatedByNewLineCharacters("a").empty());
  EXPECT_TRUE(componentsSeparatedByNewLineCharacters("\xC3\xA9").empty());
  EXPECT_EQ(componentsSeparatedByNewLineCharacters("\xF0\x9F\x8E\xB5"), (Lines{"\xF0\x9F\x8E\xB5"}));
  EXPECT_EQ(componentsSeparatedByNewLineCharacters("ab"), (Lines{"ab"}));
}

TEST(M3UReader, PlainPlaylistTakesFirstLineAsURLAndSkipsLaterComments) {
  auto tracks = parseWith<BVM3UWebPlaylist>("#comment\r\n  http://a/1  \r\n#EXTINF:5,T\r\n\r\nhttp://a/2\r \r");
  ASSERT_EQ(tracks.size(), 3u);
  EXPECT_EQ(str(tracks[0], kPlaylistAttributeTrackURL), "#comment");
  EXPECT_EQ(str(tracks[1], kPlaylistAttributeTrackURL), "http://a/1");  // later lines are trimmed
  EXPECT_EQ(str(tracks[2], kPlaylistAttributeTrackURL), "http://a/2");
  EXPECT_EQ(tracks[2].dictionary()->size(), 1u);
  // The first line is kept untrimmed; a blank first line gives no track.
  EXPECT_EQ(str(parseWith<BVM3UWebPlaylist>(" http://x \nhttp://y")[0], kPlaylistAttributeTrackURL), " http://x ");
  EXPECT_EQ(parseWith<BVM3UWebPlaylist>("   \nhttp://y").size(), 1u);
  EXPECT_TRUE(parseWith<BVM3UWebPlaylist>("x").empty());
  EXPECT_TRUE(parseWith<BVM3UWebPlaylist>("\n\n").empty());
}

TEST(M3UReader, ExtendedInformationLines) {
  auto tracks = parseWith<BVM3UWebPlaylist>(
      "#EXTM3U\n#EXTINF:123,Artist - Title\nhttp://a/1\n#EXTINF:No comma\nhttp://a/2\n"
      "#EXTINF: -1x, spaced \n#EXTINF:7,second\n#EXTINF:abc,\n   \n# a comment\nplain\n#EXTINF:9,last");
  ASSERT_EQ(tracks.size(), 5u);
  EXPECT_EQ(tracks[0][kPlaylistAttributeTrackDuration], BVValue(123));
  EXPECT_EQ(str(tracks[0], kPlaylistAttributeTrackTitle), "Artist - Title");
  EXPECT_EQ(str(tracks[0], kPlaylistAttributeTrackURL), "http://a/1");
  EXPECT_EQ(str(tracks[1], kPlaylistAttributeTrackTitle), "No comma");
  EXPECT_TRUE(tracks[1][kPlaylistAttributeTrackDuration].isNone());
  // The line after an information line is the URL, even another "#EXTINF:".
  EXPECT_EQ(tracks[2][kPlaylistAttributeTrackDuration], BVValue(-1));
  EXPECT_EQ(str(tracks[2], kPlaylistAttributeTrackTitle), " spaced ");
  EXPECT_EQ(str(tracks[2], kPlaylistAttributeTrackURL), "#EXTINF:7,second");
  // A whitespace-only URL line after an information line still makes a track.
  EXPECT_EQ(tracks[3][kPlaylistAttributeTrackDuration], BVValue(0));
  EXPECT_EQ(str(tracks[3], kPlaylistAttributeTrackTitle), "");
  EXPECT_EQ(str(tracks[3], kPlaylistAttributeTrackURL), "   ");
  // A trailing information line without URL is dropped.
  EXPECT_EQ(str(tracks[4], kPlaylistAttributeTrackURL), "plain");
}

TEST(PLSReader, NumberedKeysBecomeTracksInOrder) {
  auto tracks = parseWith<BVPLSWebPlaylist>(
      "[playlist]\nNumberOfEntries=3\nFile7=http://a/7\nfile3=http://a/3\nTitle3=x\nFILE1=http://old\n"
      "File1=http://a/1\nLength1=-1\nlength3=5\nTitle1=One = 1\nGenre1=rock\n File2=http://blank\n"
      "Title7=\xF0\x9F\x8E\xB5\nTitle3=\xC3\xA9\nVersion=2\n");
  ASSERT_EQ(tracks.size(), 3u);
  EXPECT_EQ(tracks[0][kPlaylistAttributeTrackNumber], BVValue(1));
  EXPECT_EQ(str(tracks[0], kPlaylistAttributeTrackURL), "http://a/1");
  EXPECT_EQ(str(tracks[0], kPlaylistAttributeTrackDuration), "-1");  // a string in PLS
  EXPECT_EQ(str(tracks[0], kPlaylistAttributeTrackTitle), "One = 1");
  EXPECT_EQ(str(tracks[0], "Genre"), "rock");  // unknown attributes keep their name
  // Values of one character are dropped ("x", "5", "é"); a character outside
  // the BMP counts two.
  EXPECT_EQ(tracks[1][kPlaylistAttributeTrackNumber], BVValue(3));
  EXPECT_EQ(*tracks[1].dictionary(), (BVDictionary{{kPlaylistAttributeTrackNumber, 3},
                                                   {kPlaylistAttributeTrackURL, "http://a/3"}}));
  EXPECT_EQ(str(tracks[2], kPlaylistAttributeTrackTitle), "\xF0\x9F\x8E\xB5");
  EXPECT_TRUE(parseWith<BVPLSWebPlaylist>("[playlist]\nNumberOfEntries=12\n").empty());
}
