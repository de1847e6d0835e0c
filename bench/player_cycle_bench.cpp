// 1000 create / play / destroy cycles of the master player on a loopback
// station (a child process serving a real-rate ICY stream with a burst),
// destroyed at different points: while tuning, connecting, buffering and
// playing (every tenth cycle waits for Playing). Reports the time per cycle
// and what the process holds afterwards against before: resident memory,
// open descriptors and threads. Nothing should grow.
//
//   bench_player_cycle
//   BELVANE_BENCH_CYCLES=200 bench_player_cycle
#include "cpu_run_support.h"

#include <belvane/BVMP3StreamPlayer.h>
#include <belvane/BVMasterPlayer.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVRunLoop.h>
#include <belvane/BVURL.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <memory>

using namespace belvane::bench;

namespace {

struct Setup {
  int cycles = envInt("BELVANE_BENCH_CYCLES", 1000, 10);
  std::unique_ptr<ServerProcess> server;
  std::string summary;
};
Setup* setup = nullptr;

struct CycleOwner : BVPlayerOwner {
  bool playing = false;
  void playerStateChanged(BVBasePlayer&, BVPlayerState, BVPlayerState to, const BVErrorRef&) override {
    playing = playing || to == BVPlayerStatePlaying;
  }
};

// One cycle; waits for Playing when asked, else destroys after `linger` s.
bool cycle(double linger, bool untilPlaying) {
  CycleOwner owner;
  auto master = BVMasterPlayer::create();
  master->setOwner(&owner);
  dynamic_cast<BVMP3StreamPlayer&>(*master->subPlayer()).setAudioOutput("null");
  master->playLink(BVMediaLink::linkWithURL(*BVURL::URLWithString(setup->server->url("/live"))));
  if (untilPlaying) return BVRunLoop::main().runUntil([&] { return owner.playing; }, 20);
  BVRunLoop::main().runFor(linger);
  return true;
}

void BM_MasterPlayerCycles(benchmark::State& state) {
  for (auto _ : state) {
    for (int i = 0; i < 5; ++i) cycle(0, true);  // warm-up
    BVRunLoop::main().runFor(0.5);
    long rss0 = residentKiB();
    int fds0 = openDescriptors(), threads0 = threadCount();
    int failures = 0;
    double wall0 = wallSeconds(), cpu0 = processCPUSeconds();
    for (int i = 0; i < setup->cycles; ++i)
      if (!cycle(0.003 * (i % 10), i % 10 == 9)) ++failures;
    double wall = wallSeconds() - wall0, cpu = processCPUSeconds() - cpu0;
    // Let the last streams' threads finish leaving.
    BVRunLoop::main().runUntil([&] { return threadCount() <= threads0 && openDescriptors() <= fds0; }, 10);
    long rss = residentKiB();
    int fds = openDescriptors(), threads = threadCount();
    state.SetIterationTime(wall / setup->cycles);
    state.counters["rss_growth_KiB"] = double(rss - rss0);
    state.counters["fd_growth"] = fds - fds0;
    state.counters["thread_growth"] = threads - threads0;
    appendf(setup->summary,
            "%d cycles (%d did not reach Playing when asked) in %.1f s, %.1f ms and %.1f ms CPU per cycle\n"
            "  RSS %ld -> %ld KiB (%+ld), descriptors %d -> %d, threads %d -> %d\n  load average: %s\n",
            setup->cycles, failures, wall, 1000 * wall / setup->cycles, 1000 * cpu / setup->cycles, rss0, rss,
            rss - rss0, fds0, fds, threads0, threads, loadAverage().c_str());
  }
}
BELVANE_BENCH_ONCE(BM_MasterPlayerCycles);

}  // namespace

int main(int argc, char** argv) {
  Setup s;
  setup = &s;
  return runOnProgrammeStation(argc, argv, s, 10, {.titleEvery = 2, .bytesPerSecond = 16000, .burstSeconds = 2});
}
