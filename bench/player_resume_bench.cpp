// Resume after pause on a live station, MP3 (the stream engine, argument 0)
// and AAC (the general engine, argument 1): the master player plays a
// loopback ICY station sent at its real rate into a paced "null" output;
// it is paused (the station goes on into the ring) for a second, then
// resumed, 20 times. Timed: from resume() to the output taking the first
// frame after the pause (its frame count moving on), polled every 50 µs.
// The goal is at most 20 ms.
//
//   bench_player_resume            (BM_ResumeAfterPause/0: MP3, /1: AAC)
#include "cpu_run_support.h"
#include "streaming_bench_support.h"
#include "support/gst_media_files.h"
#include "support/icy_test_server.h"
#include "support/temp_dir.h"
#include "support/recording_owner.h"

#include <belvane/BVMasterPlayer.h>
#include <belvane/BVRunLoop.h>

#include <benchmark/benchmark.h>

#include <chrono>
#include <thread>

using namespace belvane::bench;
using namespace belvane::test;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int kResumes = 20;

void BM_ResumeAfterPause(benchmark::State& state) {
  const bool aac = state.range(0) == 1;
  TempDir dir;
  Mp3Data aacTone;
  if (aac) aacTone = splitAdtsFrames(readWholeFile(writeMediaFile(dir.path() + "/tone.aac", MediaKind::ADTS, 2.0)));
  const Mp3Data* tone = aac ? &aacTone : stereoTone44k();
  if (!tone || tone->frames.empty()) {
    state.SkipWithError(aac ? "GStreamer cannot make AAC" : "lame is not installed");
    return;
  }
  IcyTestServer server;
  IcyStreamScript station;
  station.audio = {tone};
  if (aac) station.contentType = "audio/aacp";
  station.audioBytes = 16000 * 120;
  station.pace = 1.0;
  server.serve("/live", {station});
  for (auto _ : state) {
    RecordingOwner owner;
    auto master = BVMasterPlayer::create();
    master->setOwner(&owner);
    master->setAudioOutput("null");
    master->playLink(linkTo(server.url("/live")));
    if (!owner.runUntil(BVPlayerStatePlaying)) {
      state.SkipWithError("the station did not play");
      return;
    }
    BVRunLoop::main().runFor(1.0);
    std::vector<double> latencies;
    for (int i = 0; i < kResumes; ++i) {
      master->pause();
      BVRunLoop::main().runFor(1.0);  // what the output queued has played out
      const uint64_t before = master->outputFramesWritten();
      const auto start = Clock::now();
      master->resume();
      while (master->outputFramesWritten() == before && Clock::now() - start < std::chrono::seconds(2))
        std::this_thread::sleep_for(std::chrono::microseconds(50));
      latencies.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
      BVRunLoop::main().runFor(0.5);
    }
    master->setOwner(nullptr);
    const Spread s = spread(latencies);
    state.SetIterationTime(s.median / 1000);
    state.counters["first_frame_ms_median"] = s.median;
    state.counters["first_frame_ms_max"] = s.max;
    state.counters["behind_live_s"] = master->secondsBehindLive();
  }
}
BELVANE_BENCH_ONCE(BM_ResumeAfterPause)->Arg(0)->Arg(1);

}  // namespace

int main(int argc, char** argv) {
  runBenchmarks(argc, argv);
  return 0;
}
