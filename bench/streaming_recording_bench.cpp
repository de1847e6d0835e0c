// Recording stations song by song. A loopback ICY MP3 station (128 kbit/s,
// a new title every 8 s) runs in a child process and sends at its real
// rate, after a one-second burst, as Icecast does.
//
// BM_RecordWithoutListening: a hundred BVStationRecorders record it at once
// into a temporary folder (no decoding, no output): the CPU this process
// uses in a steady window as a share of one core, and the growth of its
// resident memory per station against the compressed bytes a station sends
// in the window.
//
// BM_RecordWhileListening: one master player plays it to a paced "null"
// output; the CPU of the same window with and without a recording running,
// in the order ABBA ABBA so that a drift falls on both alike.
//
//   bench_streaming_recording                (100 stations, 20 s window; 8 x 5 s for listening)
//   BELVANE_BENCH_STREAMS=20 BELVANE_BENCH_WINDOW=10 bench_streaming_recording
#include "cpu_run_support.h"

#include <belvane/BVMasterPlayer.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVRunLoop.h>
#include <belvane/BVStationRecorder.h>
#include <belvane/BVURL.h>

#include "support/temp_dir.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

using namespace belvane::bench;

namespace {

struct Setup {
  int streams = envInt("BELVANE_BENCH_STREAMS", 100, 1);
  double window = envDouble("BELVANE_BENCH_WINDOW", 20, 1.0);
  std::unique_ptr<ServerProcess> server;
  std::string summary;
};
Setup* setup = nullptr;

constexpr double kStationBytesPerSecond = 16000;

class FileCounter : public BVStationRecorderOwner {
 public:
  int files = 0;
  int stopped = 0;
  void recorderRecordedFile(BVStationRecorder&, const std::string&, const std::string&, bool) override { ++files; }
  void recorderStopped(BVStationRecorder&, const BVErrorRef&) override { ++stopped; }
};

void BM_RecordWithoutListening(benchmark::State& state) {
  for (auto _ : state) {
    belvane::test::TempDir folder;
    FileCounter counter;
    auto startRecorder = [&] {
      auto recorder = BVStationRecorder::create();
      recorder->setOwner(&counter);
      recorder->startRecording(setup->server->url("/live"), folder.path());
      return recorder;
    };
    // Warm up: libraries, curl's and GLib's threads, allocator arenas.
    {
      auto warm = startRecorder();
      BVRunLoop::main().runUntil([&] { return warm->bytesReceived() > 64 * 1024; }, 20);
      warm->stop();
      warm->setOwner(nullptr);
    }
    BVRunLoop::main().runFor(0.5);
    long rss0 = residentKiB();

    std::vector<std::shared_ptr<BVStationRecorder>> recorders;
    for (int i = 0; i < setup->streams; ++i) recorders.push_back(startRecorder());
    BVRunLoop::main().runFor(3.0);  // past the bursts, into the steady rate
    uint64_t bytes0 = 0;
    for (auto& r : recorders) bytes0 += r->bytesReceived();
    const int files0 = counter.files;
    double cpu0 = processCPUSeconds(), wall0 = wallSeconds();
    BVRunLoop::main().runFor(setup->window);
    double cpu = processCPUSeconds() - cpu0, wall = wallSeconds() - wall0;
    uint64_t bytes = 0;
    int recording = 0;
    for (auto& r : recorders) {
      bytes += r->bytesReceived();
      recording += r->isRecording();
    }
    long rss = residentKiB();
    const int files = counter.files - files0;
    for (auto& r : recorders) {
      r->stop();
      r->setOwner(nullptr);
    }
    recorders.clear();

    const double core = 100.0 * cpu / wall;
    const double rate = double(bytes - bytes0) / wall / setup->streams / kStationBytesPerSecond;
    const double windowBytesKiB = kStationBytesPerSecond * wall / 1024.0;
    const double rssPerStation = double(rss - rss0) / setup->streams;
    state.SetIterationTime(cpu);
    state.counters["core_pct"] = core;
    state.counters["rss_KiB_per_station"] = rssPerStation;
    appendf(setup->summary,
            "Recording without listening: %d stations over %.1f s: CPU %.2f s = %.1f%% of one core (goal <= 25%%)\n"
            "  received %.3fx real rate; %d files finished; %d still recording\n"
            "  RSS %ld -> %ld KiB: %.0f KiB per station, %.2fx the %.0f KiB a station sent in the window\n"
            "  load average: %s\n",
            setup->streams, wall, cpu, core, rate, files, recording, rss0, rss, rssPerStation,
            rssPerStation / windowBytesKiB, windowBytesKiB, loadAverage().c_str());
  }
}
BELVANE_BENCH_ONCE(BM_RecordWithoutListening);

void BM_RecordWhileListening(benchmark::State& state) {
  for (auto _ : state) {
    belvane::test::TempDir folder;
    auto master = BVMasterPlayer::create();
    master->setAudioOutput("null");
    master->playLink(BVMediaLink::linkWithURL(*BVURL::URLWithString(setup->server->url("/live"))));
    if (!BVRunLoop::main().runUntil([&] { return master->state() == BVPlayerStatePlaying; }, 20)) {
      state.SkipWithError("the station did not play");
      return;
    }
    BVRunLoop::main().runFor(3.0);
    const double part = setup->window / 4;
    double plain = 0, recording = 0, wall = 0;
    for (int round = 0; round < 8; ++round) {
      // Plain, recording, recording, plain, ...: a drift over the minute
      // (the ring growing, the machine's load) falls on both alike.
      const bool record = round % 4 == 1 || round % 4 == 2;
      if (record) master->startRecording(folder.path());
      double cpu0 = processCPUSeconds(), wall0 = wallSeconds();
      BVRunLoop::main().runFor(part);
      double cpu = processCPUSeconds() - cpu0;
      wall += wallSeconds() - wall0;
      (record ? recording : plain) += cpu;
      if (record) master->stopRecording();
    }
    master->stop();
    const double extra = plain > 0 ? 100.0 * (recording - plain) / plain : 0;
    state.SetIterationTime(recording);
    state.counters["extra_pct"] = extra;
    appendf(setup->summary,
            "Recording while listening: one station, 4 x %.1f s each way: CPU %.3f s listening, %.3f s listening "
            "and recording: %+.1f%% (goal <= 2%%)\n",
            part, plain, recording, extra);
  }
}
BELVANE_BENCH_ONCE(BM_RecordWhileListening);

}  // namespace

int main(int argc, char** argv) {
  Setup s;
  setup = &s;
  return runOnProgrammeStation(argc, argv, s, 30, {.metaint = 16000, .titleEvery = 8, .bytesPerSecond = 16000});
}
