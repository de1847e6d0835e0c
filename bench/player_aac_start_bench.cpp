// Start of a bare-URL AAC+ station ("ICY 200 OK", content-type audio/aacp,
// ICY titles, 96 kbit/s) on loopback: the master player from playLink to the
// state Playing and to the first frame written to a paced "null" output (the
// tuner's request, the MP3 player declining the type, the general engine
// opening the stream again), against a bare playbin in the same process on
// the same URL, brought to PLAYING as gst-play-1.0 does it (PLAYING at once,
// PAUSED while buffering below 100 %, PLAYING again at 100 %), timed until
// the pipeline is PLAYING with buffering complete and until the first buffer
// reaches its synchronised fakesink; and against the gst-play-1.0 program
// itself on the same URL, from its launch to the first audio byte it writes
// (its audio sink a filesink into a FIFO we read), which includes its
// process start and registry loading. The server sends a burst as Icecast
// does (64 KiB by default), then the stream's rate.
//
//   bench_player_aac_start --benchmark_repetitions=15 --benchmark_enable_random_interleaving=true
//   (each repetition is one start; interleaved, the two sides share the machine's moods)
//   BELVANE_BENCH_BURST_BYTES=12000 bench_player_aac_start ...   (a one-second burst)
//   BELVANE_BENCH_HEAD_ANSWERED=1 bench_player_aac_start ...  (HEAD answered over HTTP with the
//   type, as a server other than an ICY one would: what the start costs once the type is known)
#include "cpu_run_support.h"
#include "gst_play_support.h"
#include "player_start_support.h"

#include <belvane/BVMasterPlayer.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVQuickTimePlayer.h>
#include <belvane/BVRunLoop.h>
#include <belvane/BVURL.h>
#include <belvane/BVURLAdditions.h>

#include <benchmark/benchmark.h>
#include <gst/gst.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace belvane::bench;

namespace {

struct Setup {
  std::unique_ptr<ServerProcess> server;
  std::string url;
  int burstBytes = envInt("BELVANE_BENCH_BURST_BYTES", 65536, 0);
  int bytesPerSecond = 0;
  std::vector<double> oursPlaying, oursFrame, gstPlaying, gstBuffer, gstPlayProgram, mimeRequest;
  std::string fifo;
  bool generalEngine = true;
};
Setup* setup = nullptr;

// One start of the master player: ms to Playing and to the first frame
// written, or false.
bool masterStart(double& playingMs, double& frameMs) {
  auto master = BVMasterPlayer::create();
  master->setAudioOutput("null");
  bool started = timeMasterStart(*master, *master, setup->url, 20, playingMs, frameMs);
  if (!dynamic_cast<BVQuickTimePlayer*>(master->subPlayer().get())) setup->generalEngine = false;
  master.reset();
  BVRunLoop::main().runFor(0.2);  // the released pipeline winds down
  return started;
}

// One start of a playbin handled as gst-play-1.0 handles it.
bool playbinStart(double& playingMs, double& bufferMs) {
  std::atomic<double> bufferAt{0};
  GstElement* playbin = makeTimedPlaybin(setup->url, bufferAt, false);
  if (!playbin) return false;
  GstBus* bus = gst_element_get_bus(playbin);
  double t0 = wallSeconds(), playingAt = 0;
  gst_element_set_state(playbin, GST_STATE_PLAYING);
  GstPlayLikeBus handler(playbin);
  while (wallSeconds() - t0 < 20 && (playingAt == 0 || bufferAt == 0)) {
    GstMessage* m = gst_bus_timed_pop(bus, 1 * GST_MSECOND);
    if (!m) continue;
    bool stop = handler.handle(m);
    gst_message_unref(m);
    if (handler.playing() && playingAt == 0) playingAt = wallSeconds();
    if (stop) break;
  }
  gst_element_set_state(playbin, GST_STATE_NULL);
  gst_object_unref(bus);
  gst_object_unref(playbin);
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  if (playingAt == 0 || bufferAt == 0) return false;
  playingMs = 1000 * (playingAt - t0);
  bufferMs = 1000 * (bufferAt - t0);
  return true;
}

// One start of the gst-play-1.0 program: ms from its launch to the first
// audio byte its sink writes.
bool gstPlayProgramStart(double& firstByteMs) {
  std::string sink = "--audiosink=filesink location=" + setup->fifo;
  const char* argv[] = {"gst-play-1.0", "-q", sink.c_str(), "--videosink=fakesink", setup->url.c_str(), nullptr};
  // Read and write, so that opening never waits for the other side and the
  // program's open for writing does not either.
  int fd = open(setup->fifo.c_str(), O_RDWR | O_NONBLOCK);
  if (fd < 0) return false;
  GPid pid = 0;
  double t0 = wallSeconds();
  bool spawned = g_spawn_async(nullptr, const_cast<char**>(argv), nullptr,
                               GSpawnFlags(G_SPAWN_SEARCH_PATH | G_SPAWN_DO_NOT_REAP_CHILD |
                                           G_SPAWN_STDOUT_TO_DEV_NULL | G_SPAWN_STDERR_TO_DEV_NULL),
                               nullptr, nullptr, &pid, nullptr);
  bool got = false;
  if (spawned) {
    pollfd p{fd, POLLIN, 0};
    char byte;
    got = poll(&p, 1, 20000) == 1 && read(fd, &byte, 1) == 1;
    firstByteMs = 1000 * (wallSeconds() - t0);
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
  }
  close(fd);
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  return got;
}

// Each iteration one start: its ms to playing are the iteration's time, its
// ms to the first audio a counter; both kept for the summary.
void recordStarts(benchmark::State& state, bool (*start)(double&, double&), const char* failure,
                  std::vector<double>& playingMs, std::vector<double>& audioMs, const char* audioCounter) {
  for (auto _ : state) {
    double playing = 0, audio = 0;
    if (!start(playing, audio)) {
      state.SkipWithError(failure);
      return;
    }
    playingMs.push_back(playing);
    audioMs.push_back(audio);
    state.SetIterationTime(playing / 1000);
    state.counters[audioCounter] = audio;
  }
}

void BM_MasterPlayerAACStationStart(benchmark::State& state) {
  recordStarts(state, masterStart, "the player did not start", setup->oursPlaying, setup->oursFrame,
               "first_frame_ms");
}
BELVANE_BENCH_ONCE(BM_MasterPlayerAACStationStart);

void BM_PlaybinAACStationStart(benchmark::State& state) {
  recordStarts(state, playbinStart, "playbin did not start", setup->gstPlaying, setup->gstBuffer,
               "first_buffer_ms");
}
BELVANE_BENCH_ONCE(BM_PlaybinAACStationStart);

void BM_GstPlayProgramAACStationStart(benchmark::State& state) {
  for (auto _ : state) {
    double firstByte = 0;
    if (!gstPlayProgramStart(firstByte)) {
      state.SkipWithError("gst-play-1.0 wrote no audio");
      return;
    }
    setup->gstPlayProgram.push_back(firstByte);
    state.SetIterationTime(firstByte / 1000);
  }
}
BELVANE_BENCH_ONCE(BM_GstPlayProgramAACStationStart);

// One request for the station's MIME type (a HEAD request on a worker
// thread while the caller waits), as the media format makes it when its type
// is read and not yet known. The ICY server's "ICY 200 OK" is read as HTTP
// 200 with its Content-Type.
void BM_StationMIMETypeRequest(benchmark::State& state) {
  auto url = *BVURL::URLWithString(setup->url);
  int answered = 0;
  for (auto _ : state) {
    double t0 = wallSeconds();
    auto type = bvRequestMIMETypeWithTimeout(url, 10.0);
    double ms = 1000 * (wallSeconds() - t0);
    if (type) ++answered;
    setup->mimeRequest.push_back(ms);
    state.SetIterationTime(ms / 1000);
  }
  state.counters["answered"] = answered;
}
BELVANE_BENCH_ONCE(BM_StationMIMETypeRequest);

}  // namespace

int main(int argc, char** argv) {
  Setup s;
  setup = &s;
  auto programme = programmeAac(20, 96);
  if (programme.frames.empty()) {
    std::fprintf(stderr, "sox and gst-launch-1.0 (avenc_aac) are needed for this benchmark\n");
    return 1;
  }
  auto shared = std::make_shared<const belvane::test::Mp3Data>(std::move(programme));
  s.bytesPerSecond = int(double(shared->bytes.size()) / (double(shared->totalSamples()) / shared->sampleRate));
  IcyStreamShape shape;
  shape.contentType = "audio/aacp";
  shape.metaint = 16000;
  shape.titleEvery = 4;
  shape.bytesPerSecond = s.bytesPerSecond;
  shape.burstSeconds = double(s.burstBytes) / s.bytesPerSecond;
  const bool headAnswered = std::getenv("BELVANE_BENCH_HEAD_ANSWERED") != nullptr;
  s.server = std::make_unique<ServerProcess>([shared, shape, headAnswered](belvane::test::TestHTTPServer& http) {
    http.route("/", belvane::test::Response::rawStream(icyStream(shared, shape)));
    if (headAnswered)
      http.route("HEAD", "/", belvane::test::Response("HTTP/1.0 200 OK").header("Content-Type", "audio/aacp"));
  });
  if (!s.server->running()) return 1;
  s.url = s.server->url("/");
  gst_init(&argc, &argv);
  s.fifo = std::string(g_get_tmp_dir()) + "/belvane-bench-gst-play-" + std::to_string(getpid());
  if (mkfifo(s.fifo.c_str(), 0600) != 0) return 1;
  // One start of each, not counted: GStreamer's registry and plugins, the
  // player's libraries.
  {
    double a, b;
    masterStart(a, b);
    playbinStart(a, b);
    gstPlayProgramStart(a);
  }
  runBenchmarks(argc, argv);
  printSpreads("Start of a bare-URL AAC+ station, " + std::to_string(s.bytesPerSecond) + " B/s, " +
                   std::to_string(s.burstBytes) + "-byte burst" + (headAnswered ? ", HEAD answered over HTTP" : "") +
                   " (ms, min / median / max):",
               {{s.generalEngine ? "master player: playLink -> Playing" : "master (NOT ALWAYS general engine)",
                 s.oursPlaying},
                {"master player: playLink -> first frame", s.oursFrame},
                {"playbin as gst-play: -> PLAYING, buffered", s.gstPlaying},
                {"playbin as gst-play: -> first buffer", s.gstBuffer},
                {"gst-play-1.0 program: launch -> first audio byte", s.gstPlayProgram},
                {"one MIME type request (HEAD) to the station", s.mimeRequest}});
  unlink(s.fifo.c_str());
  auto ours = spread(s.oursPlaying), peer = spread(s.gstPlaying);
  if (ours.count && peer.count && peer.median > 0)
    std::printf("  to Playing, ratio of medians to playbin %.2f (goal <= 1.00)\n", ours.median / peer.median);
  auto frame = spread(s.oursFrame), program = spread(s.gstPlayProgram);
  if (frame.count && program.count && program.median > 0)
    std::printf("  to first audio, ratio of medians to gst-play-1.0 %.2f (goal <= 1.00)\n",
                frame.median / program.median);
  std::printf("  load average: %s\n", loadAverage().c_str());
  return 0;
}
