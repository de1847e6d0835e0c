// Twenty AAC+ stations at once: twenty master players, each on a bare-URL
// station ("ICY 200 OK", content-type audio/aacp, 96 kbit/s, a title every
// eight metadata blocks) that a loopback server in a child process sends at
// its real rate after a one-second burst, each played by the general engine
// into a paced "null" output. In a steady window it measures the CPU of this
// process per stream, the growth of its resident memory per stream over a
// warmed-up process, the audio each stream wrote against real time, and the
// longest time any one output went without taking a frame (a stream that
// runs dry shows there, and in a rate below 1.0).
//
//   bench_streaming_aac_concurrency            (20 streams, 20 s window)
//   BELVANE_BENCH_STREAMS=5 BELVANE_BENCH_WINDOW=10 bench_streaming_aac_concurrency
//   BELVANE_BENCH_FEED=uridecodebin bench_streaming_aac_concurrency
//     (the engine's tap and AudioDelivery fed by uridecodebin, or by
//     "playbin-no-soft-volume", instead of master players: engine_tap_support.h)
#include "engine_tap_support.h"
#include "cpu_run_support.h"

#include <belvane/BVMasterPlayer.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVQuickTimePlayer.h>
#include <belvane/BVRunLoop.h>
#include <belvane/BVURL.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>

using namespace belvane::bench;

namespace {

struct Setup {
  int streams = envInt("BELVANE_BENCH_STREAMS", 20, 1);
  double window = envDouble("BELVANE_BENCH_WINDOW", 20, 1.0);
  int sampleRate = 44100;
  std::unique_ptr<ServerProcess> server;
  std::optional<TapFeed> feed;  // unset: master players
  std::string summary;
};
Setup* setup = nullptr;

// Counts the times a player leaves Playing (a stall is announced that way).
struct StallCounter : BVPlayerOwner {
  int leftPlaying = 0;
  void playerStateChanged(BVBasePlayer&, BVPlayerState from, BVPlayerState to, const BVErrorRef&) override {
    if (from == BVPlayerStatePlaying && to != BVPlayerStatePlaying) ++leftPlaying;
  }
};

// One station played by a master player or, with BELVANE_BENCH_FEED set, by
// the engine's tap and audio path fed by another pipeline.
struct Station {
  std::shared_ptr<BVMasterPlayer> master;
  std::unique_ptr<EngineTap> tap;
  StallCounter owner;
  uint64_t lastFrames = 0;
  double lastProgress = 0, longestWithoutProgress = 0;
  Station() {
    const std::string url = setup->server->url("/");
    if (setup->feed) {
      tap = std::make_unique<EngineTap>(*setup->feed, url, "null");
      return;
    }
    master = BVMasterPlayer::create();
    master->setOwner(&owner);
    master->setAudioOutput("null");
    master->playLink(BVMediaLink::linkWithURL(*BVURL::URLWithString(url)));
  }
  ~Station() {
    if (master) master->setOwner(nullptr);
  }
  uint64_t frames() const { return master ? master->outputFramesWritten() : tap->framesWritten(); }
  // A tap has no player state: it plays once it has written audio.
  bool playing() const { return master ? master->state() == BVPlayerStatePlaying : tap->framesWritten() > 0; }
  bool onGeneralEngine() const { return !master || dynamic_cast<BVQuickTimePlayer*>(master->subPlayer().get()); }
  void sample(double now) {
    uint64_t written = frames();
    if (written != lastFrames || lastProgress == 0) {
      lastFrames = written;
      lastProgress = now;
    }
    longestWithoutProgress = std::max(longestWithoutProgress, now - lastProgress);
  }
};

const char* feedName() {
  if (!setup->feed) return "";
  return *setup->feed == TapFeed::Uridecodebin ? "'s tap fed by uridecodebin"
                                               : "'s tap fed by playbin without soft-volume";
}

bool allPlaying(const std::vector<std::unique_ptr<Station>>& stations) {
  for (auto& s : stations)
    if (!s->playing()) return false;
  return true;
}

void BM_ConcurrentAACStations(benchmark::State& state) {
  for (auto _ : state) {
    // Warm up: GStreamer's registry and plugins, GLib's and curl's
    // process-wide threads, allocator arenas.
    {
      std::vector<std::unique_ptr<Station>> warm;
      warm.push_back(std::make_unique<Station>());
      BVRunLoop::main().runUntil([&] { return allPlaying(warm); }, 20);
      BVRunLoop::main().runFor(1.0);
    }
    BVRunLoop::main().runFor(1.0);
    long rss0 = residentKiB();
    int threads0 = threadCount();

    std::vector<std::unique_ptr<Station>> stations;
    for (int i = 0; i < setup->streams; ++i) stations.push_back(std::make_unique<Station>());
    if (!BVRunLoop::main().runUntil([&] { return allPlaying(stations); }, 60)) {
      state.SkipWithError("not every station reached Playing");
      return;
    }
    BVRunLoop::main().runFor(3.0);  // past the bursts, into the steady rate
    int general = 0;
    std::vector<uint64_t> frames0;
    for (auto& s : stations) {
      frames0.push_back(s->frames());
      s->owner.leftPlaying = 0;
      if (s->onGeneralEngine()) ++general;
    }
    auto sampler = BVTimer::scheduledTimer(0.01, true, [&](BVTimer&) {
      double now = wallSeconds();
      for (auto& s : stations) s->sample(now);
    });
    double cpu0 = processCPUSeconds(), wall0 = wallSeconds();
    BVRunLoop::main().runFor(setup->window);
    double cpu = processCPUSeconds() - cpu0, wall = wallSeconds() - wall0;
    sampler->invalidate();
    std::vector<double> rates;
    double longestGap = 0;
    int stalls = 0;
    for (size_t i = 0; i < stations.size(); ++i) {
      auto& s = stations[i];
      rates.push_back(double(s->frames() - frames0[i]) / setup->sampleRate / wall);
      longestGap = std::max(longestGap, s->longestWithoutProgress);
      stalls += s->owner.leftPlaying;
    }
    long rss = residentKiB();
    int threads = threadCount();
    bool playing = allPlaying(stations);
    stations.clear();
    BVRunLoop::main().runFor(0.5);

    double core = 100.0 * cpu / wall;
    double rssPerStream = double(rss - rss0) / 1024.0 / setup->streams;
    auto r = spread(rates);
    state.SetIterationTime(cpu);
    state.counters["core_pct"] = core;
    state.counters["core_pct_per_stream"] = core / setup->streams;
    state.counters["rss_MiB_per_stream"] = rssPerStream;
    state.counters["realtime_x_min"] = r.min;
    appendf(setup->summary,
            "%d AAC stations (%d on the general engine%s) over %.1f s: CPU %.2f s = %.1f%% of one core, "
            "%.2f%% per stream\n"
            "  RSS %ld -> %ld KiB: %.2f MiB per stream; threads %d -> %d (%.1f per stream)\n"
            "  audio written per stream, x real time: min %.3f / median %.3f / max %.3f\n"
            "  longest time an output took no frame: %.0f ms; left Playing: %d times; all still playing: %s\n"
            "  load average: %s\n",
            setup->streams, general, feedName(), wall, cpu, core, core / setup->streams, rss0, rss, rssPerStream, threads0,
            threads, double(threads - threads0) / setup->streams, r.min, r.median, r.max, 1000 * longestGap,
            stalls, playing ? "yes" : "no", loadAverage().c_str());
  }
}
BELVANE_BENCH_ONCE(BM_ConcurrentAACStations);

}  // namespace

int main(int argc, char** argv) {
  Setup s;
  setup = &s;
  if (const char* v = std::getenv("BELVANE_BENCH_FEED")) {
    if (std::strcmp(v, "uridecodebin") == 0) {
      s.feed = TapFeed::Uridecodebin;
    } else if (std::strcmp(v, "playbin-no-soft-volume") == 0) {
      s.feed = TapFeed::PlaybinWithoutSoftVolume;
    } else {
      std::fprintf(stderr, "BELVANE_BENCH_FEED: uridecodebin or playbin-no-soft-volume\n");
      return 1;
    }
  }
  auto programme = programmeAac(30, 96);
  if (programme.frames.empty()) {
    std::fprintf(stderr, "sox and gst-launch-1.0 (avenc_aac) are needed for this benchmark\n");
    return 1;
  }
  auto shared = std::make_shared<const belvane::test::Mp3Data>(std::move(programme));
  s.sampleRate = shared->sampleRate;
  IcyStreamShape shape;
  shape.contentType = "audio/aacp";
  shape.metaint = 16000;
  shape.titleEvery = 8;
  shape.bytesPerSecond = int(double(shared->bytes.size()) / (double(shared->totalSamples()) / shared->sampleRate));
  s.server = std::make_unique<ServerProcess>([shared, shape](belvane::test::TestHTTPServer& http) {
    http.route("/", belvane::test::Response::rawStream(icyStream(shared, shape)));
  });
  if (!s.server->running()) return 1;
  gst_init(nullptr, nullptr);
  return runBenchmarks(argc, argv, s.summary);
}
