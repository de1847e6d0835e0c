// The playlist format registry: detection by extension, MIME type and first
// bytes (and how the tuner weighs them when they disagree), and parsing into
// typed tracks, XSPF included.
#include "playlists/playlist_format.h"
#include "playlists/playlist_text_parser.h"
#include "streaming/stream_tuner_sniff.h"

#include <gtest/gtest.h>

using namespace belvane::detail;
using Strings = std::vector<std::string>;

namespace {

constexpr auto Own = PlaylistNames::Own;
constexpr auto Loose = PlaylistNames::Loose;

std::span<const uint8_t> bytes(std::string_view s) { return {reinterpret_cast<const uint8_t*>(s.data()), s.size()}; }

}  // namespace

TEST(PlaylistFormatDetection, NamesAreOwnOrLooseAndMatchInAnyCase) {
  EXPECT_EQ(playlistFormatForExtension("M3u", Own), PlaylistFormat::M3U);
  EXPECT_EQ(playlistFormatForExtension("WAX", Own), PlaylistFormat::ASX);
  EXPECT_EQ(playlistFormatForExtension("xspf", Own), PlaylistFormat::XSPF);
  // ".m3u8" is mostly HLS and ".wvx" little known: hints only.
  EXPECT_EQ(playlistFormatForExtension("m3u8", Own), PlaylistFormat::None);
  EXPECT_EQ(playlistFormatForExtension("m3u8", Loose), PlaylistFormat::M3U);
  EXPECT_EQ(playlistFormatForExtension("wvx", Loose), PlaylistFormat::ASX);
  EXPECT_EQ(playlistFormatForExtension("mp3", Loose), PlaylistFormat::None);

  EXPECT_EQ(playlistFormatForMIMEType(" Audio/X-SCPLS ; charset=UTF-8", Own), PlaylistFormat::PLS);
  EXPECT_EQ(playlistFormatForMIMEType("application/pls+xml", Own), PlaylistFormat::PLS);
  EXPECT_EQ(playlistFormatForMIMEType("audio/mpegurl\t", Own), PlaylistFormat::M3U);
  // ASX files and ASF streams share a type; HLS uses the M3U ones.
  EXPECT_EQ(playlistFormatForMIMEType("video/x-ms-asf", Own), PlaylistFormat::None);
  EXPECT_EQ(playlistFormatForMIMEType("video/x-ms-asf", Loose), PlaylistFormat::ASX);
  EXPECT_EQ(playlistFormatForMIMEType("application/vnd.apple.mpegurl", Loose), PlaylistFormat::M3U);
  EXPECT_EQ(playlistFormatForMIMEType("audio/x-scpls-extra", Loose), PlaylistFormat::None);
  EXPECT_TRUE(isHLSMIMEType("Application/X-MpegURL; q=1"));
  EXPECT_FALSE(isHLSMIMEType("audio/x-mpegurl"));

  // The readers' test looks for the format's first own type anywhere.
  EXPECT_TRUE(contentTypeMentionsPlaylistFormat("text/plain, AUDIO/X-MPEGURL", PlaylistFormat::M3U));
  EXPECT_FALSE(contentTypeMentionsPlaylistFormat("audio/mpegurl", PlaylistFormat::M3U));
  EXPECT_FALSE(contentTypeMentionsPlaylistFormat("video/x-ms-asf", PlaylistFormat::ASX));
  EXPECT_FALSE(contentTypeMentionsPlaylistFormat("audio/x-mpegurl", PlaylistFormat::None));
}

TEST(PlaylistFormatDetection, FirstBytesSkipMarkBlanksAndProlog) {
  EXPECT_EQ(playlistFormatForFirstBytes("\xEF\xBB\xBF \r\n[Playlist]\nFile1=x"), PlaylistFormat::PLS);
  EXPECT_EQ(playlistFormatForFirstBytes("\t#extm3u\n"), PlaylistFormat::M3U);
  EXPECT_EQ(playlistFormatForFirstBytes("<ASX version=\"3\">"), PlaylistFormat::ASX);
  EXPECT_EQ(playlistFormatForFirstBytes("<?xml version=\"1.0\"?>\n<!-- x --><playlist>"), PlaylistFormat::XSPF);
  EXPECT_EQ(playlistFormatForFirstBytes("<!-- station --><asx>"), PlaylistFormat::ASX);
  // An XML document of another kind, a status page, a bare address.
  EXPECT_EQ(playlistFormatForFirstBytes("<?xml version=\"1.0\"?><rss/>"), PlaylistFormat::None);
  EXPECT_EQ(playlistFormatForFirstBytes("<html><asx>"), PlaylistFormat::None);
  EXPECT_EQ(playlistFormatForFirstBytes("http://host/stream"), PlaylistFormat::None);
  EXPECT_EQ(playlistFormatForFirstBytes(""), PlaylistFormat::None);

  EXPECT_TRUE(isHLSPlaylistText("#EXTM3U\r\n#ext-x-version:3\n"));
  EXPECT_FALSE(isHLSPlaylistText("#EXTM3U\n#EXTINF:1,#EXT-X-not at a line start\n"));
}

TEST(PlaylistFormatDetection, TheTunerTrustsTypeOverExtensionAndBytesOverBoth) {
  // A type that names a playlist beats the extension; either is only a hint.
  EXPECT_EQ(tunerContentHint("audio/x-scpls", "m3u", "").format, PlaylistFormat::PLS);
  EXPECT_EQ(tunerContentHint("video/x-ms-asf", "", "").format, PlaylistFormat::ASX);
  EXPECT_EQ(tunerContentHint("application/octet-stream", "mp3", "xspf").format, PlaylistFormat::XSPF);
  EXPECT_TRUE(tunerContentHint("text/html", "", "").needsFirstBytes);
  EXPECT_FALSE(tunerContentHint("audio/mpeg", "mp3", "").needsFirstBytes);

  // The bytes decide: a PLS under an M3U hint, an ASF stream under the ASX
  // type, HLS under a ".m3u8" hint without the header.
  auto sniff = [](std::string_view text, PlaylistFormat hinted) { return tunerSniffFirstBytes(bytes(text), hinted, true); };
  EXPECT_EQ(sniff("[playlist]\nFile1=http://a/\n", PlaylistFormat::M3U).format, PlaylistFormat::PLS);
  EXPECT_EQ(sniff("\r\n[playlist]\r\n", PlaylistFormat::None).verdict, TunerSniffVerdict::Playlist);
  EXPECT_EQ(sniff(std::string("0&\xB2u\x8E\x66\xCF\x11\0\0", 10), PlaylistFormat::ASX).verdict, TunerSniffVerdict::Stream);
  EXPECT_EQ(sniff("#EXT-X-TARGETDURATION:6\nseg1.ts\n", PlaylistFormat::M3U).verdict, TunerSniffVerdict::HLS);
  EXPECT_EQ(sniff("#EXTM3U\n#EXT-X-VERSION:3\n", PlaylistFormat::None).verdict, TunerSniffVerdict::HLS);
  // Unknown text: the hint's format, else a plain address list is an M3U.
  EXPECT_EQ(sniff("stream.mp3\n", PlaylistFormat::ASX).format, PlaylistFormat::ASX);
  EXPECT_EQ(sniff("# list\nhttp://a/1\n", PlaylistFormat::None).format, PlaylistFormat::M3U);
  EXPECT_EQ(sniff("<html>Server status</html>", PlaylistFormat::None).verdict, TunerSniffVerdict::Stream);
  EXPECT_EQ(tunerSniffFirstBytes(bytes("[playlist]"), PlaylistFormat::None, false).verdict,
            TunerSniffVerdict::NeedMoreBytes);
}

TEST(PlaylistTextParser, XSPFTracksListTheirLocationsAsWritten) {
  auto tracks = parsePlaylistText(PlaylistFormat::XSPF,
                                  "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n"
                                  "<playlist version=\"1\" xmlns=\"http://xspf.org/ns/0/\"><title>List</title><trackList>"
                                  "<track><title>One</title><location> http://Host/A?x=1&amp;y=2 </location>"
                                  "<location><![CDATA[mms://host/a]]></location></track>"
                                  "<track><title>no location</title></track>"
                                  "<track><location>caf\xC3\xA9.mp3</location><extension><track><location>"
                                  "http://nested/</location></track></extension></track>"
                                  "</trackList></playlist>");
  ASSERT_EQ(tracks.size(), 2u);
  EXPECT_EQ(tracks[0].title, "One");
  EXPECT_EQ(tracks[0].url, " http://Host/A?x=1&y=2 ");
  EXPECT_EQ(playlistTrackURLs(tracks[0]), (Strings{" http://Host/A?x=1&y=2 ", "mms://host/a"}));
  // The text is UTF-8 whatever the declaration says; a track is not entered.
  EXPECT_EQ(playlistTrackURLs(tracks[1]), Strings{"caf\xC3\xA9.mp3"});
  EXPECT_EQ(tracks[1].number, 1);

  // Broken XML gives nothing; entities are never expanded or fetched.
  EXPECT_TRUE(parsePlaylistText(PlaylistFormat::XSPF, "<playlist><trackList><track><location>x").empty());
  auto external = parsePlaylistText(
      PlaylistFormat::XSPF, "<!DOCTYPE playlist [<!ENTITY e SYSTEM \"file:///etc/passwd\">]>"
                            "<playlist><trackList><track><location>&e;</location></track></trackList></playlist>");
  ASSERT_EQ(external.size(), 1u);
  EXPECT_EQ(external[0].url, "");

  // (The other formats' rules are the readers' tests.) A track may name no
  // URL at all; no format, no tracks.
  auto pls = parsePlaylistText(PlaylistFormat::PLS, "[playlist]\nTitle2=Only\n");
  ASSERT_EQ(pls.size(), 1u);
  EXPECT_EQ(pls[0].number, 2);
  EXPECT_TRUE(playlistTrackURLs(pls[0]).empty());
  EXPECT_TRUE(parsePlaylistText(PlaylistFormat::None, "http://e/1\n").empty());
}
