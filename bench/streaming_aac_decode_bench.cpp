// CPU cost of playing an hour of 96 kbit/s stereo AAC from a bare-URL AAC+
// station ("ICY 200 OK", content-type audio/aacp, ICY titles): the master
// player, whose MP3 player declines the stream by its type and hands it to
// the general engine (playbin, our appsink tap, AudioDelivery), writing into
// the unpaced "null:fast" output, fed as fast as it takes the bytes by a
// loopback server in a child process. Measured in the same run against
// `gst-launch-1.0 filesrc ! aacparse ! avdec_aac ! fakesink` on the same
// ADTS bytes in a file (its CPU is that of the child process). The programme
// is a minute of pink noise under a sweeping tone, encoded once by avenc_aac
// and looped to the length wanted. Beside them, to show where the time goes:
// GStreamer alone on the station (playbin, uridecodebin) and the engine's own
// tap and AudioDelivery fed by pipelines other than the engine's.
//
//   bench_streaming_aac_decode --benchmark_repetitions=5 --benchmark_enable_random_interleaving=true
//   (interleaved, a drift of the machine's speed does not favour either side)
//   BELVANE_BENCH_STREAM_SECONDS=600 bench_streaming_aac_decode   (shorter run)
#include "engine_tap_support.h"
#include "cpu_run_support.h"

#include <belvane/BVMasterPlayer.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVQuickTimePlayer.h>
#include <belvane/BVRunLoop.h>
#include <belvane/BVURL.h>

#include <benchmark/benchmark.h>
#include <gst/gst.h>

#include <cstdio>
#include <memory>

using namespace belvane::bench;

namespace {

constexpr double kProgrammeSeconds = 60;

struct Setup {
  double streamSeconds = envDouble("BELVANE_BENCH_STREAM_SECONDS", 3600, 60.0);
  std::unique_ptr<LoopedProgramme> stream;  // its file for gst-launch
  uint64_t frames = 0;
  std::unique_ptr<ServerProcess> server;
  std::vector<double> ours, peer, playbin, uridecodebin, uridecodebinTap, playbinTap;
  bool generalEngine = true;
};
Setup* setup = nullptr;

void BM_MasterPlayerAACNullFast(benchmark::State& state) {
  for (auto _ : state) {
    auto master = BVMasterPlayer::create();
    master->setAudioOutput("null:fast");
    double cpu0 = processCPUSeconds(), wall0 = wallSeconds();
    master->playLink(BVMediaLink::linkWithURL(*BVURL::URLWithString(setup->server->url("/"))));
    bool done = BVRunLoop::main().runUntil(
        [&] {
          return master->outputFramesWritten() >= setup->frames || master->state() >= BVPlayerStateStopped;
        },
        setup->streamSeconds);
    double cpu = processCPUSeconds() - cpu0, wall = wallSeconds() - wall0;
    uint64_t frames = master->outputFramesWritten();
    if (!dynamic_cast<BVQuickTimePlayer*>(master->subPlayer().get())) setup->generalEngine = false;
    master.reset();
    if (!recordCPU(state, done && frames >= setup->frames, cpu, setup->ours)) return;
    state.counters["wall_s"] = wall;
    state.counters["x_realtime_cpu"] = setup->streamSeconds / cpu;
    BVRunLoop::main().runFor(0.5);  // let the released pipeline's threads go
  }
}
BELVANE_BENCH_ONCE(BM_MasterPlayerAACNullFast);

void BM_GstLaunchAvdecAac(benchmark::State& state) {
  recordChildCPU(state,
                 {"gst-launch-1.0", "-q", "filesrc", "location=" + setup->stream->file, "!", "aacparse", "!",
                  "avdec_aac", "!", "fakesink"},
                 setup->peer);
}
BELVANE_BENCH_ONCE(BM_GstLaunchAvdecAac);

// Where the time goes: GStreamer alone (gst-launch-1.0, a child process) on
// the same station, sent once to its end so that the pipeline ends: playbin
// with the audio sink bin the engine gives it (conversion to planar float,
// then a fakesink in place of our appsink), and the same decoding chain
// without playbin's sink half (uridecodebin straight into that bin), which
// leaves out the queue that playbin puts in front of every audio sink.
constexpr const char* kTapLikeSink =
    "audioconvert ! audio/x-raw,format=F32LE,layout=non-interleaved,channels=[1,2] ! fakesink sync=false";

void gstLaunchPeer(benchmark::State& state, std::vector<double>& into, const std::string& pipeline) {
  std::vector<std::string> argv = {"gst-launch-1.0", "-q"};
  gchar** words = nullptr;
  if (!g_shell_parse_argv(pipeline.c_str(), nullptr, &words, nullptr)) {
    state.SkipWithError("bad pipeline");
    return;
  }
  for (gchar** w = words; *w; ++w) argv.push_back(*w);
  g_strfreev(words);
  recordChildCPU(state, argv, into);
}

void BM_GstLaunchPlaybinStation(benchmark::State& state) {
  gstLaunchPeer(state, setup->playbin,
                "playbin uri=" + setup->server->url("/once") + " audio-sink=\"" + kTapLikeSink +
                    "\" video-sink=fakesink");
}
BELVANE_BENCH_ONCE(BM_GstLaunchPlaybinStation);

void BM_GstLaunchUridecodebinStation(benchmark::State& state) {
  gstLaunchPeer(state, setup->uridecodebin, "uridecodebin uri=" + setup->server->url("/once") + " ! " + kTapLikeSink);
}
BELVANE_BENCH_ONCE(BM_GstLaunchUridecodebinStation);

// The engine's own tap and audio path fed by uridecodebin and by a playbin
// without its soft-volume flag (see engine_tap_support.h), in this process.
void tapRun(benchmark::State& state, TapFeed feed, std::vector<double>& into) {
  for (auto _ : state) {
    double cpu0 = processCPUSeconds();
    uint64_t frames = 0;
    {
      EngineTap tap(feed, setup->server->url("/"), "null:fast");
      // The run loop announces the titles the delivery hands it (it waits for that).
      BVRunLoop::main().runUntil([&] { return tap.framesWritten() >= setup->frames; }, setup->streamSeconds);
      frames = tap.framesWritten();
    }
    if (!recordCPU(state, frames >= setup->frames, processCPUSeconds() - cpu0, into)) return;
  }
}

void BM_UridecodebinTapNullFast(benchmark::State& state) {
  tapRun(state, TapFeed::Uridecodebin, setup->uridecodebinTap);
}
BELVANE_BENCH_ONCE(BM_UridecodebinTapNullFast);
void BM_PlaybinNoSoftVolumeTapNullFast(benchmark::State& state) {
  tapRun(state, TapFeed::PlaybinWithoutSoftVolume, setup->playbinTap);
}
BELVANE_BENCH_ONCE(BM_PlaybinNoSoftVolumeTapNullFast);

}  // namespace

int main(int argc, char** argv) {
  Setup s;
  setup = &s;
  auto programme = programmeAac(kProgrammeSeconds, 96);
  if (programme.frames.empty()) {
    std::fprintf(stderr, "sox and gst-launch-1.0 (avenc_aac) are needed for this benchmark\n");
    return 1;
  }
  // gst-launch reads the same stream, without the metadata blocks, from a file.
  s.stream = std::make_unique<LoopedProgramme>(std::move(programme), kProgrammeSeconds, s.streamSeconds, "stream.aac");
  s.frames = s.stream->frames;
  // The stream runs on past the frames measured; the player is destroyed then.
  s.server = std::make_unique<ServerProcess>([p = s.stream->programme, loops = s.stream->loops](
                                                 belvane::test::TestHTTPServer& http) {
    IcyStreamShape shape;
    shape.contentType = "audio/aacp";
    shape.metaint = 16000;
    shape.titleEvery = 60;
    http.route("/", belvane::test::Response::rawStream(icyStream(p, shape)));
    shape.totalBytes = loops * p->bytes.size();
    http.route("/once", belvane::test::Response::rawStream(icyStream(p, shape)));
  });
  if (!s.server->running()) return 1;

  gst_init(nullptr, nullptr);
  runBenchmarks(argc, argv);

  auto ours = spread(s.ours), peer = spread(s.peer);
  double kbps = 8.0 * double(s.stream->programme->bytes.size()) / kProgrammeSeconds / 1000.0;
  std::printf("\n%.0f s of %.1f kbit/s stereo AAC (%llu frames), CPU seconds (min / median / max):\n",
              s.streamSeconds, kbps, (unsigned long long)s.frames);
  printCPUSpread(s.generalEngine ? "master player (general engine) + null:fast "
                                  : "master player (general engine: NOT ALWAYS) + null:fast ",
                 ours);
  printCPUSpread("gst-launch-1.0 ... avdec_aac ! fakesink        ", peer);
  printRatios(ours, peer);
  std::printf("GStreamer alone on the station (gst-launch-1.0, the stream sent once):\n");
  printCPUSpread("playbin, audio-sink as the engine's         ", spread(s.playbin));
  printCPUSpread("uridecodebin ! the same sink bin            ", spread(s.uridecodebin));
  auto tap = spread(s.uridecodebinTap);
  std::printf("  uridecodebin ! the engine's tap -> null:fast %.2f / %.2f / %.2f  (%zu runs; in this process)\n", tap.min,
              tap.median, tap.max, tap.count);
  if (tap.count && peer.count && peer.median > 0)
    std::printf("    its ratio of medians to gst-launch ... avdec_aac: %.2f\n", tap.median / peer.median);
  auto playbinTap = spread(s.playbinTap);
  std::printf("  playbin without soft-volume, the engine's tap %.2f / %.2f / %.2f  (%zu runs; in this process)\n",
              playbinTap.min, playbinTap.median, playbinTap.max, playbinTap.count);
  if (playbinTap.count && peer.count && peer.median > 0)
    std::printf("    its ratio of medians to gst-launch ... avdec_aac: %.2f\n", playbinTap.median / peer.median);
  std::printf("  load average at the end: %s\n", loadAverage().c_str());
  return 0;
}
