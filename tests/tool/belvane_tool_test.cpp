// The belvane tool end to end: the real binary against the loopback server.
#include "support/temp_dir.h"
#include "support/test_http_server.h"

#include <gtest/gtest.h>
#include <glib.h>

#include <string>
#include <vector>

using belvane::test::Response;
using belvane::test::TestHTTPServer;

namespace {

struct Run {
  int status = -1;
  std::string out, err;
};

Run runTool(std::vector<std::string> args) {
  std::vector<char*> argv;
  std::string tool = std::string(BELVANE_BUILD_DIR) + "/bin/belvane";
  argv.push_back(tool.data());
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  Run run;
  gchar *out = nullptr, *err = nullptr;
  gint wait = 0;
  GError* error = nullptr;
  if (!g_spawn_sync(nullptr, argv.data(), nullptr, G_SPAWN_DEFAULT, nullptr, nullptr, &out, &err, &wait, &error)) {
    ADD_FAILURE() << error->message;
    g_clear_error(&error);
    return run;
  }
  run.out = out ? out : "";
  run.err = err ? err : "";
  g_free(out);
  g_free(err);
  run.status = WIFEXITED(wait) ? WEXITSTATUS(wait) : -1;
  return run;
}

}  // namespace

TEST(BelvaneTool, URLAndUsageErrors) {
  auto r = runTool({"url", "a.pls", "--base", "http://h/dir/x.m3u"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "http://h/dir/a.pls\n");

  r = runTool({"url", "mailto:someone@example.net"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "");

  r = runTool({"head"});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("missing URL"), std::string::npos);
  EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << "one line";

  r = runTool({"probe", "--help"});
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("usage: belvane probe"), std::string::npos);
}

TEST(BelvaneTool, NetworkCommandsAgainstTheLoopbackServer) {
  TestHTTPServer server;
  server.route("/missing.pls", Response::status(404, "text/html", "<html>gone</html>"));
  server.route("/moved", Response::redirect(server.url("/station.m3u")));
  server.route("/station.m3u", Response::ok("audio/x-mpegurl", "http://a/\n"));
  server.route("/icy", Response::raw("ICY 200 OK\r\ncontent-type:audio/aacp\r\n\r\n...."));

  auto r = runTool({"head", server.url("/missing.pls")});
  EXPECT_EQ(r.out, "404\n");
  r = runTool({"mime", server.url("/moved")});
  EXPECT_EQ(r.out, "audio/x-mpegurl\n");
  r = runTool({"probe", server.url("/icy")});
  EXPECT_EQ(r.out, "audio/aacp\n");

  r = runTool({"head", "http://127.0.0.1:" + std::to_string(TestHTTPServer::refusedPort()) + "/"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out.substr(0, 2), "0\n");
  EXPECT_NE(r.out.find("error: NSURLErrorDomain -1004 "), std::string::npos) << r.out;
}

TEST(BelvaneTool, LinkPropertyListRoundTrip) {
  belvane::test::TempDir dir;
  auto r = runTool({"link", "http://radio.example.net/live/Station.PLS", "--title", "  Night Jazz \n", "--mime",
                    "Audio/X-SCPLS", "--radiotime", "mp3", "--plist"});
  ASSERT_EQ(r.status, 0) << r.err;
  std::string path = dir.write("link.plist", r.out);
  r = runTool({"link", "--from-plist", path});
  EXPECT_EQ(r.out,
            "<BVMediaLink: http://radio.example.net/live/Station.PLS, 'Night Jazz', "
            "<BVMediaFormat: audio/x-scpls, '(null)', pls, http>, <BVMediaLinkSource: '????'>>\n");

  r = runTool({"http-error", "503"});
  EXPECT_EQ(r.out.rfind("{\"domain\":\"NetHTTPErrorDomain\",\"code\":503,", 0), 0u) << r.out;
  r = runTool({"http-error", "299"});
  EXPECT_EQ(r.out, "null\n");
}

TEST(BelvaneTool, PlaylistReportsReaderEventsAndTracks) {
  TestHTTPServer server;
  server.route("/station.pls", Response::ok("audio/x-scpls", "[playlist]\nFile1=http://a.example/live\nTitle1=Jazz\n"));
  server.route("/gone.m3u", Response::status(404, "text/html", "<html>gone</html>\n"));
  auto r = runTool({"playlist", server.url("/station.pls"), "--json"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out,
            "{\"class\":\"BVPLSWebPlaylist\",\"loadSucceeded\":true,\"finishedLoading\":true,"
            "\"events\":[{\"call\":\"playlistDidFinishLoading:\"}],\"tracks\":[{\"kPlaylistAttributeTrackNumber\":1,"
            "\"kPlaylistAttributeTrackTitle\":\"Jazz\",\"kPlaylistAttributeTrackURL\":\"http://a.example/live\"}]}\n");

  // An error page: the failure, then the finish with what the reader made of the page.
  r = runTool({"playlist", server.url("/gone.m3u"), "--json"});
  auto failure = r.out.find("playlist:didFailWithError:");
  auto finish = r.out.find("playlistDidFinishLoading:");
  ASSERT_NE(failure, std::string::npos) << r.out;
  ASSERT_NE(finish, std::string::npos) << r.out;
  EXPECT_LT(failure, finish);
  EXPECT_NE(r.out.find("\"NSLocalizedDescription\":\"404 not found\""), std::string::npos) << r.out;

  belvane::test::TempDir dir;
  std::string path = dir.write("list.m3u", "#comment\nhttp://b.example/x.mp3\n");
  r = runTool({"playlist", "--file", path, "--as", "m3u"});
  EXPECT_NE(r.out.find("kPlaylistAttributeTrackURL=#comment"), std::string::npos) << r.out;
}
