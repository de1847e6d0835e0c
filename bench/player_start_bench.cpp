// Start latency of the master player on a real Icecast 2 mount (loopback,
// fed at its real rate): from playLink to the state Playing and to the
// first frame written to a paced "null" output, against GStreamer's playbin
// on the same mount in the same run (set to PLAYING: to the pipeline's
// PLAYING state and to the first buffer in a synchronised fakesink).
//
//   bench_player_start          (15 starts of each per run)
#include "streaming_bench_support.h"
#include "support/icecast_server.h"

#include <belvane/BVMP3StreamPlayer.h>
#include <belvane/BVMasterPlayer.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVRunLoop.h>
#include <belvane/BVURL.h>

#include <benchmark/benchmark.h>
#include <gst/gst.h>

#include <atomic>
#include <cstdio>
#include <thread>

using namespace belvane::bench;

namespace {

constexpr int kStarts = 15;

struct Setup {
  std::unique_ptr<belvane::test::IcecastServer> ice;
  std::string url;
  std::vector<double> oursPlaying, oursFrame, gstPlaying, gstBuffer;
};
Setup* setup = nullptr;

struct StartOwner : BVPlayerOwner {
  double playingAt = 0;
  bool failed = false;
  void playerStateChanged(BVBasePlayer&, BVPlayerState, BVPlayerState to, const BVErrorRef&) override {
    if (to == BVPlayerStatePlaying && playingAt == 0) playingAt = wallSeconds();
    if (to == BVPlayerStateError || to == BVPlayerStateStopped) failed = true;
  }
};

void BM_MasterPlayerStart(benchmark::State& state) {
  for (auto _ : state) {
    for (int i = 0; i < kStarts; ++i) {
      StartOwner owner;
      auto master = BVMasterPlayer::create();
      master->setOwner(&owner);
      auto* mp3 = dynamic_cast<BVMP3StreamPlayer*>(master->subPlayer().get());
      mp3->setAudioOutput("null");
      double frameAt = 0;
      // Polls the output every millisecond for its first frame.
      auto poll = BVTimer::scheduledTimer(0.001, true, [&](BVTimer&) {
        if (frameAt == 0 && mp3->outputFramesWritten() > 0) frameAt = wallSeconds();
      });
      double t0 = wallSeconds();
      master->playLink(BVMediaLink::linkWithURL(*BVURL::URLWithString(setup->url)));
      BVRunLoop::main().runUntil([&] { return owner.failed || (owner.playingAt > 0 && frameAt > 0); }, 10);
      poll->invalidate();
      master.reset();
      if (owner.playingAt == 0 || frameAt == 0) {
        state.SkipWithError("the player did not start");
        return;
      }
      setup->oursPlaying.push_back(1000 * (owner.playingAt - t0));
      setup->oursFrame.push_back(1000 * (frameAt - t0));
      BVRunLoop::main().runFor(0.2);
    }
    auto p = spread(setup->oursPlaying);
    state.SetIterationTime(p.median / 1000);
    state.counters["playing_ms_median"] = p.median;
    state.counters["first_frame_ms_median"] = spread(setup->oursFrame).median;
  }
}

void BM_PlaybinStart(benchmark::State& state) {
  for (auto _ : state) {
    for (int i = 0; i < kStarts; ++i) {
      GstElement* playbin = gst_element_factory_make("playbin", nullptr);
      GstElement* sink = gst_element_factory_make("fakesink", nullptr);
      if (!playbin || !sink) {
        state.SkipWithError("playbin or fakesink missing");
        return;
      }
      std::atomic<double> bufferAt{0};
      g_object_set(sink, "sync", TRUE, "signal-handoffs", TRUE, nullptr);
      g_signal_connect(sink, "handoff", G_CALLBACK(+[](GstElement*, GstBuffer*, GstPad*, gpointer d) {
                         auto* at = static_cast<std::atomic<double>*>(d);
                         if (*at == 0) *at = wallSeconds();
                       }),
                       &bufferAt);
      g_object_set(playbin, "uri", setup->url.c_str(), "audio-sink", sink, "flags", 0x2 /* audio */, nullptr);
      GstBus* bus = gst_element_get_bus(playbin);
      double t0 = wallSeconds(), playingAt = 0;
      gst_element_set_state(playbin, GST_STATE_PLAYING);
      while (wallSeconds() - t0 < 10 && (playingAt == 0 || bufferAt == 0)) {
        GstMessage* m = gst_bus_timed_pop(bus, 1 * GST_MSECOND);
        if (!m) continue;
        if (GST_MESSAGE_TYPE(m) == GST_MESSAGE_STATE_CHANGED && GST_MESSAGE_SRC(m) == GST_OBJECT(playbin)) {
          GstState now;
          gst_message_parse_state_changed(m, nullptr, &now, nullptr);
          if (now == GST_STATE_PLAYING && playingAt == 0) playingAt = wallSeconds();
        }
        bool error = GST_MESSAGE_TYPE(m) == GST_MESSAGE_ERROR;
        gst_message_unref(m);
        if (error) break;
      }
      gst_element_set_state(playbin, GST_STATE_NULL);
      gst_object_unref(bus);
      gst_object_unref(playbin);
      if (playingAt == 0 || bufferAt == 0) {
        state.SkipWithError("playbin did not start");
        return;
      }
      setup->gstPlaying.push_back(1000 * (playingAt - t0));
      setup->gstBuffer.push_back(1000 * (bufferAt - t0));
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    auto p = spread(setup->gstPlaying);
    state.SetIterationTime(p.median / 1000);
    state.counters["playing_ms_median"] = p.median;
    state.counters["first_buffer_ms_median"] = spread(setup->gstBuffer).median;
  }
}

BENCHMARK(BM_MasterPlayerStart)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PlaybinStart)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  Setup s;
  setup = &s;
  gst_init(&argc, &argv);
  s.ice = startProgrammeMount("/live.mp3");
  if (!s.ice) return 1;
  s.url = s.ice->url("/live.mp3");
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::printf("\nStart on an Icecast 2 mount (ms, min / median / max):\n");
  printSpread("master player: playLink -> Playing", s.oursPlaying);
  printSpread("master player: playLink -> first frame", s.oursFrame);
  printSpread("playbin: PLAYING requested -> PLAYING", s.gstPlaying);
  printSpread("playbin: PLAYING requested -> 1st buffer", s.gstBuffer);
  std::printf("  goal <= 200 ms; load average: %s\n", loadAverage().c_str());
  return 0;
}
