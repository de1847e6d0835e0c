// CPU cost of playing an hour of 128 kbit/s stereo MP3: the stream tuner,
// the shoutstreamer (HTTP, ICY metadata, libmpg123 decoding to float) and
// the shoutstreamer delegate writing into the unpaced "null:fast" output,
// fed as fast as they take it by a loopback ICY server in a child process.
// Measured in the same run against `mpg123 -t` (decode, no output) on the
// same bytes in a file. The programme is a minute of pink noise under a
// sweeping tone, looped to the length wanted.
//
//   bench_streaming_decode [--benchmark_repetitions=5 --benchmark_enable_random_interleaving=true]
//   (interleaved, a drift of the machine's speed does not favour either side)
//   BELVANE_BENCH_STREAM_SECONDS=600 bench_streaming_decode   (shorter run)
#include "cpu_run_support.h"

#include <belvane/BVMP3StreamPlayer.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVRunLoop.h>
#include <belvane/BVURL.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <memory>

using namespace belvane::bench;

namespace {

constexpr double kProgrammeSeconds = 60;

struct Setup {
  double streamSeconds = envDouble("BELVANE_BENCH_STREAM_SECONDS", 3600, 60.0);
  std::unique_ptr<LoopedProgramme> stream;  // its file for mpg123
  uint64_t frames = 0;
  std::unique_ptr<ServerProcess> server;
  std::vector<double> ours, peer, loads;
};
Setup* setup = nullptr;

void BM_TunerShoutstreamerNullFast(benchmark::State& state) {
  for (auto _ : state) {
    auto player = BVMP3StreamPlayer::create();
    player->setAudioOutput("null:fast");
    auto tick = BVTimer::scheduledTimer(0.01, true, [](BVTimer&) {});
    double cpu0 = processCPUSeconds(), wall0 = wallSeconds();
    player->playLink(BVMediaLink::linkWithURL(*BVURL::URLWithString(setup->server->url("/hour"))));
    bool done = BVRunLoop::main().runUntil(
        [&] { return player->outputFramesWritten() >= setup->frames || player->state() >= BVPlayerStateStopped; },
        setup->streamSeconds);
    double cpu = processCPUSeconds() - cpu0, wall = wallSeconds() - wall0;
    uint64_t frames = player->outputFramesWritten();
    tick->invalidate();
    player.reset();
    if (!recordCPU(state, done && frames >= setup->frames, cpu, setup->ours)) return;
    state.counters["wall_s"] = wall;
    state.counters["x_realtime_cpu"] = setup->streamSeconds / cpu;
    setup->loads.push_back(std::stod(loadAverage()));
  }
}
BELVANE_BENCH_ONCE(BM_TunerShoutstreamerNullFast);

void BM_Mpg123Test(benchmark::State& state) {
  recordChildCPU(state, {"mpg123", "-q", "-t", setup->stream->file}, setup->peer);
}
BELVANE_BENCH_ONCE(BM_Mpg123Test);

}  // namespace

int main(int argc, char** argv) {
  Setup s;
  setup = &s;
  auto programme = programmeMp3(kProgrammeSeconds);
  if (programme.frames.empty()) {
    std::fprintf(stderr, "lame is needed for this benchmark\n");
    return 1;
  }
  // mpg123 reads the same stream, without the metadata blocks, from a file.
  s.stream = std::make_unique<LoopedProgramme>(std::move(programme), kProgrammeSeconds, s.streamSeconds, "stream.mp3");
  s.frames = s.stream->frames;
  // The stream runs on past the frames measured; the player is destroyed then.
  s.server = std::make_unique<ServerProcess>([p = s.stream->programme](belvane::test::TestHTTPServer& http) {
    IcyStreamShape shape;
    shape.metaint = 16000;
    shape.titleEvery = 60;
    http.route("/hour", belvane::test::Response::rawStream(icyStream(p, shape)));
  });
  if (!s.server->running()) return 1;

  runBenchmarks(argc, argv);

  auto ours = spread(s.ours), peer = spread(s.peer);
  std::printf("\n%.0f s of 128 kbit/s stereo MP3 (%llu frames), CPU seconds (min / median / max):\n",
              s.streamSeconds, (unsigned long long)s.frames);
  printCPUSpread("tuner + shoutstreamer + null:fast ", ours);
  printCPUSpread("mpg123 -t                         ", peer);
  printRatios(ours, peer);
  std::printf("  load average at the end: %s\n", loadAverage().c_str());
  return 0;
}
