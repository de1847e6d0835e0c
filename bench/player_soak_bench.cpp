// A host that switches stations for half an hour: one master player in this
// process switching every few seconds among a loopback MP3 station, an AAC
// station and an Ogg file, and a player in the player tool switching the same
// way, whose tool process is killed now and then and replaced. After a
// warm-up and at the end it prints what the process holds (descriptors,
// threads, resident memory) and the switches made: nothing should grow.
//
//   bench_player_soak                         (30 minutes)
//   BELVANE_SOAK_SECONDS=120 bench_player_soak
#include "streaming_bench_support.h"

#include <belvane/BVMasterPlayer.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVPlayerToolClient.h>
#include <belvane/BVRunLoop.h>
#include <belvane/BVURL.h>

#include <gst/gst.h>

#include <climits>
#include <cstdio>
#include <memory>
#include <unistd.h>

using namespace belvane::bench;

namespace {

constexpr double kSwitchEvery = 3.0;    // seconds between switches
constexpr double kKillToolEvery = 60.0;  // seconds between killing the tool
constexpr double kWarmUp = 60.0;

struct Counts {
  long rss = 0;
  int fds = 0, threads = 0;
};
Counts counts() { return {residentKiB(), openDescriptors(), threadCount()}; }

struct Tally : BVPlayerOwner {
  int playing = 0, errors = 0, stopped = 0;
  void playerStateChanged(BVBasePlayer&, BVPlayerState, BVPlayerState to, const BVErrorRef&) override {
    playing += to == BVPlayerStatePlaying;
    errors += to == BVPlayerStateError;
    stopped += to == BVPlayerStateStopped;
  }
};

std::string besideThisProgram(const char* name) {
  char path[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
  if (n <= 0) return name;
  std::string self(path, size_t(n));
  return self.substr(0, self.rfind('/') + 1) + name;
}

std::string makeOggFile() {
  std::string path = std::string(g_get_tmp_dir()) + "/belvane-soak.ogg";
  std::string command = "gst-launch-1.0 -q audiotestsrc num-buffers=60 ! audioconvert ! vorbisenc ! oggmux ! "
                        "filesink location=" + path + " >/dev/null 2>&1";
  return std::system(command.c_str()) == 0 ? "file://" + path : "";
}

}  // namespace

int main() {
  const char* env = std::getenv("BELVANE_SOAK_SECONDS");
  const double total = env ? std::atof(env) : 1800.0;
  auto mp3 = std::make_shared<const belvane::test::Mp3Data>(programmeMp3(20));
  auto aac = std::make_shared<const belvane::test::Mp3Data>(programmeAac(20));
  if (mp3->frames.empty() || aac->frames.empty()) {
    std::fprintf(stderr, "bench_player_soak: needs lame, sox and gst-launch-1.0\n");
    return 1;
  }
  ServerProcess server([&](belvane::test::TestHTTPServer& http) {
    IcyStreamShape mp3Shape;
    mp3Shape.titleEvery = 2;
    mp3Shape.bytesPerSecond = 16000;
    http.route("/mp3", belvane::test::Response::rawStream(icyStream(mp3, mp3Shape)));
    IcyStreamShape aacShape = mp3Shape;
    aacShape.contentType = "audio/aacp";
    aacShape.bytesPerSecond = 12000;
    http.route("/aac", belvane::test::Response::rawStream(icyStream(aac, aacShape)));
  });
  gst_init(nullptr, nullptr);
  std::string ogg = makeOggFile();
  if (!server.running() || ogg.empty()) {
    std::fprintf(stderr, "bench_player_soak: the loopback station or the Ogg file could not be made\n");
    return 1;
  }
  std::vector<std::string> stations{server.url("/mp3"), server.url("/aac"), ogg};
  auto link = [&](size_t i) { return BVMediaLink::linkWithURL(*BVURL::URLWithString(stations[i % stations.size()])); };

  Tally tally;
  auto master = BVMasterPlayer::create();
  master->setOwner(&tally);
  master->setAudioOutput("null");
  std::unique_ptr<BVPlayerToolClient> tool;
  int toolsStarted = 0, toolsKilled = 0, toolFailures = 0, toolPlaying = 0;
  auto startTool = [&] {
    tool = std::make_unique<BVPlayerToolClient>();
    tool->setServerToolPath(besideThisProgram("belvane-player-tool"));
    if (tool->connect()) {
      ++toolFailures;
      tool.reset();
      return;
    }
    ++toolsStarted;
    tool->setAudioOutput("null");
  };
  startTool();

  size_t switches = 0;
  double start = wallSeconds(), lastKill = start;
  Counts warm{};
  bool warmTaken = false;
  while (wallSeconds() - start < total) {
    master->playLink(link(switches));
    if (!tool || !tool->isConnected()) startTool();
    if (tool) tool->playMediaLink(link(switches + 1));
    ++switches;
    BVRunLoop::main().runFor(kSwitchEvery);
    if (tool && tool->state() == BVPlayerStatePlaying) ++toolPlaying;
    if (tool && wallSeconds() - lastKill > kKillToolEvery) {
      kill(tool->serverProcessID(), SIGKILL);
      tool->state();  // the client notices, reaps the tool and removes its pipes
      tool.reset();
      ++toolsKilled;
      lastKill = wallSeconds();
    }
    if (!warmTaken && wallSeconds() - start > std::min(kWarmUp, total / 4)) {
      warm = counts();
      warmTaken = true;
    }
  }
  Counts end = counts();  // still playing, as after the warm-up
  tool.reset();
  master->setOwner(nullptr);
  master.reset();
  BVRunLoop::main().runFor(1.0);
  Counts after = counts();
  std::printf("soak of %.0f s: %zu switches, %d Playing, %d Stopped, %d errors; tools started %d, killed %d, "
              "failed to start %d, playing at %d of the switches\n",
              total, switches, tally.playing, tally.stopped, tally.errors, toolsStarted, toolsKilled, toolFailures,
              toolPlaying);
  std::printf("  after warm-up: %5d descriptors %4d threads %8ld KiB resident\n", warm.fds, warm.threads, warm.rss);
  std::printf("  at the end:    %5d descriptors %4d threads %8ld KiB resident\n", end.fds, end.threads, end.rss);
  std::printf("  players gone:  %5d descriptors %4d threads %8ld KiB resident\n", after.fds, after.threads, after.rss);
  std::printf("  load average %s\n", loadAverage().c_str());
  return 0;
}
