// The MPRIS publisher as a desktop sees it: playerctl, a real MPRIS client,
// reads and drives a master player that plays a loopback station with ICY
// titles, over a private session bus started for each test.
#include <gtest/gtest.h>

#include <belvane/BVMPRISPublisher.h>
#include <belvane/BVMasterPlayer.h>
#include <belvane/belvane.h>

#include <gio/gio.h>
#include <unistd.h>

#include <cstdlib>

#include "support/gst_media_files.h"
#include "support/icy_test_server.h"
#include "support/mp3_test_data.h"
#include "support/private_system_bus.h"
#include "support/recording_owner.h"
#include "support/scoped_env.h"
#include "support/temp_dir.h"

using namespace belvane::test;

namespace {

bool installed(const char* program) {
  gchar* path = g_find_program_in_path(program);
  g_free(path);
  return path != nullptr;
}

#define SKIP_WITHOUT_BUS_TOOLS()                                                              \
  do {                                                                                        \
    if (!installed("dbus-daemon")) GTEST_SKIP() << "dbus-daemon is not installed";            \
    if (!installed("playerctl")) GTEST_SKIP() << "playerctl is not installed (apt playerctl)"; \
  } while (0)

// A session bus of this test's own (the private bus helper, taken as the
// session bus by the publisher and by playerctl) until it is stopped.
struct PrivateBus {
  TempDir dir;
  PrivateSystemBus bus{dir.path()};
  ScopedEnv session{"DBUS_SESSION_BUS_ADDRESS", bus.address()};
  bool started() const { return !bus.address().empty(); }
};

// Runs playerctl with the arguments while the main run loop turns (the
// publisher answers it from that loop) and returns what it printed, without
// the final newline.
std::string playerctl(std::vector<std::string> args) {
  std::vector<const char*> argv{"playerctl"};
  for (auto& a : args) argv.push_back(a.c_str());
  argv.push_back(nullptr);
  GSubprocess* process = g_subprocess_newv(
      argv.data(), GSubprocessFlags(G_SUBPROCESS_FLAGS_STDOUT_PIPE | G_SUBPROCESS_FLAGS_STDERR_SILENCE), nullptr);
  if (!process) return "(playerctl did not start)";
  struct Result {
    bool done = false;
    std::string out;
  } result;
  g_subprocess_communicate_utf8_async(
      process, nullptr, nullptr,
      [](GObject* source, GAsyncResult* res, gpointer data) {
        auto* r = static_cast<Result*>(data);
        gchar* out = nullptr;
        if (g_subprocess_communicate_utf8_finish(G_SUBPROCESS(source), res, &out, nullptr, nullptr) && out)
          r->out = out;
        g_free(out);
        r->done = true;
      },
      &result);
  BVRunLoop::main().runUntil([&] { return result.done; }, 15.0);
  g_object_unref(process);
  while (!result.out.empty() && result.out.back() == '\n') result.out.pop_back();
  return result.out;
}

std::string ofBelvane(std::vector<std::string> args) {
  args.insert(args.begin(), {"-p", "belvane"});
  return playerctl(std::move(args));
}

// Asks until playerctl prints the text (titles reach the publisher as the
// audio plays them) or the time is up; the last answer.
std::string belvaneUntil(const std::vector<std::string>& args, const std::string& text, double seconds = 20.0) {
  std::string answer;
  auto end = g_get_monotonic_time() + gint64(seconds * 1e6);
  while (g_get_monotonic_time() < end) {
    answer = ofBelvane(args);
    if (answer == text) break;
    BVRunLoop::main().runFor(0.2);
  }
  return answer;
}

// playerctl --follow: what it prints as the publisher's PropertiesChanged
// signals arrive (it asks for nothing after the start).
class Follower {
 public:
  explicit Follower(const std::vector<std::string>& args) {
    std::vector<const char*> argv{"playerctl", "-p", "belvane", "--follow"};
    for (auto& a : args) argv.push_back(a.c_str());
    argv.push_back(nullptr);
    process_ = g_subprocess_newv(
        argv.data(), GSubprocessFlags(G_SUBPROCESS_FLAGS_STDOUT_PIPE | G_SUBPROCESS_FLAGS_STDERR_SILENCE), nullptr);
    if (!process_) return;
    stdout_ = G_POLLABLE_INPUT_STREAM(g_subprocess_get_stdout_pipe(process_));
  }
  ~Follower() {
    if (!process_) return;
    g_subprocess_force_exit(process_);
    g_subprocess_wait(process_, nullptr, nullptr);
    g_object_unref(process_);
  }
  // Turns the run loop until a line reads `line`.
  bool waitFor(const std::string& line, double seconds = 20.0) {
    return BVRunLoop::main().runUntil(
        [&] {
          char buffer[512];
          gssize n;
          while (stdout_ && (n = g_pollable_input_stream_read_nonblocking(stdout_, buffer, sizeof buffer, nullptr,
                                                                          nullptr)) > 0)
            out_.append(buffer, size_t(n));
          return out_.find("\n" + line + "\n") != std::string::npos || out_.rfind(line + "\n", 0) == 0;
        },
        seconds);
  }

 private:
  GSubprocess* process_ = nullptr;
  GPollableInputStream* stdout_ = nullptr;  // the process's
  std::string out_;
};

std::shared_ptr<BVMediaLink> stationLink(const std::string& url) {
  auto link = linkTo(url)->mutableCopy();
  link->setTitle(std::string("Loopback FM"));
  return link->copy();
}

}  // namespace

TEST(MPRISPublisher, PlayerctlReadsAndDrivesALiveStation) {
  SKIP_WITHOUT_BUS_TOOLS();
  BELVANE_SKIP_WITHOUT_LAME();
  PrivateBus bus;
  ASSERT_TRUE(bus.started());
  IcyTestServer server;
  IcyStreamScript script;
  script.audio = {stereoTone44k()};
  script.titleForBlock = [](int block) {
    return block < 6 ? "The Loopbacks - First Song" : "The Loopbacks - Second Song";
  };
  script.streamURLForBlock = [](int block) { return block < 6 ? "http://art.example/first.jpg" : ""; };
  script.headers = {{"icy-genre", "Jazz"}, {"icy-url", "http://radio.example/"}, {"icy-br", "128"}};
  server.serve("/live", {script});

  MasterRun run("null");  // real time
  auto& master = run.master;
  auto& host = run.owner;
  auto publisher = BVMPRISPublisher::create(master);
  ASSERT_TRUE(publisher);
  EXPECT_EQ(publisher->busName(), "org.mpris.MediaPlayer2.belvane");
  EXPECT_EQ(master->owner(), publisher.get());

  master->playLink(stationLink(server.url("/live")));
  ASSERT_TRUE(host.runUntil(BVPlayerStatePlaying));
  EXPECT_EQ(ofBelvane({"status"}), "Playing");

  // The title, split at " - ", and the station as the album; then the next
  // title, announced by a signal to a client that only listens.
  EXPECT_EQ(belvaneUntil({"metadata", "xesam:title"}, "First Song"), "First Song");
  Follower follower({"metadata", "xesam:title"});
  EXPECT_EQ(ofBelvane({"metadata", "xesam:artist"}), "The Loopbacks");
  EXPECT_EQ(ofBelvane({"metadata", "xesam:album"}), "Loopback FM");
  EXPECT_EQ(ofBelvane({"metadata", "xesam:url"}), server.url("/live"));
  EXPECT_EQ(belvaneUntil({"metadata", "belvane:reception"}, "receiving"), "receiving");
  // The station's facts and what it decodes; the picture sent with the title.
  EXPECT_EQ(ofBelvane({"metadata", "--format",
                       "{{xesam:genre}}|{{belvane:stationName}}|{{belvane:homePage}}|{{belvane:codec}}|"
                       "{{belvane:bitRate}}|{{mpris:artUrl}}"}),
            "Jazz|Belvane Test Radio|http://radio.example/|MP3|128|http://art.example/first.jpg");
  EXPECT_TRUE(follower.waitFor("Second Song"));
  EXPECT_EQ(ofBelvane({"metadata", "xesam:title"}), "Second Song");
  // The host's owner heard it all too.
  EXPECT_FALSE(host.titles.empty());

  ofBelvane({"volume", "0.5"});
  EXPECT_FLOAT_EQ(master->volume(), 0.5f);
  master->setMuted(true);
  publisher->volumeChanged();
  EXPECT_EQ(std::stod(ofBelvane({"volume"})), 0.0);
  ofBelvane({"volume", "0.25"});  // a volume above 0 unmutes
  EXPECT_FALSE(master->isMuted());
  EXPECT_FLOAT_EQ(master->volume(), 0.25f);

  // Pausing a live station holds it while its ring fills; play goes on;
  // seeking moves within the ring. Stopping it and playing connects again.
  ofBelvane({"pause"});
  EXPECT_TRUE(BVRunLoop::main().runUntil([&] { return ofBelvane({"status"}) == "Paused"; }, 5.0));
  EXPECT_TRUE(master->isPaused());
  EXPECT_EQ(master->state(), BVPlayerStatePlaying);
  ofBelvane({"play"});
  EXPECT_FALSE(master->isPaused());
  const double held = master->timeShiftSecondsHeld();
  ofBelvane({"position", "0"});
  EXPECT_TRUE(BVRunLoop::main().runUntil([&] { return master->secondsBehindLive() > held - 1.0; }, 5.0));
  ofBelvane({"stop"});
  ASSERT_TRUE(host.runUntil(BVPlayerStateStopped));
  EXPECT_EQ(master->state(), BVPlayerStateStopped);
  EXPECT_EQ(ofBelvane({"status"}), "Stopped");
  size_t statesBefore = host.states.size();
  ofBelvane({"play"});
  EXPECT_TRUE(BVRunLoop::main().runUntil(
      [&] { return host.states.size() > statesBefore && host.states.back().to == BVPlayerStatePlaying; }, 20.0));
  EXPECT_EQ(server.connections("/live"), 2);
  EXPECT_EQ(ofBelvane({"status"}), "Playing");
  EXPECT_FLOAT_EQ(master->volume(), 0.25f);  // kept over the new playback

  // Gone from the bus with the publisher, and the host's owner is back.
  publisher.reset();
  EXPECT_EQ(master->owner(), &host);
  EXPECT_EQ(playerctl({"-l"}).find("belvane"), std::string::npos);
}

TEST(MPRISPublisher, PlayerctlShowsAFilesTagsPausesAndSeeksIt) {
  SKIP_WITHOUT_BUS_TOOLS();
  BELVANE_SKIP_WITHOUT_LAME();
  PrivateBus bus;
  ASSERT_TRUE(bus.started());
  TempDir dir;
  setenv("XDG_CACHE_HOME", (dir.path() + "/cache").c_str(), 1);  // where the cover goes
  const std::string png = "\x89PNG\r\n\x1a\n(a picture)";
  std::string path = dir.write("song.mp3", id3v2Tag(3, {{"TIT2", "Song"}, {"TPE1", "Band"}, {"TALB", "Record"},
                                                        {"APIC", std::string("image/png\0\x03\0", 12) + png}}) +
                                               stereoTone44k()->bytes);
  MasterRun run("null");  // real time
  auto& master = run.master;
  auto& host = run.owner;
  auto publisher = BVMPRISPublisher::create(master);
  ASSERT_TRUE(publisher);
  master->playLink(BVMediaLink::linkWithURL(BVURL::fileURLWithPath(path)));
  ASSERT_TRUE(host.runUntil(BVPlayerStatePlaying));

  // The tags and the length together, from the one attribute set.
  EXPECT_EQ(ofBelvane({"metadata", "--format", "{{xesam:title}}|{{xesam:artist}}|{{xesam:album}}"}),
            "Song|Band|Record");
  EXPECT_NEAR(std::stod(ofBelvane({"metadata", "mpris:length"})), 4e6, 0.1e6);
  gchar* art = g_filename_from_uri(ofBelvane({"metadata", "mpris:artUrl"}).c_str(), nullptr, nullptr);
  ASSERT_TRUE(art);
  EXPECT_EQ(readWholeFile(art), png);
  g_free(art);

  // A file waits paused, and moves while it waits.
  ofBelvane({"pause"});
  EXPECT_EQ(ofBelvane({"status"}), "Paused");
  EXPECT_TRUE(master->isPaused());
  ofBelvane({"position", "3"});
  EXPECT_NEAR(master->elapsedTime(), 3.0, 0.05);
  ofBelvane({"play"});
  EXPECT_EQ(ofBelvane({"status"}), "Playing");
  ASSERT_TRUE(runUntilEnded(host, 5));
  EXPECT_EQ(host.sequence(),
            (std::vector<BVPlayerState>{BVPlayerStateConnecting, BVPlayerStatePlaying, BVPlayerStateStopped}));
  publisher.reset();
}

TEST(MPRISPublisher, NamesTheSecondPlayerByInstanceAndNeedsABus) {
  SKIP_WITHOUT_BUS_TOOLS();
  {
    PrivateBus bus;
    ASSERT_TRUE(bus.started());
    auto first = BVMasterPlayer::create(), second = BVMasterPlayer::create();
    auto a = BVMPRISPublisher::create(first), b = BVMPRISPublisher::create(second);
    ASSERT_TRUE(a && b);
    EXPECT_EQ(b->busName(), "org.mpris.MediaPlayer2.belvane.instance" + std::to_string(getpid()));
    EXPECT_EQ(playerctl({"-p", b->busName().substr(23), "status"}), "Stopped");
    // A C host publishes on request, and withdraws.
    a.reset();
    bv_player* host = bv_player_create();
    EXPECT_EQ(bv_player_publish_mpris(host, 1), BV_OK);
    EXPECT_EQ(ofBelvane({"status"}), "Stopped");
    EXPECT_EQ(bv_player_publish_mpris(host, 0), BV_OK);
    EXPECT_EQ(("\n" + playerctl({"-l"}) + "\n").find("\nbelvane\n"), std::string::npos);
    bv_player_destroy(host);
  }
  // No bus at the address: no publisher, and the player keeps its owner.
  setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
  RecordingOwner host;
  auto master = BVMasterPlayer::create();
  master->setOwner(&host);
  EXPECT_FALSE(BVMPRISPublisher::create(master));
  EXPECT_EQ(master->owner(), &host);
  bv_player* cHost = bv_player_create();
  EXPECT_EQ(bv_player_publish_mpris(cHost, 1), BV_ERROR_UNAVAILABLE);
  bv_player_destroy(cHost);
  master->setOwner(nullptr);
  unsetenv("DBUS_SESSION_BUS_ADDRESS");
}
