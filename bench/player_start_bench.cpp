// Start latency of the master player on a real Icecast 2 mount (loopback,
// fed at its real rate): from playLink to the state Playing and to the
// first frame written to a paced "null" output, against GStreamer's playbin
// on the same mount in the same run (set to PLAYING: to the pipeline's
// PLAYING state and to the first buffer in a synchronised fakesink), and
// against a plain socket's first audio byte from the same mount, taken
// before or after each of the master's starts, in turn.
//
//   bench_player_start                          (15 starts of each per run, an MP3 mount)
//   BELVANE_BENCH_CODEC=aac bench_player_start  (an ADTS AAC mount; "ogg": Ogg Vorbis)
#include "cpu_run_support.h"
#include "player_start_support.h"
#include "support/gst_media_files.h"
#include "support/temp_dir.h"

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
  ProgrammeMount live;
  std::unique_ptr<belvane::test::IcecastServer> ice;  // a mount of another codec
  std::string url;
  std::vector<double> oursPlaying, oursFrame, gstPlaying, gstBuffer, socketFirstAudio;
};
Setup* setup = nullptr;

void BM_MasterPlayerStart(benchmark::State& state) {
  for (auto _ : state) {
    for (int i = 0; i < kStarts; ++i) {
      auto master = BVMasterPlayer::create();
      // The socket's look alternates before and after the master's start,
      // so neither side always meets the server just after the other.
      auto socketLook = [&] {
        if (double firstByte = serverTimes(setup->url).firstByte; firstByte >= 0)
          setup->socketFirstAudio.push_back(firstByte);
        BVRunLoop::main().runFor(0.2);
      };
      if (i % 2 == 0) socketLook();
      master->setAudioOutput("null");
      double playing = 0, frame = 0;
      // The master answers for whichever engine plays.
      bool started = timeMasterStart(*master, *master, setup->url, 10, playing, frame);
      master.reset();
      if (!started) {
        state.SkipWithError("the player did not start");
        return;
      }
      setup->oursPlaying.push_back(playing);
      setup->oursFrame.push_back(frame);
      BVRunLoop::main().runFor(0.2);
      if (i % 2 == 1) socketLook();
    }
    auto p = spread(setup->oursPlaying);
    state.SetIterationTime(p.median / 1000);
    state.counters["playing_ms_median"] = p.median;
    state.counters["first_frame_ms_median"] = spread(setup->oursFrame).median;
  }
}
BELVANE_BENCH_ONCE(BM_MasterPlayerStart);

void BM_PlaybinStart(benchmark::State& state) {
  for (auto _ : state) {
    for (int i = 0; i < kStarts; ++i) {
      std::atomic<double> bufferAt{0};
      GstElement* playbin = makeTimedPlaybin(setup->url, bufferAt, true);
      if (!playbin) {
        state.SkipWithError("playbin or fakesink missing");
        return;
      }
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
BELVANE_BENCH_ONCE(BM_PlaybinStart);

}  // namespace

int main(int argc, char** argv) {
  Setup s;
  setup = &s;
  gst_init(&argc, &argv);
  const char* codec = std::getenv("BELVANE_BENCH_CODEC");
  if (!codec || std::string(codec) == "mp3") {
    if (!s.live.start("/live.mp3")) return 1;
    s.url = s.live.url;
  } else {
    // 20 s of tone in the codec, fed at its own byte rate, burst filled.
    bool ogg = std::string(codec) == "ogg";
    belvane::test::TempDir dir;
    std::string bytes = belvane::test::readWholeFile(belvane::test::writeMediaFile(
        dir.path() + (ogg ? "/live.ogg" : "/live.aac"), ogg ? belvane::test::MediaKind::OggVorbis : belvane::test::MediaKind::ADTS, 20.0));
    s.ice = std::make_unique<belvane::test::IcecastServer>();
    std::string mount = ogg ? "/live.ogg" : "/live.aac";
    if (bytes.empty() || !s.ice->start() ||
        !s.ice->startSource(mount, bytes, int(bytes.size() / 20), ogg ? "application/ogg" : "audio/aac"))
      return 1;
    std::this_thread::sleep_for(std::chrono::seconds(3));  // let Icecast fill its burst
    s.url = s.ice->url(mount);
  }
  runBenchmarks(argc, argv);
  printSpreads("Start on an Icecast 2 mount (ms, min / median / max):",
               {{"master player: playLink -> Playing", s.oursPlaying},
                {"master player: playLink -> first frame", s.oursFrame},
                {"playbin: PLAYING requested -> PLAYING", s.gstPlaying},
                {"playbin: PLAYING requested -> 1st buffer", s.gstBuffer},
                {"plain socket: connect -> first audio byte", s.socketFirstAudio}});
  std::printf("  goal: Playing ahead of playbin's first buffer, within 20 ms of the socket; load average: %s\n",
              loadAverage().c_str());
  return 0;
}
