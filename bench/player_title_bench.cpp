// Title timing over 100 title changes on a loopback ICY stream (128 kbit/s
// at its real rate after a one-second burst, a title "Song n" in every
// metadata block, served by a child process): how far from the first frame
// of the audio that follows a title's metadata block is the title announced?
//
// - Master player into a paced "null" output: frames the output had written
//   when the owner's attribute callback announced the title.
// - GStreamer playbin (souphttpsrc in iradio mode, icydemux) into a
//   synchronised fakesink: the pipeline's running time when the sink posts
//   the title's tag message.
// Both against the samples of the frames that start before the block.
// Positive: announced late (after that audio was handed over / played).
//
//   bench_player_title
#include "streaming_bench_support.h"

#include <belvane/BVConstants.h>
#include <belvane/BVMP3StreamPlayer.h>
#include <belvane/BVMasterPlayer.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVRunLoop.h>
#include <belvane/BVURL.h>

#include <benchmark/benchmark.h>
#include <gst/gst.h>

#include <cmath>
#include <cstdio>
#include <map>
#include <mutex>

using namespace belvane::bench;

namespace {

constexpr int kTitles = 100;
constexpr uint32_t kMetaint = 8000;  // a title every half second
constexpr double kRate = 44100;

struct Setup {
  std::shared_ptr<const belvane::test::Mp3Data> programme;
  std::unique_ptr<ServerProcess> server;
  std::vector<double> ours, gst;  // milliseconds
};
Setup* setup = nullptr;

// "Song n" is in block n, after n * metaint audio bytes.
double offsetMs(const std::string& title, double frames) {
  if (title.rfind("Song ", 0) != 0) return NAN;
  uint64_t block = std::stoull(title.substr(5));
  return 1000 * (frames - double(samplesBefore(*setup->programme, block * kMetaint))) / kRate;
}

struct TitleOwner : BVPlayerOwner {
  BVMP3StreamPlayer* mp3 = nullptr;
  std::vector<double> offsets;
  bool failed = false;
  void playerStateChanged(BVBasePlayer&, BVPlayerState, BVPlayerState to, const BVErrorRef&) override {
    if (to == BVPlayerStateError || to == BVPlayerStateStopped) failed = true;
  }
  void playerAttributeChanged(BVBasePlayer&, const BVDictionary& attributes) override {
    auto it = attributes.find(BVPlayerAttributeStreamTitleKey);
    if (it == attributes.end()) return;
    double ms = offsetMs(it->second.stringOr(), double(mp3->outputFramesWritten()));
    if (!std::isnan(ms)) offsets.push_back(ms);
  }
};

void BM_MasterPlayerTitleOffset(benchmark::State& state) {
  for (auto _ : state) {
    TitleOwner owner;
    auto master = BVMasterPlayer::create();
    master->setOwner(&owner);
    owner.mp3 = dynamic_cast<BVMP3StreamPlayer*>(master->subPlayer().get());
    owner.mp3->setAudioOutput("null");
    master->playLink(BVMediaLink::linkWithURL(*BVURL::URLWithString(setup->server->url("/titles"))));
    BVRunLoop::main().runUntil([&] { return owner.failed || owner.offsets.size() >= size_t(kTitles); },
                               kTitles * 2.0);
    master.reset();
    if (owner.offsets.size() < size_t(kTitles)) {
      state.SkipWithError("not every title was announced");
      return;
    }
    setup->ours = owner.offsets;
    auto s = spread(owner.offsets);
    state.SetIterationTime(s.max / 1000);
    state.counters["offset_ms_median"] = s.median;
    state.counters["offset_ms_max"] = s.max;
  }
}

struct GstTitles {
  std::mutex mutex;
  std::map<std::string, double> offsets;
};

// On the posting thread: the pipeline's running time when the sink posted
// a title tag message.
GstBusSyncReply onMessage(GstBus*, GstMessage* m, gpointer data) {
  if (GST_MESSAGE_TYPE(m) != GST_MESSAGE_TAG || !GST_IS_ELEMENT(GST_MESSAGE_SRC(m)) ||
      !(GST_OBJECT_FLAGS(GST_MESSAGE_SRC(m)) & GST_ELEMENT_FLAG_SINK))
    return GST_BUS_PASS;
  GstTagList* tags = nullptr;
  gst_message_parse_tag(m, &tags);
  gchar* title = nullptr;
  if (gst_tag_list_get_string(tags, GST_TAG_TITLE, &title)) {
    GstElement* sink = GST_ELEMENT(GST_MESSAGE_SRC(m));
    GstClock* clock = gst_element_get_clock(sink);
    if (clock) {
      GstClockTime running = gst_clock_get_time(clock) - gst_element_get_base_time(sink);
      double ms = offsetMs(title, double(running) / GST_SECOND * kRate);
      auto* t = static_cast<GstTitles*>(data);
      std::lock_guard lock(t->mutex);
      if (!std::isnan(ms) && !t->offsets.count(title)) t->offsets[title] = ms;
      gst_object_unref(clock);
    }
    g_free(title);
  }
  gst_tag_list_unref(tags);
  return GST_BUS_PASS;
}

void BM_PlaybinTitleOffset(benchmark::State& state) {
  for (auto _ : state) {
    GstElement* playbin = gst_element_factory_make("playbin", nullptr);
    GstElement* sink = gst_element_factory_make("fakesink", nullptr);
    if (!playbin || !sink) {
      state.SkipWithError("playbin or fakesink missing");
      return;
    }
    g_object_set(sink, "sync", TRUE, nullptr);
    std::string uri = setup->server->url("/titles");
    g_object_set(playbin, "uri", uri.c_str(), "audio-sink", sink, "flags", 0x2 /* audio */, nullptr);
    GstTitles titles;
    GstBus* bus = gst_element_get_bus(playbin);
    gst_bus_set_sync_handler(bus, onMessage, &titles, nullptr);
    gst_element_set_state(playbin, GST_STATE_PLAYING);
    double t0 = wallSeconds();
    bool failed = false;
    while (!failed && wallSeconds() - t0 < kTitles * 2.0) {
      {
        std::lock_guard lock(titles.mutex);
        if (titles.offsets.size() >= size_t(kTitles)) break;
      }
      if (GstMessage* m = gst_bus_timed_pop_filtered(bus, 50 * GST_MSECOND, GST_MESSAGE_ERROR)) {
        failed = true;
        gst_message_unref(m);
      }
    }
    gst_element_set_state(playbin, GST_STATE_NULL);
    gst_bus_set_sync_handler(bus, nullptr, nullptr, nullptr);
    gst_object_unref(bus);
    gst_object_unref(playbin);
    std::vector<double> offsets;
    for (auto& [title, ms] : titles.offsets) offsets.push_back(ms);
    if (offsets.size() < size_t(kTitles)) {
      state.SkipWithError("playbin did not post every title");
      return;
    }
    setup->gst = offsets;
    auto s = spread(offsets);
    state.SetIterationTime(s.max / 1000);
    state.counters["offset_ms_median"] = s.median;
    state.counters["offset_ms_max"] = s.max;
  }
}

BENCHMARK(BM_MasterPlayerTitleOffset)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PlaybinTitleOffset)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);

void print(const char* what, const std::vector<double>& v) {
  auto s = spread(v);
  double absMax = 0;
  for (double x : v) absMax = std::max(absMax, std::fabs(x));
  std::printf("  %-34s median %7.1f  min %7.1f  max %7.1f  max |offset| %7.1f  (%zu titles)\n", what, s.median,
              s.min, s.max, absMax, s.count);
}

}  // namespace

int main(int argc, char** argv) {
  Setup s;
  setup = &s;
  IcyStreamShape shape;
  shape.metaint = kMetaint;
  shape.titleEvery = 1;
  shape.bytesPerSecond = 16000;
  s.server = startProgrammeStation(30, "/titles", shape, &s.programme);
  if (!s.server) return 1;
  gst_init(&argc, &argv);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::printf("\nTitle announcement minus its audio, ms (positive: late):\n");
  print("master player (frames written)", s.ours);
  print("playbin (sink tag, running time)", s.gst);
  std::printf("  load average: %s\n", loadAverage().c_str());
  return 0;
}
