// Start latency of the shoutstreamer on a real Icecast 2 server (loopback):
// the time from shoutstreamer_start to the first audio callback, and to the
// report of the playing state, over fresh connections to a mount fed at its
// real rate: connecting, reading the reply, finding the frames, decoding and
// prebuffering half a second. A plain socket reading the reply head and half
// a second of audio from the same mount shows what Icecast itself takes.
//
//   bench_streaming_start [--benchmark_repetitions=1]   (20 starts per run)
#include "cpu_run_support.h"

#include "streaming/shoutstreamer.h"

#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <atomic>
#include <cstdio>
#include <thread>

using namespace belvane::bench;

namespace {

struct Probe {
  std::atomic<double> firstAudio{0}, playing{0};
};

void onState(shoutstreamer_t s, int, int to) {
  auto* p = static_cast<Probe*>(shoutstreamer_delegate(s)->context);
  if (to == SHOUTSTREAMER_STATE_PLAYING && p->playing == 0) p->playing = wallSeconds();
}
void onAudio(shoutstreamer_t s, float, float**, int32_t) {
  auto* p = static_cast<Probe*>(shoutstreamer_delegate(s)->context);
  if (p->firstAudio == 0) p->firstAudio = wallSeconds();
}
void onTitle(shoutstreamer_t, const char*, int32_t, int32_t) {}

struct Setup {
  ProgrammeMount live;
  std::vector<double> audio, playing, serverHead, serverFirstByte, serverFirstAudio;
};
Setup* setup = nullptr;

void BM_ShoutstreamerStartOnIcecast(benchmark::State& state) {
  for (auto _ : state) {
    for (int i = 0; i < 20; ++i) {
      Probe probe;
      shoutstreamer_t s = shoutstreamer_create();
      double t0 = wallSeconds();
      if (shoutstreamer_start(s, setup->live.url.c_str(), &probe, onState, onAudio, nullptr, onTitle) != 0) {
        shoutstreamer_destroy(s);
        state.SkipWithError("shoutstreamer_start failed");
        return;
      }
      while ((probe.firstAudio == 0 || probe.playing == 0) && wallSeconds() - t0 < 10)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      shoutstreamer_destroy(s);
      if (probe.firstAudio == 0) {
        state.SkipWithError("no audio within 10 s");
        return;
      }
      setup->audio.push_back(1000 * (probe.firstAudio - t0));
      if (probe.playing > 0) setup->playing.push_back(1000 * (probe.playing - t0));
      ServerTimes floor = serverTimes(setup->live.url);
      if (floor.head >= 0) setup->serverHead.push_back(floor.head);
      if (floor.firstByte >= 0) setup->serverFirstByte.push_back(floor.firstByte);
      if (floor.halfSecond >= 0) setup->serverFirstAudio.push_back(floor.halfSecond);
    }
    auto a = spread(setup->audio);
    state.SetIterationTime(a.median / 1000);
    state.counters["first_audio_ms_median"] = a.median;
    state.counters["first_audio_ms_max"] = a.max;
  }
}
BELVANE_BENCH_ONCE(BM_ShoutstreamerStartOnIcecast);

}  // namespace

int main(int argc, char** argv) {
  Setup s;
  setup = &s;
  if (!s.live.start("/live.mp3")) return 1;
  runBenchmarks(argc, argv);
  printSpreads("shoutstreamer_start on Icecast 2 (ms, min / median / max; goal <= 150 to the first audio):",
               {{"to the first audio callback", s.audio},
                {"to the playing state", s.playing},
                {"plain socket: reply head from Icecast", s.serverHead},
                {"plain socket: first audio byte", s.serverFirstByte},
                {"plain socket: head + 8000 audio bytes", s.serverFirstAudio}});
  std::printf("  load average: %s\n", loadAverage().c_str());
  return 0;
}
