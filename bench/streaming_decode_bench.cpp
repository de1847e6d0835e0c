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
#include "streaming_bench_support.h"

#include <belvane/BVMP3StreamPlayer.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVRunLoop.h>
#include <belvane/BVURL.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <fstream>
#include <memory>

using namespace belvane::bench;

namespace {

constexpr double kProgrammeSeconds = 60;

struct Setup {
  std::shared_ptr<const belvane::test::Mp3Data> programme;
  double streamSeconds = 3600;
  uint64_t loops = 0;       // programme loops in the stream
  uint64_t frames = 0;      // decoded frames in the stream
  std::string file;         // the same bytes for mpg123
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
    if (!done || frames < setup->frames) {
      state.SkipWithError("the stream did not play to its end");
      return;
    }
    state.SetIterationTime(cpu);
    state.counters["cpu_s"] = cpu;
    state.counters["wall_s"] = wall;
    state.counters["x_realtime_cpu"] = setup->streamSeconds / cpu;
    setup->ours.push_back(cpu);
    setup->loads.push_back(std::stod(loadAverage()));
  }
}

void BM_Mpg123Test(benchmark::State& state) {
  for (auto _ : state) {
    double cpu = childCPUSeconds({"mpg123", "-q", "-t", setup->file});
    if (cpu < 0) {
      state.SkipWithError("mpg123 failed");
      return;
    }
    state.SetIterationTime(cpu);
    state.counters["cpu_s"] = cpu;
    setup->peer.push_back(cpu);
  }
}

BENCHMARK(BM_TunerShoutstreamerNullFast)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Mpg123Test)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  Setup s;
  setup = &s;
  if (const char* v = std::getenv("BELVANE_BENCH_STREAM_SECONDS")) s.streamSeconds = std::max(60.0, std::atof(v));
  auto programme = programmeMp3(kProgrammeSeconds);
  if (programme.frames.empty()) {
    std::fprintf(stderr, "lame is needed for this benchmark\n");
    return 1;
  }
  s.programme = std::make_shared<const belvane::test::Mp3Data>(std::move(programme));
  s.loops = uint64_t(s.streamSeconds / kProgrammeSeconds + 0.5);
  s.frames = s.loops * s.programme->totalSamples();
  // mpg123 reads the same stream, without the metadata blocks, from a file.
  gchar* dir = g_dir_make_tmp("belvane-bench-XXXXXX", nullptr);
  s.file = std::string(dir) + "/stream.mp3";
  {
    std::ofstream out(s.file, std::ios::binary);
    for (uint64_t i = 0; i < s.loops; ++i) out << s.programme->bytes;
  }
  // The stream runs on past the frames measured; the player is destroyed then.
  s.server = std::make_unique<ServerProcess>([p = s.programme](belvane::test::TestHTTPServer& http) {
    IcyStreamShape shape;
    shape.metaint = 16000;
    shape.titleEvery = 60;
    http.route("/hour", belvane::test::Response::rawStream(icyStream(p, shape)));
  });
  if (!s.server->running()) return 1;

  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();

  auto ours = spread(s.ours), peer = spread(s.peer);
  std::printf("\n%.0f s of 128 kbit/s stereo MP3 (%llu frames), CPU seconds (min / median / max):\n",
              s.streamSeconds, (unsigned long long)s.frames);
  std::printf("  tuner + shoutstreamer + null:fast  %.2f / %.2f / %.2f  (%zu runs)\n", ours.min, ours.median,
              ours.max, ours.count);
  std::printf("  mpg123 -t                          %.2f / %.2f / %.2f  (%zu runs)\n", peer.min, peer.median,
              peer.max, peer.count);
  if (ours.count && peer.count && peer.median > 0)
    std::printf("  ratio of medians %.2f, of minima %.2f (goal <= 1.15)\n", ours.median / peer.median,
                ours.min / peer.min);
  std::printf("  load average at the end: %s\n", loadAverage().c_str());
  s.server.reset();
  std::remove(s.file.c_str());
  g_rmdir(dir);
  g_free(dir);
  return 0;
}
