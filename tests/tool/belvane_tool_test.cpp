// The belvane tool end to end: the real binary against the loopback server.
#include "support/temp_dir.h"
#include "support/test_http_server.h"
#include "support/wav_file.h"

#include <gtest/gtest.h>
#include <glib.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

using belvane::test::Response;
using belvane::test::TestHTTPServer;

namespace {

struct Run {
  int status = -1;
  std::string out, err;
};

// Runs the built belvane with args (in the folder cwd when given; setup
// runs in the child before the tool starts).
Run runTool(std::vector<std::string> args, const char* cwd = nullptr, GSpawnChildSetupFunc setup = nullptr) {
  std::vector<char*> argv;
  std::string tool = std::string(BELVANE_BUILD_DIR) + "/bin/belvane";
  argv.push_back(tool.data());
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  Run run;
  gchar *out = nullptr, *err = nullptr;
  gint wait = 0;
  GError* error = nullptr;
  if (!g_spawn_sync(cwd, argv.data(), nullptr, G_SPAWN_DEFAULT, setup, nullptr, &out, &err, &wait, &error)) {
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

size_t lines(const std::string& text) { return size_t(std::count(text.begin(), text.end(), '\n')); }

bool has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// A failure: exit status 1 and one line on stderr that contains `why`.
void expectFailure(const Run& r, const std::string& why) {
  EXPECT_EQ(r.status, 1) << r.out << r.err;
  EXPECT_EQ(lines(r.err), 1u) << r.err;
  EXPECT_TRUE(has(r.err, why)) << r.err;
}

}  // namespace

TEST(BelvaneTool, URLAndUsageErrors) {
  auto r = runTool({"url", "a.pls", "--base", "http://h/dir/x.m3u"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "http://h/dir/a.pls\n");

  r = runTool({"url", "mailto:someone@example.net"});
  expectFailure(r, "mailto:someone@example.net");
  EXPECT_EQ(r.out, "");

  // Bad arguments: exit status 2 and one line, before anything is played.
  for (std::vector<std::string> args : {std::vector<std::string>{"head"},
                                        {"play", "--volume", "5"},
                                        {"play", "--volume", "-1"},
                                        {"play", "--volume", "nan"},
                                        {"play", "--duration", "0"},
                                        {"play", "--duration", "-5"},
                                        {"mime", "/x", "--timeout", "0"},
                                        {"playlist", "--file", "/x/list.txt"}}) {
    r = runTool(args);
    EXPECT_EQ(r.status, 2) << args[0] << " " << (args.size() > 1 ? args[1] : "") << ": " << r.err;
    EXPECT_EQ(lines(r.err), 1u) << r.err;
    EXPECT_EQ(r.out, "");
  }

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
  server.route("/hang", Response::hang());

  auto r = runTool({"head", server.url("/missing.pls")});
  EXPECT_EQ(r.out, "404\n");
  r = runTool({"mime", server.url("/moved")});
  EXPECT_EQ(r.out, "audio/x-mpegurl\n");
  r = runTool({"probe", server.url("/icy")});
  EXPECT_EQ(r.out, "audio/aacp\n");

  // Every refusal says why, on stderr, with exit status 1.
  std::string refused = "http://127.0.0.1:" + std::to_string(TestHTTPServer::refusedPort()) + "/";
  r = runTool({"head", refused});
  EXPECT_EQ(r.out, "0\n");
  expectFailure(r, "NSURLErrorDomain -1004");
  expectFailure(runTool({"mime", refused + "x.pls"}), "-1004");
  expectFailure(runTool({"probe", refused + "live"}), "-1004");

  // A server that never answers: the time-out bounds the whole command, so
  // no second request goes out to ask why.
  expectFailure(runTool({"mime", server.url("/hang"), "--timeout", "1"}), "within 1 s");
  EXPECT_EQ(server.requestCount("/hang"), 1);
}

TEST(BelvaneTool, FilePathsStandForFileURLs) {
  belvane::test::TempDir dir;
  std::string list = dir.write("my list.pls", "[playlist]\nFile1=http://a.example/live\n");
  std::string uri = "file://" + dir.path() + "/my%20list.pls";

  auto r = runTool({"mime", list});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "audio/x-scpls\n");
  r = runTool({"mime", "./my list.pls"}, dir.path().c_str());
  EXPECT_EQ(r.out, "audio/x-scpls\n") << r.err;
  r = runTool({"link", "my list.pls"}, dir.path().c_str());
  EXPECT_TRUE(has(r.out, "<BVMediaLink: " + uri + ",")) << r.out << r.err;
  r = runTool({"playlist", "my list.pls", "--json"}, dir.path().c_str());
  EXPECT_TRUE(has(r.out, "http://a.example/live")) << r.out << r.err;
  r = runTool({"engines", list});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(has(r.out, "candidates:")) << r.out;

  // The reader comes from the extension when --as is not given.
  r = runTool({"playlist", "--file", list});
  EXPECT_TRUE(has(r.out, "class: BVPLSWebPlaylist")) << r.out << r.err;

  r = runTool({"mime", dir.path() + "/absent.mp3"});
  expectFailure(r, "No such file");
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
            "<BVMediaFormat: audio/x-scpls, '(null)', pls, http>, <BVMediaLinkSource: '\?\?\?\?'>>\n");

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

  // An error page: the failure event is shown, and the command fails. (The
  // reader's order of failure and finish is the playlist loading test's.)
  r = runTool({"playlist", server.url("/gone.m3u"), "--json"});
  EXPECT_TRUE(has(r.out, "{\"call\":\"playlist:didFailWithError:\"")) << r.out;
  EXPECT_TRUE(has(r.out, "\"NSLocalizedDescription\":\"404 not found\"")) << r.out;
  expectFailure(r, "404 not found");
  r = runTool({"playlist", "http://127.0.0.1:" + std::to_string(TestHTTPServer::refusedPort()) + "/a.pls"});
  expectFailure(r, "-1004");

  belvane::test::TempDir dir;
  std::string path = dir.write("list.m3u", "#comment\nhttp://b.example/x.mp3\n");
  r = runTool({"playlist", "--file", path, "--as", "m3u"});
  EXPECT_NE(r.out.find("kPlaylistAttributeTrackURL=#comment"), std::string::npos) << r.out;
}

TEST(BelvaneTool, PlayFailuresSayWhatWentWrong) {
  belvane::test::TempDir dir;
  std::string empty = dir.write("empty.mp3", "");
  std::string damaged = dir.write("damaged.mp3", std::string(4096, '\x5a'));
  auto play = [](std::vector<std::string> args) {
    for (const char* a : {"--output", "null:fast", "--duration", "20"}) args.push_back(a);
    args.insert(args.begin(), "play");
    return runTool(args);
  };

  expectFailure(play({dir.path()}), dir.path() + " is a folder");
  expectFailure(play({empty}), empty + " is empty");
  expectFailure(play({damaged}), damaged + " is damaged or is not a sound file");
  // The same through the player tool, whose log lines stay off the terminal too.
  expectFailure(play({"--tool", damaged}), damaged + " is damaged or is not a sound file");
  expectFailure(play({"htp://127.0.0.1:9/live"}), "'htp:' are not supported");

  // The output that failed, and why, beside the library's own text.
  auto r = runTool({"play", "--output", "wav:" + dir.path() + "/no/such/folder/out.wav", "--duration", "20"});
  expectFailure(r, "The audio output could not start: ");
  EXPECT_TRUE(has(r.err, "the WAV file " + dir.path() + "/no/such/folder/out.wav cannot be written")) << r.err;
  EXPECT_TRUE(has(r.err, "No such file or directory")) << r.err;
  EXPECT_FALSE(has(r.err, "Belvane-Message")) << "library log lines stay off the terminal";

  // A recording that can no longer be written (files limited to 256 KiB,
  // as a full disk would stop it): the playback fails saying why, and the
  // file holds a valid WAV of what was written.
  const std::string wav = dir.path() + "/limited.wav";
  r = runTool({"play", "--output", "wav:" + wav, "--duration", "20"}, nullptr, [](gpointer) {
    signal(SIGXFSZ, SIG_IGN);
    rlimit limit{256 * 1024, 256 * 1024};
    setrlimit(RLIMIT_FSIZE, &limit);
  });
  expectFailure(r, "The audio output failed: the WAV file " + wav + " could not be written (File too large)");
  const belvane::test::WavFile written = belvane::test::readWav(wav);
  EXPECT_GT(written.samples.size(), 0u);
  EXPECT_LE(written.fileBytes, 256u * 1024);

  // A player tool that cannot start: its error, and no "Playing" before it.
  r = runTool({"play", "--tool", "--tool-path", dir.path() + "/nonexistent", "--output", "null:fast"});
  expectFailure(r, dir.path() + "/nonexistent");
  EXPECT_FALSE(has(r.out, "Playing")) << r.out;
}

namespace {

// What `belvane play` (the demo station, silent) writes to a terminal of
// `columns` columns that is narrowed to `narrower` after two seconds. The
// output is split where the status line is redrawn; `narrowedAt` gets the
// index of the first piece written well after the narrowing.
std::vector<std::string> playOnTerminal(unsigned short columns, unsigned short narrower, size_t* narrowedAt) {
  std::string tool = std::string(BELVANE_BUILD_DIR) + "/bin/belvane";
  winsize size{24, columns, 0, 0};
  int terminal = -1;
  pid_t pid = forkpty(&terminal, nullptr, nullptr, &size);
  if (pid == 0) {
    execl(tool.c_str(), tool.c_str(), "play", "--output", "null", "--duration", "4", static_cast<char*>(nullptr));
    _exit(127);
  }
  std::string out;
  size_t mark = std::string::npos;
  auto start = std::chrono::steady_clock::now();
  bool narrowed = false;
  for (;;) {
    double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (!narrowed && elapsed > 2) {
      winsize smaller{24, narrower, 0, 0};
      ioctl(terminal, TIOCSWINSZ, &smaller);
      narrowed = true;
    }
    // Redraws already under way when the window changed may still arrive.
    if (narrowed && mark == std::string::npos && elapsed > 2.7) mark = out.size();
    if (elapsed > 30) {
      kill(pid, SIGKILL);
      break;
    }
    pollfd p{terminal, POLLIN, 0};
    if (poll(&p, 1, 100) <= 0) continue;
    char buf[4096];
    ssize_t n = read(terminal, buf, sizeof buf);
    if (n <= 0) break;  // the tool has ended
    out.append(buf, size_t(n));
  }
  int status = 0;
  waitpid(pid, &status, 0);
  close(terminal);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << out;

  std::vector<std::string> pieces;
  std::string piece;
  *narrowedAt = 0;
  for (size_t i = 0; i <= out.size(); ++i) {
    if (i == mark) *narrowedAt = pieces.size() + 1;
    if (i == out.size() || out[i] == '\r' || out[i] == '\n') {
      if (piece.rfind("\033[K", 0) == 0) piece.erase(0, 3);
      if (!piece.empty()) pieces.push_back(piece);
      piece.clear();
    } else {
      piece += out[i];
    }
  }
  return pieces;
}

size_t columnsOf(const std::string& text) { return size_t(g_utf8_strlen(text.c_str(), -1)); }

}  // namespace

TEST(BelvaneTool, PlayStatusLineFitsTheTerminalAndFollowsItsWidth) {
  size_t narrowedAt = 0;
  auto pieces = playOnTerminal(80, 40, &narrowedAt);
  size_t wide = 0, narrow = 0;
  bool shortenedTitle = false;
  for (size_t i = 0; i < pieces.size(); ++i) {
    if (pieces[i][0] != '[') continue;  // not a status line
    bool afterResize = narrowedAt > 0 && i >= narrowedAt;
    EXPECT_LT(columnsOf(pieces[i]), afterResize ? 40u : 80u) << pieces[i];
    (afterResize ? narrow : wide)++;
    if (afterResize && has(pieces[i], "Belvane Demo") && has(pieces[i], "\u2026")) shortenedTitle = true;
  }
  EXPECT_GT(wide, 2u);
  EXPECT_GT(narrow, 1u);
  EXPECT_TRUE(shortenedTitle) << "the title gives way first";
}
