// Fifty stations at once: fifty MP3 stream players (tuner, shoutstreamer,
// delegate) each playing a 128 kbit/s stream that a loopback ICY server in a
// child process sends at its real rate (after a one-second burst, as
// Icecast does), each into a paced "null" output. Measures the CPU this
// process uses in a steady window as a share of one core, and the growth of
// its resident memory per stream over a warmed-up process.
//
//   bench_streaming_concurrency            (50 streams, 20 s window)
//   BELVANE_BENCH_STREAMS=10 BELVANE_BENCH_WINDOW=10 bench_streaming_concurrency
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

struct Setup {
  int streams = envInt("BELVANE_BENCH_STREAMS", 50, 1);
  double window = envDouble("BELVANE_BENCH_WINDOW", 20, 1.0);
  std::unique_ptr<ServerProcess> server;
  std::string summary;
};
Setup* setup = nullptr;

std::shared_ptr<BVMP3StreamPlayer> startPlayer() {
  auto player = BVMP3StreamPlayer::create();
  player->setAudioOutput("null");
  player->playLink(BVMediaLink::linkWithURL(*BVURL::URLWithString(setup->server->url("/live"))));
  return player;
}

bool allPlaying(const std::vector<std::shared_ptr<BVMP3StreamPlayer>>& players) {
  for (auto& p : players)
    if (p->state() != BVPlayerStatePlaying) return false;
  return true;
}

void BM_ConcurrentRealRateStreams(benchmark::State& state) {
  for (auto _ : state) {
    // Warm up: libraries, GLib's and curl's process-wide threads, allocator arenas.
    {
      auto warm = startPlayer();
      BVRunLoop::main().runUntil([&] { return warm->state() == BVPlayerStatePlaying; }, 20);
      BVRunLoop::main().runFor(1.0);
    }
    BVRunLoop::main().runFor(0.5);
    long rss0 = residentKiB();
    int threads0 = threadCount();

    std::vector<std::shared_ptr<BVMP3StreamPlayer>> players;
    for (int i = 0; i < setup->streams; ++i) players.push_back(startPlayer());
    if (!BVRunLoop::main().runUntil([&] { return allPlaying(players); }, 60)) {
      state.SkipWithError("not every stream reached Playing");
      return;
    }
    BVRunLoop::main().runFor(3.0);  // past the bursts, into the steady rate
    uint64_t frames0 = 0;
    for (auto& p : players) frames0 += p->outputFramesWritten();
    double cpu0 = processCPUSeconds(), wall0 = wallSeconds();
    BVRunLoop::main().runFor(setup->window);
    double cpu = processCPUSeconds() - cpu0, wall = wallSeconds() - wall0;
    uint64_t frames = 0;
    for (auto& p : players) frames += p->outputFramesWritten();
    long rss = residentKiB();
    int threads = threadCount();
    bool playing = allPlaying(players);
    players.clear();

    double core = 100.0 * cpu / wall;
    double rssPerStream = double(rss - rss0) / 1024.0 / setup->streams;
    double realtime = double(frames - frames0) / 44100.0 / wall / setup->streams;
    state.SetIterationTime(cpu);
    state.counters["core_pct"] = core;
    state.counters["rss_MiB_per_stream"] = rssPerStream;
    state.counters["realtime_x"] = realtime;
    appendf(setup->summary,
            "%d streams over %.1f s: CPU %.2f s = %.1f%% of one core (%.2f%% per stream; goal <= 10%% in all)\n"
            "  RSS %ld -> %ld KiB: %.2f MiB per stream (goal <= 2); threads %d -> %d\n"
            "  audio written per stream %.3fx real time; all still playing: %s\n"
            "  load average: %s\n",
            setup->streams, wall, cpu, core, core / setup->streams, rss0, rss, rssPerStream, threads0, threads,
            realtime, playing ? "yes" : "no", loadAverage().c_str());
  }
}
BELVANE_BENCH_ONCE(BM_ConcurrentRealRateStreams);

}  // namespace

int main(int argc, char** argv) {
  Setup s;
  setup = &s;
  return runOnProgrammeStation(argc, argv, s, 30, {.metaint = 16000, .titleEvery = 8, .bytesPerSecond = 16000});
}
