// Movies on loopback servers: a live AAC stream, HTTP errors, a stalling
// server, HLS (with a player's request settings) and station lists. (ICY
// titles through the movie: the general engine's live-station tests.)
#include <belvane/BVURLAdditions.h>
#include <gtest/gtest.h>

#include "movie_test_support.h"
#include "support/gst_media_files.h"
#include "support/temp_dir.h"
#include "support/test_http_proxy.h"
#include "support/test_http_server.h"

using namespace belvane::detail;
using namespace belvane::test;

namespace {

std::shared_ptr<QTMovie> openURL(const std::string& text) {
  BVErrorRef error;
  auto movie = QTMovie::movieWithURL(*BVURL::URLWithString(text), &error);
  EXPECT_TRUE(movie) << (error ? error->description() : "");
  return movie;
}

// Several seconds of ADTS audio, served over and over as an endless stream.
class NetworkMovie : public ::testing::Test {
 protected:
  void SetUp() override {
    adts_ = readWholeFile(writeMediaFile(dir_.path() + "/tone.aac", MediaKind::ADTS, 6.0));
    ASSERT_FALSE(adts_.empty());
    server_.route("/live.aac", Response::ok("audio/aac").generate(repeatBytes(adts_, 200'000'000)));
  }
  TempDir dir_;
  std::string adts_;
  TestHTTPServer server_;
};

}  // namespace

TEST_F(NetworkMovie, LiveStreamPlaysWithoutDuration) {
  auto movie = openURL(server_.url("/live.aac"));
  ASSERT_TRUE(movie);
  MovieEvents events;
  events.watch(*movie);
  ASSERT_TRUE(runUntil([&] { return loadState(*movie) >= QTMovieLoadStatePlaythroughOK; }));
  EXPECT_EQ(loadState(*movie), QTMovieLoadStatePlaythroughOK);
  EXPECT_TRUE(QTTimeIsIndefinite(movie->duration()));
  EXPECT_TRUE(movie->attributeForKey(QTMovieDurationAttribute).isNone());
  movie->play();
  ASSERT_TRUE(runUntil([&] { return events.sawRate(1.0); }));
  movie->stop();
  ASSERT_TRUE(runUntil([&] { return events.rates.back() == 0.0; }));
  EXPECT_EQ(movie->movieStatus(), 0);
  EXPECT_EQ(bvMovieFileDuration(*BVURL::URLWithString(server_.url("/live.aac"))), -1.0);
}

TEST_F(NetworkMovie, HTTPErrorsAndRefusedConnectionsSetTheStatus) {
  server_.route("/forbidden.aac", Response::status(403));
  std::string refused = "http://127.0.0.1:" + std::to_string(TestHTTPServer::refusedPort()) + "/a.aac";
  for (const auto& [url, status] : {std::pair{server_.url("/missing.aac"), 404},
                                    std::pair{server_.url("/forbidden.aac"), 403}, std::pair{refused, -19160}}) {
    SCOPED_TRACE(url);
    auto movie = openURL(url);
    ASSERT_TRUE(movie);
    ASSERT_TRUE(runUntil([&] { return loadState(*movie) == QTMovieLoadStateError; }));
    EXPECT_EQ(movie->movieStatus(), status);
  }
}

TEST_F(NetworkMovie, StallingServerIsReportedNotHung) {
  server_.route("/stall.aac", Response::ok("audio/aac").chunk(adts_).generate([](ResponseWriter& w) { w.pause(300); }));
  auto movie = openURL(server_.url("/stall.aac"));
  ASSERT_TRUE(movie);
  MovieEvents events;
  events.watch(*movie);
  ASSERT_TRUE(runUntil([&] { return loadState(*movie) >= QTMovieLoadStatePlayable || loadState(*movie) < 0; }));
  movie->play();
  // Either the pipeline holds for more data (rate 0 after 1) or gives up.
  ASSERT_TRUE(runUntil(
      [&] { return loadState(*movie) < 0 || (events.sawRate(1.0) && events.rates.back() == 0.0); }, 60));
}

TEST_F(NetworkMovie, HLSPlaylistsPlayAndFailWhenSegmentsAreMissing) {
  std::string playlist = writeMediaFile(dir_.path() + "/hls", MediaKind::HLS, 3.0);
  ASSERT_FALSE(playlist.empty());
  server_.route("/hls/playlist.m3u8", Response::ok("application/vnd.apple.mpegurl", readWholeFile(playlist)));
  server_.route("/broken/playlist.m3u8", Response::ok("application/vnd.apple.mpegurl", readWholeFile(playlist)));
  for (int i = 0; i < 4; ++i) {
    std::string name = "/segment0000" + std::to_string(i) + ".ts";
    server_.route("/hls" + name, Response::ok("video/mp2t", readWholeFile(dir_.path() + "/hls" + name)));
  }
  // The player's request settings reach the playlist's request and every
  // segment's, which the demuxer makes with HTTP sources of its own.
  TestHTTPProxy proxy;
  auto settings = BVRequestSettings::defaultSettings()->withUserAgent("HLSHost/1.0")->withProxyURL(proxy.url());
  BVErrorRef error;
  auto good = QTMovie::movieWithURL(*BVURL::URLWithString(server_.url("/hls/playlist.m3u8")), &error, nullptr,
                                    {.requestSettings = settings});
  ASSERT_TRUE(good);
  EXPECT_TRUE(runUntil([&] { return loadState(*good) >= QTMovieLoadStatePlaythroughOK; }));
  EXPECT_GE(server_.requestCount("/hls/segment00000.ts"), 1);
  for (const auto& request : server_.requests()) {
    EXPECT_EQ(request.header("User-Agent") ? *request.header("User-Agent") : "", "HLSHost/1.0") << request.path;
    EXPECT_TRUE(request.header("Via")) << request.path << " did not come through the proxy";
  }
  auto broken = openURL(server_.url("/broken/playlist.m3u8"));
  ASSERT_TRUE(broken);
  EXPECT_TRUE(runUntil([&] { return loadState(*broken) == QTMovieLoadStateError; }, 60));
  EXPECT_NE(broken->movieStatus(), 0);
}

TEST_F(NetworkMovie, StationListsPlayTheFirstEntryThatOpens) {
  server_.route("/list.m3u", Response::ok("text/plain", "#EXTM3U\nmissing.aac\n" + server_.url("/live.aac") + "\n"));
  // No telling extension: the content type marks it as a PLS list.
  server_.route("/station", Response::ok("audio/x-scpls", "[playlist]\nNumberOfEntries=2\nFile1=" +
                                                              server_.url("/gone.aac") + "\nFile2=/live.aac\n"));
  server_.route("/dead.m3u", Response::ok("audio/x-mpegurl", "/gone1.aac\n/gone2.aac\n"));
  for (const char* path : {"/list.m3u", "/station"}) {
    SCOPED_TRACE(path);
    auto movie = openURL(server_.url(path));
    ASSERT_TRUE(movie);
    ASSERT_TRUE(runUntil([&] { return loadState(*movie) >= QTMovieLoadStatePlaythroughOK || loadState(*movie) < 0; }));
    EXPECT_EQ(loadState(*movie), QTMovieLoadStatePlaythroughOK);
    EXPECT_EQ(movie->url().absoluteString(), server_.url("/live.aac"));
  }
  auto dead = openURL(server_.url("/dead.m3u"));
  ASSERT_TRUE(dead);
  ASSERT_TRUE(runUntil([&] { return loadState(*dead) == QTMovieLoadStateError; }));
  EXPECT_EQ(dead->movieStatus(), 404);
  EXPECT_EQ(server_.requestCount("/gone2.aac"), 1);
}
