// Choosing the reader and downloading playlists from a loopback server.
#include <belvane/BVRunLoop.h>
#include <belvane/BVWebPlaylist.h>

#include "foundation/text_encoding.h"
#include "playlists/playlist_test_support.h"
#include "support/test_http_server.h"

#include <gtest/gtest.h>

#include <chrono>

using namespace belvane::test;
using Strings = std::vector<std::string>;
using belvane::detail::bytesOf;

namespace {

BVURL url(const std::string& s) { return *BVURL::URLWithString(s); }

// Records delegate and observer calls in order, as one string each.
class Recorder : public BVWebPlaylistDelegate, public BVWebPlaylistObserver {
 public:
  void playlistDidFinishLoading(BVWebPlaylist&) override { events.push_back("finished"); }
  void playlistDidFailWithError(BVWebPlaylist&, const BVErrorRef& error) override {
    events.push_back("failed");
    errors.push_back(error);
  }
  void playlistWillChangeValueForKey(BVWebPlaylist&, const std::string& key) override { events.push_back("will " + key); }
  void playlistDidChangeValueForKey(BVWebPlaylist&, const std::string& key) override { events.push_back("did " + key); }

  Strings events;
  std::vector<BVErrorRef> errors;
};

// Loads playlist asynchronously on this thread's run loop until the delegate
// has heard "finished" (or, with stopAtFailure, any failure).
void loadOnRunLoop(BVWebPlaylist& playlist, Recorder& recorder, bool stopAtFailure = false) {
  playlist.setDelegate(&recorder);
  playlist.loadAsynchronously();
  BVRunLoop::current().runUntil(
      [&] {
        auto& e = recorder.events;
        return std::find(e.begin(), e.end(), "finished") != e.end() || (stopAtFailure && !recorder.errors.empty());
      },
      20.0);
}

// The base reader, which no URL ever chooses.
class PlainPlaylist : public BVWebPlaylist {
 public:
  std::string className() const override { return "PlainPlaylist"; }
};

}  // namespace

TEST(WebPlaylistTracks, BaseReaderAndInsertion) {
  auto playlist = std::make_shared<PlainPlaylist>();
  EXPECT_TRUE(playlist->loadSucceeded());
  EXPECT_FALSE(playlist->isFinishedLoading());
  playlist->generateTracksFromString(" a\n\nb ");
  ASSERT_EQ(playlist->countOfTracks(), 3u);
  EXPECT_EQ(str(playlist->tracks()[1], kPlaylistAttributeTrackURL), "");
  EXPECT_EQ(str(playlist->tracks()[2], kPlaylistAttributeTrackURL), "b ");
  playlist->insertObject(BVDictionary{{"k", "first"}}, 0);
  playlist->insertObject(BVDictionary{{"k", "last"}}, 99);  // past the end: appended
  EXPECT_EQ(str(playlist->tracks()[0], "k"), "first");
  EXPECT_EQ(str(playlist->tracks()[4], "k"), "last");
}

TEST(WebPlaylistChoice, ExtensionFirstWithoutNetworkThenServerContentType) {
  TestHTTPServer server;
  EXPECT_EQ(BVWebPlaylist::initWithURL(url(server.url("/list.PLS")))->className(), "BVPLSWebPlaylist");
  EXPECT_EQ(BVWebPlaylist::initWithURL(url(server.url("/a/b.m3u?x=1")))->className(), "BVM3UWebPlaylist");
  EXPECT_EQ(BVWebPlaylist::initWithURL(url(server.url("/c.Wax")))->className(), "BVASXWebPlaylist");
  EXPECT_TRUE(server.requests().empty());

  server.route("/m3u", Response::ok("Audio/X-MpegURL; charset=utf-8", "http://a/\n"));
  server.route("/asx", Response::ok("video/x-ms-wvx", "<asx/>"));
  server.route("/none", Response().chunk("File1=http://a/\n"));
  server.route("/html", Response::ok("text/html", "<html/>"));
  auto m3u = BVWebPlaylist::initWithURL(url(server.url("/m3u")));
  ASSERT_TRUE(m3u);
  EXPECT_EQ(m3u->className(), "BVM3UWebPlaylist");
  EXPECT_EQ(m3u->URL()->absoluteString(), server.url("/m3u"));
  EXPECT_EQ(BVWebPlaylist::initWithURL(url(server.url("/asx")))->className(), "BVASXWebPlaylist");
  // No content type at all: the first reader asked (PLS) takes it.
  EXPECT_EQ(BVWebPlaylist::initWithURL(url(server.url("/none")))->className(), "BVPLSWebPlaylist");
  EXPECT_EQ(BVWebPlaylist::initWithURL(url(server.url("/html"))), nullptr);
  EXPECT_EQ(server.requestCount("/m3u"), 1);
}

TEST(WebPlaylistLoading, AsynchronousLoadFollowsRedirectsAndDecodesWindows1252) {
  TestHTTPServer server;
  // "Café Müller" and a curly quote in Windows-1252: not UTF-8, so the whole
  // file decodes through the second encoding.
  server.route("/list.pls", Response::ok("audio/x-scpls", "[playlist]\nFile1=http://a/1\nTitle1=Caf\xE9 M\xFCller \x93x\x94\n"));
  server.route("/old.pls", Response::redirect(server.url("/list.pls")));
  auto playlist = BVWebPlaylist::initWithURL(url(server.url("/old.pls")));
  Recorder recorder;
  playlist->addObserver(&recorder);
  EXPECT_TRUE(playlist->loadSucceeded());
  loadOnRunLoop(*playlist, recorder);

  EXPECT_EQ(recorder.events, (Strings{"will finishedLoading", "did finishedLoading", "will tracks", "did tracks",
                                      "will finishedLoading", "did finishedLoading", "finished"}));
  EXPECT_TRUE(playlist->isFinishedLoading());
  ASSERT_EQ(playlist->countOfTracks(), 1u);
  EXPECT_EQ(*BVDictionaryString(playlist->objectInTracksAtIndex(0), kPlaylistAttributeTrackTitle),
            "Caf\xC3\xA9 M\xC3\xBCller \xE2\x80\x9Cx\xE2\x80\x9D");
  playlist->removeObserver(&recorder);

  // Valid UTF-8 is never read as Windows-1252; bytes undefined there fail both.
  EXPECT_EQ(BVWebPlaylist::stringFromData(bytesOf("Caf\xC3\xA9")), "Caf\xC3\xA9");
  EXPECT_EQ(BVWebPlaylist::stringFromData(bytesOf(std::string_view("a\0\xC3\xA9", 4))), std::string("a\0\xC3\xA9", 4));
  EXPECT_EQ(BVWebPlaylist::stringFromData(bytesOf("\x81\x8D")), std::nullopt);
  // A leading byte-order mark is dropped, whatever the encoding; elsewhere
  // U+FEFF is text.
  EXPECT_EQ(BVWebPlaylist::stringFromData(bytesOf("\xEF\xBB\xBF[playlist]\xEF\xBB\xBF")), "[playlist]\xEF\xBB\xBF");
  EXPECT_EQ(belvane::detail::decodeText(bytesOf(std::string_view("\xFE\xFF\0a", 4)), "UTF-16BE"), "a");
}

TEST(WebPlaylistLoading, ErrorStatusReportsFailureThenParsesThePage) {
  TestHTTPServer server;
  server.route("/gone.m3u", Response::status(404, "text/html", "<html>\n<p>Not here</p>\n</html>\n"));
  auto playlist = BVWebPlaylist::initWithURL(url(server.url("/gone.m3u")));
  Recorder recorder;
  loadOnRunLoop(*playlist, recorder);

  EXPECT_EQ(recorder.events, (Strings{"failed", "finished"}));
  ASSERT_EQ(recorder.errors.size(), 1u);
  EXPECT_EQ(recorder.errors[0]->domain(), "BVWebPlaylist");
  EXPECT_EQ(recorder.errors[0]->code(), -1);
  EXPECT_EQ(recorder.errors[0]->localizedDescription(), "404 not found");
  EXPECT_TRUE(playlist->loadSucceeded());
  ASSERT_EQ(playlist->countOfTracks(), 3u);
  EXPECT_EQ(str(playlist->tracks()[0], kPlaylistAttributeTrackURL), "<html>");
}

TEST(WebPlaylistLoading, ChunksAreDecodedAlone) {
  TestHTTPServer server;
  // "é" (C3 A9) split across two chunks: each half fails UTF-8 on its own and
  // is read as Windows-1252, so the title comes out as "CafÃ©".
  server.route("/split.m3u",
               Response::ok("audio/x-mpegurl").chunk("#EXTM3U\n#EXTINF:1,Caf\xC3", 0).chunk("\xA9\nhttp://a/1\n", 0.3));
  auto playlist = BVWebPlaylist::initWithURL(url(server.url("/split.m3u")));
  Recorder recorder;
  loadOnRunLoop(*playlist, recorder);
  ASSERT_EQ(playlist->countOfTracks(), 1u);
  EXPECT_EQ(str(playlist->tracks()[0], kPlaylistAttributeTrackTitle), "Caf\xC3\x83\xC2\xA9");
  EXPECT_EQ(str(playlist->tracks()[0], kPlaylistAttributeTrackURL), "http://a/1");
}

TEST(WebPlaylistLoading, DownloadsStopAtTheSizeLimit) {
  TestHTTPServer server;
  auto stats = std::make_shared<StreamStats>();
  server.route("/radio.pls", Response::ok("audio/mpeg").generate(repeatBytes("File1=http://a/\n", UINT64_MAX, stats)));

  auto playlist = BVWebPlaylist::initWithURL(url(server.url("/radio.pls")));
  Recorder recorder;
  loadOnRunLoop(*playlist, recorder, true);
  ASSERT_EQ(recorder.errors.size(), 1u);
  EXPECT_EQ(recorder.errors[0]->domain(), "BVWebPlaylist");
  EXPECT_EQ(recorder.errors[0]->code(), BVWebPlaylistErrorTooLarge);
  EXPECT_NE(recorder.errors[0]->localizedDescription().find("too large"), std::string::npos);
  BVRunLoop::current().runFor(0.2);  // nothing more arrives
  EXPECT_EQ(recorder.events, Strings{"failed"});
  EXPECT_FALSE(playlist->loadSucceeded());
  EXPECT_FALSE(playlist->isFinishedLoading());
  EXPECT_LE(playlist->contents().size(), BVWebPlaylistMaximumDownloadLength);
  EXPECT_TRUE(waitUntil([&] { return stats->finished.load(); }, 20.0));

  Recorder syncRecorder;
  auto again = BVWebPlaylist::initWithURL(url(server.url("/radio.pls")));
  again->setDelegate(&syncRecorder);
  again->load();
  EXPECT_FALSE(again->loadSucceeded());
  ASSERT_EQ(syncRecorder.errors.size(), 1u);
  EXPECT_EQ(syncRecorder.errors[0]->code(), BVWebPlaylistErrorTooLarge);
}

TEST(WebPlaylistLoading, SynchronousLoadAndConnectionFailures) {
  TestHTTPServer server;
  // Saved by a Windows editor: a byte-order mark before "#EXTM3U".
  server.route("/list.m3u",
               Response::ok("audio/x-mpegurl", "\xEF\xBB\xBF#EXTM3U\r\n#EXTINF:-1,One\r\nhttp://a/1\r\nhttp://a/2\r\n"));
  auto playlist = BVWebPlaylist::playlistWithContentsOfURL(url(server.url("/list.m3u")));
  ASSERT_TRUE(playlist);
  EXPECT_TRUE(playlist->isFinishedLoading());
  ASSERT_EQ(playlist->countOfTracks(), 2u);
  EXPECT_EQ(*BVDictionaryString(playlist->objectInTracksAtIndex(0), kPlaylistAttributeTrackTitle), "One");
  EXPECT_EQ(*BVDictionaryString(playlist->objectInTracksAtIndex(0), kPlaylistAttributeTrackURL), "http://a/1");

  std::string refused = "http://127.0.0.1:" + std::to_string(TestHTTPServer::refusedPort()) + "/list.m3u";
  EXPECT_EQ(BVWebPlaylist::playlistWithContentsOfURL(url(refused)), nullptr);
  auto failing = BVWebPlaylist::initWithURL(url(refused));
  Recorder recorder;
  loadOnRunLoop(*failing, recorder, true);
  EXPECT_EQ(recorder.events, Strings{"failed"});
  EXPECT_EQ(recorder.errors.at(0)->domain(), BVURLErrorDomain);
  EXPECT_FALSE(failing->loadSucceeded());
}

TEST(WebPlaylistLoading, ATricklingServerFailsAtTheDeadlineBothWays) {
  TestHTTPServer server;
  server.route("/slow.m3u", Response::ok("audio/x-mpegurl").generate([](ResponseWriter& w) {
    for (int i = 0; i < 100 && w.write("http://127.0.0.1/" + std::to_string(i) + "\n"); ++i)
      if (!w.pause(0.2)) return;
  }));
  for (bool synchronous : {true, false}) {
    auto playlist = BVWebPlaylist::initWithURL(url(server.url("/slow.m3u")));
    EXPECT_EQ(playlist->downloadDeadline(), BVWebPlaylistDownloadDeadline);
    playlist->setDownloadDeadline(1.0);
    Recorder recorder;
    auto start = std::chrono::steady_clock::now();
    if (synchronous) {
      playlist->setDelegate(&recorder);
      playlist->load();
    } else {
      loadOnRunLoop(*playlist, recorder, true);
      BVRunLoop::current().runFor(0.3);  // nothing more arrives
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3)) << synchronous;
    EXPECT_FALSE(playlist->loadSucceeded());
    ASSERT_EQ(recorder.errors.size(), 1u) << synchronous;
    EXPECT_EQ(recorder.errors[0]->domain(), BVURLErrorDomain);
    EXPECT_EQ(recorder.errors[0]->code(), BVURLErrorTimedOut);
    EXPECT_EQ(recorder.errors[0]->localizedDescription(), "The playlist did not arrive within 1 seconds.");
  }
}
