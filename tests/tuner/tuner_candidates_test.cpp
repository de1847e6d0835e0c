// Which candidates the stream tuner offers, in which order and with which
// MIME types, for streams and station playlists on a loopback server.
#include "tuner/tuner_test_support.h"

#include "support/temp_dir.h"
#include "support/test_http_server.h"

#include <belvane/BVURLConnection.h>

#include <gtest/gtest.h>

#include <chrono>

using namespace belvane::test;

namespace {

std::vector<TunerOffer> only(std::string url, std::optional<std::string> mimeType) {
  return {TunerOffer{std::move(url), std::move(mimeType)}};
}

}  // namespace

TEST(StreamTuner, AStreamIsItsOwnSingleCandidate) {
  TestHTTPServer server;
  auto stats = std::make_shared<StreamStats>();
  server.route("/live", stream("audio/mpeg; codecs=mp3", stats));
  server.route("/icy", Response("ICY 200 OK")
                           .header("content-type", "audio/aacp")
                           .header("icy-name", "Test FM")
                           .generate(repeatBytes(kAudio, 200'000'000)));

  RecordingTunerDelegate delegate;
  auto tuner = QLStreamTuner::create(&delegate);
  tuner->setSourceURL(*BVURL::URLWithString(server.url("/live")));
  EXPECT_EQ(tuner->tunedURL()->absoluteString(), server.url("/live"));
  tuner->start();
  ASSERT_TRUE(runUntil([&] { return !delegate.found.empty(); }));
  // Offered with the type exactly as the server sent it.
  TunerOffer live{server.url("/live"), "audio/mpeg; codecs=mp3"};
  EXPECT_EQ(delegate.offers, std::vector<TunerOffer>{live});
  EXPECT_EQ(delegate.found, std::vector<TunerOffer>{live});
  EXPECT_EQ(QLStreamTuner::trimParametersFromMimeType(*live.mimeType), "audio/mpeg");
  // The audio is not downloaded: the connection is cut at once.
  EXPECT_TRUE(waitUntil([&] { return stats->clientGone.load(); }, 20.0));
  tuner->tuneNextStream();
  ASSERT_TRUE(runUntil([&] { return delegate.ended(); }));
  EXPECT_EQ(delegate.completions, 1);
  EXPECT_EQ(delegate.failures, 0);

  // A Shoutcast reply names its type in the raw header block.
  EXPECT_EQ(offersOf(server.url("/icy")), only(server.url("/icy"), "audio/aacp"));

  // A local file is offered with the file's own type, so an MP3-only
  // player can decline an AAC file and leave it to another engine.
  TempDir dir;
  std::string path = dir.write("tone.m4a", std::string("\0\0\0\x20" "ftypM4A \0\0\0\0M4A mp42isom", 28) +
                                               std::string(4096, '\0'));
  std::string fileURL = BVURL::fileURLWithPath(path).absoluteString();
  EXPECT_EQ(offersOf(fileURL), only(fileURL, "audio/mp4"));
}

TEST(StreamTuner, StationFilesOfferTheirEntriesInOrderWithTheirServersTypes) {
  TestHTTPServer server;
  server.route("/aac", stream("audio/aacp"));
  server.route("/lists/mp3", stream("audio/mpeg"));
  server.route("/Live/Main", stream("audio/x-mpeg"));
  server.route("/untyped", Response().chunk(kAudio).generate(repeatBytes(kAudio, 200'000'000)));
  // PLS behind a redirect: relative entries resolve against the final URL.
  server.route("/go", Response::redirect(server.url("/lists/station.pls")));
  server.route("/lists/station.pls",
               Response::ok("audio/x-scpls", "[playlist]\nNumberOfEntries=3\nFile1=" + server.url("/aac") +
                                                 "\nTitle1=AAC\nFile3=/untyped\nFile2=mp3\nVersion=2\n"));
  server.route("/station.m3u", Response::ok("audio/x-mpegurl", "#EXTM3U\n#EXTINF:-1,Main\n/Live/Main\n"
                                                               "# a comment\n\n" + server.url("/aac") + "\n"));
  // Mixed-case names and paths; an mms:// reference needs no network look.
  server.route("/station.asx", Response::ok("video/x-ms-asf",
                                            "<ASX version=\"3.0\"><Entry><Ref HREF=\"mms://media.example/Live\"/>"
                                            "<REF href=\"" + server.url("/Live/Main") + "\"/></Entry>"
                                            "<entry><ref href=\"/aac\"/></entry></ASX>"));

  std::vector<TunerOffer> pls = {{server.url("/aac"), "audio/aacp"},
                                 {server.url("/lists/mp3"), "audio/mpeg"},
                                 {server.url("/untyped"), std::nullopt}};
  EXPECT_EQ(offersOf(server.url("/go")), pls);
  std::vector<TunerOffer> m3u = {{server.url("/Live/Main"), "audio/x-mpeg"}, {server.url("/aac"), "audio/aacp"}};
  EXPECT_EQ(offersOf(server.url("/station.m3u")), m3u);
  std::vector<TunerOffer> asx = {{"mms://media.example/Live", std::nullopt},
                                 {server.url("/Live/Main"), "audio/x-mpeg"},
                                 {server.url("/aac"), "audio/aacp"}};
  EXPECT_EQ(offersOf(server.url("/station.asx")), asx);

  // Declined candidates are skipped; tuneNextStream goes on after the one
  // found; completion follows the last.
  RecordingTunerDelegate delegate;
  delegate.accept = [](const TunerOffer& offer) { return offer.mimeType != "audio/aacp"; };
  auto tuner = QLStreamTuner::create(&delegate);
  tuner->setSourceURL(*BVURL::URLWithString(server.url("/go")));
  tuner->start();
  ASSERT_TRUE(runUntil([&] { return delegate.found.size() == 1; }));
  EXPECT_EQ(delegate.found[0], pls[1]);
  EXPECT_EQ(delegate.offers.size(), 2u);
  EXPECT_EQ(tuner->tunedURL()->absoluteString(), pls[1].url);
  tuner->tuneNextStream();
  ASSERT_TRUE(runUntil([&] { return delegate.found.size() == 2; }));
  EXPECT_EQ(delegate.found[1], pls[2]);
  tuner->tuneNextStream();
  ASSERT_TRUE(runUntil([&] { return delegate.ended(); }));
  EXPECT_EQ(delegate.completions, 1);
  EXPECT_EQ(delegate.failures, 0);
  EXPECT_EQ(delegate.offers.size(), 3u);
}

TEST(StreamTuner, PlaylistsAreRecognisedByTheirFirstBytes) {
  TestHTTPServer server;
  server.route("/mp3", stream("audio/mpeg"));
  // No telling type or extension: the content decides (which content means
  // what is the format registry's test; this is the path through a fetch).
  server.route("/xspf", Response::ok("application/xml",
                                     "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                     "<playlist version=\"1\" xmlns=\"http://xspf.org/ns/0/\"><trackList>"
                                     "<track><location>" + server.url("/mp3") + "</location></track>"
                                     "</trackList></playlist>"));
  // Text that is no playlist (a server's status page) is a stream.
  server.route("/status", Response::ok("text/html", "<html><body>" + std::string(600, 'x') + "</body></html>"));

  EXPECT_EQ(offersOf(server.url("/xspf")), only(server.url("/mp3"), "audio/mpeg"));
  EXPECT_EQ(offersOf(server.url("/status")), only(server.url("/status"), "text/html"));
}

TEST(StreamTuner, NestedPlaylistsExpandInPlaceAndLoopsEnd) {
  TestHTTPServer server;
  server.route("/one", stream("audio/mpeg"));
  server.route("/two", stream("audio/mpeg"));
  server.route("/three", stream("audio/mpeg"));
  // top.m3u -> inner.pls -> (one, back to top.m3u), then two, inner again, three.
  server.route("/top.m3u", Response::ok("audio/x-mpegurl", "/inner.pls\n/two\n/inner.pls\n/three\n"));
  server.route("/inner.pls", Response::ok("audio/x-scpls", "[playlist]\nFile1=/one\nFile2=/top.m3u\n"));

  std::vector<TunerOffer> expected = {{server.url("/one"), "audio/mpeg"},
                                      {server.url("/two"), "audio/mpeg"},
                                      {server.url("/three"), "audio/mpeg"}};
  EXPECT_EQ(offersOf(server.url("/top.m3u")), expected);
  EXPECT_EQ(server.requestCount("/top.m3u"), 1);
  EXPECT_EQ(server.requestCount("/inner.pls"), 1);

  // A server that nests playlists without end (new URLs each time).
  server.route("/deep.m3u", [&server](const ReceivedRequest& request) {
    return Response::ok("audio/x-mpegurl", server.url("/deep.m3u") + "?" + request.target + "x\n");
  });
  BVErrorRef error;
  EXPECT_TRUE(offersOf(server.url("/deep.m3u"), &error).empty());
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain(), QLStreamTunerErrorDomain);
  EXPECT_EQ(error->code(), QLStreamTunerErrorNoStreams);
  // Four playlists deep are read; the fifth is looked at but not expanded.
  EXPECT_LE(server.requestCount("/deep.m3u"), 5);
}

TEST(StreamTuner, AnHLSPlaylistIsOneStream) {
  TestHTTPServer server;
  const std::string hls = "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:10\n#EXTINF:10,\nsegment1.aac\n";
  server.route("/live/index.m3u8", Response::ok("application/vnd.apple.mpegurl", hls));
  server.route("/other/master", Response::ok("audio/x-mpegurl", "#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=64000\nlow.m3u8\n"));
  server.route("/station.pls", Response::ok("audio/x-scpls", "[playlist]\nFile1=/other/master\n"));

  EXPECT_EQ(offersOf(server.url("/live/index.m3u8")),
            only(server.url("/live/index.m3u8"), "application/vnd.apple.mpegurl"));
  // Inside a station file, and under an M3U type: still one stream, with the HLS type.
  EXPECT_EQ(offersOf(server.url("/station.pls")),
            only(server.url("/other/master"), "application/vnd.apple.mpegurl"));
  EXPECT_EQ(server.requestCount("/live/segment1.aac"), 0);
}

// (An ICY 404, a redirect loop and a playlist over the size cap: the error
// taxonomy's rows, which see the tuner's codes as a host does.)
TEST(StreamTuner, FailuresComeAsReadableErrors) {
  TestHTTPServer server;
  server.route("/aac", stream("audio/aacp"));
  server.route("/station.pls", Response::ok("audio/x-scpls", "[playlist]\nFile1=/aac\n"));
  server.route("/dead.pls", Response::ok("audio/x-scpls", "[playlist]\nFile1=/gone\n"));

  auto failure = [](const std::string& url) {
    RecordingTunerDelegate delegate;
    auto tuner = QLStreamTuner::create(&delegate);
    tuner->setSourceURL(*BVURL::URLWithString(url));
    tuner->start();
    EXPECT_TRUE(runUntil([&] { return delegate.ended(); }));
    EXPECT_EQ(delegate.failures, 1);
    EXPECT_TRUE(delegate.offers.empty());
    return delegate.error ? delegate.error : BVError::create("none", 0);
  };

  BVErrorRef notFound = failure(server.url("/missing"));
  EXPECT_EQ(notFound->domain(), "NetHTTPErrorDomain");
  EXPECT_EQ(notFound->code(), 404);
  EXPECT_EQ(notFound->localizedDescription(),
            "The station's stream was not found on its server. The station may be off the air.");

  BVErrorRef refused = failure("http://127.0.0.1:" + std::to_string(TestHTTPServer::refusedPort()) + "/");
  EXPECT_EQ(refused->domain(), BVURLErrorDomain);
  EXPECT_EQ(refused->code(), BVURLErrorCannotConnectToHost);
  EXPECT_EQ(refused->localizedDescription(), "Could not connect to the server.");

  // The only listed stream is gone: its error says why.
  EXPECT_EQ(failure(server.url("/dead.pls"))->code(), 404);

  // Every candidate declined.
  BVErrorRef declined;
  EXPECT_EQ(offersOf(server.url("/station.pls"), &declined).size(), 1u);
  ASSERT_TRUE(declined);
  EXPECT_EQ(declined->domain(), QLStreamTunerErrorDomain);
  EXPECT_EQ(declined->code(), QLStreamTunerErrorNoPlayableStream);
  EXPECT_EQ(declined->localizedDescription(), "The station offers no stream this player can play.");
}

TEST(StreamTuner, TheWholeSearchIsBoundedHoweverManyEntriesStall) {
  TestHTTPServer server;
  for (const char* path : {"/a", "/b", "/c"}) server.route(path, Response::hang());
  server.route("/stalling.pls", Response::ok("audio/x-scpls", "[playlist]\nFile1=/a\nFile2=/b\nFile3=/c\n"));
  RecordingTunerDelegate delegate;
  auto tuner = QLStreamTuner::create(&delegate);
  tuner->setSearchTimeout(1.0);
  tuner->setSourceURL(*BVURL::URLWithString(server.url("/stalling.pls")));
  auto start = std::chrono::steady_clock::now();
  tuner->start();
  EXPECT_TRUE(runUntil([&] { return delegate.ended(); }));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
  BVRunLoop::current().runFor(0.3);
  EXPECT_EQ(delegate.calls, 1) << "one error and nothing else";
  ASSERT_TRUE(delegate.error);
  EXPECT_EQ(delegate.error->domain(), QLStreamTunerErrorDomain);
  EXPECT_EQ(delegate.error->code(), QLStreamTunerErrorTimedOut);
  EXPECT_EQ(delegate.error->localizedDescription(), "The station did not offer a stream within 1 seconds.");
}
