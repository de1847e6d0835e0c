// The general engine's player: time from playLink to Playing for a local AAC
// file and for an AAC station on loopback, next to a bare GStreamer playbin
// brought to PLAYING on the same media the way gst-play-1.0 does it (same
// process, same null audio sink: only what our layers add is compared), and
// the cost of one attribute refresh during playback.
//
//   BELVANE_AUDIO_OUTPUT is set to "null" here; no sound card is needed.
#include <belvane/BVMediaLink.h>
#include <belvane/BVQuickTimePlayer.h>
#include <belvane/BVRunLoop.h>

#include "gst_play_support.h"

#include <benchmark/benchmark.h>
#include <gst/gst.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

std::string tempPath(const char* name) { return std::string(g_get_tmp_dir()) + "/belvane-bench-" + name; }

// Three seconds of a tone, encoded by GStreamer.
std::string makeMedia(const std::string& path, const char* muxing) {
  std::string description = "audiotestsrc num-buffers=130 ! audioconvert ! avenc_aac ! " + std::string(muxing) +
                            " ! filesink location=\"" + path + "\"";
  GstElement* pipeline = gst_parse_launch(description.c_str(), nullptr);
  gst_element_set_state(pipeline, GST_STATE_PLAYING);
  GstBus* bus = gst_element_get_bus(pipeline);
  GstMessage* done = gst_bus_timed_pop_filtered(bus, 30 * GST_SECOND, GstMessageType(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
  if (done) gst_message_unref(done);
  gst_object_unref(bus);
  gst_element_set_state(pipeline, GST_STATE_NULL);
  gst_object_unref(pipeline);
  return path;
}

struct Media {
  std::string m4a, adts;
  Media() {
    setenv("BELVANE_AUDIO_OUTPUT", "null", 1);
    gst_init(nullptr, nullptr);
    m4a = makeMedia(tempPath("tone.m4a"), "mp4mux");
    std::string adtsPath = makeMedia(tempPath("tone.aac"), "aacparse ! audio/mpeg,stream-format=adts");
    std::ifstream in(adtsPath, std::ios::binary);
    adts.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
};
const Media& media() {
  static Media m;
  return m;
}

// An endless AAC station on a loopback port: HTTP/1.0 head, then the ADTS
// bytes round and round, a one-second burst and then real time.
class Station {
 public:
  Station() {
    listener_ = socket(AF_INET, SOCK_STREAM, 0);
    int yes = 1;
    setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address);
    listen(listener_, 16);
    socklen_t length = sizeof address;
    getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { serve(); });
  }
  ~Station() {
    stopping_ = true;
    shutdown(listener_, SHUT_RDWR);
    close(listener_);
    thread_.join();
  }
  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/station.aac"; }

 private:
  void serve() {
    std::vector<std::thread> clients;
    while (!stopping_) {
      int fd = accept(listener_, nullptr, nullptr);
      if (fd < 0) break;
      clients.emplace_back([this, fd] { feed(fd); });
    }
    for (auto& client : clients) client.join();
  }
  void feed(int fd) {
    char request[4096];
    (void)recv(fd, request, sizeof request, 0);
    std::string head = "HTTP/1.0 200 OK\r\nContent-Type: audio/aacp\r\nicy-name: Bench\r\n\r\n";
    const std::string& adts = media().adts;
    size_t tick = adts.size() / 30, offset = 0;
    bool ok = send(fd, head.data(), head.size(), MSG_NOSIGNAL) > 0;
    for (int n = 0; ok && !stopping_; ++n) {
      size_t count = std::min(tick, adts.size() - offset);
      ok = send(fd, adts.data() + offset, count, MSG_NOSIGNAL) > 0;
      offset = (offset + count) % adts.size();
      if (n > 10) std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    close(fd);
  }
  int listener_ = -1;
  int port_ = 0;
  std::atomic<bool> stopping_{false};
  std::thread thread_;
};

class StateWatcher : public BVPlayerOwner {
 public:
  BVPlayerState last = BVPlayerStateIdle;
  void playerStateChanged(BVBasePlayer&, BVPlayerState, BVPlayerState to, const BVErrorRef&) override { last = to; }
};

// playLink to the Playing announcement.
double timeToPlaying(const std::string& url) {
  auto player = BVQuickTimePlayer::create();
  StateWatcher watcher;
  player->setOwner(&watcher);
  auto link = BVMediaLink::linkWithURL(*BVURL::URLWithString(url));
  auto start = Clock::now();
  player->playLink(link);
  BVRunLoop::main().runUntil([&] { return watcher.last >= BVPlayerStatePlaying; }, 20.0);
  double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  if (watcher.last != BVPlayerStatePlaying) seconds = -1;
  player->setOwner(nullptr);
  return seconds;
}

// A playbin on the same sink, handled as gst-play-1.0 does; timed until the
// pipeline reports PLAYING with buffering complete.
double playbinTimeToPlaying(const std::string& uri) {
  auto start = Clock::now();
  GstElement* playbin = gst_element_factory_make("playbin", nullptr);
  GstElement* sink = gst_element_factory_make("fakesink", nullptr);
  g_object_set(sink, "sync", TRUE, nullptr);
  g_object_set(playbin, "uri", uri.c_str(), "audio-sink", sink, "video-sink",
               gst_element_factory_make("fakesink", nullptr), nullptr);
  GstBus* bus = gst_element_get_bus(playbin);
  gst_element_set_state(playbin, GST_STATE_PLAYING);
  belvane::bench::GstPlayLikeBus handler(playbin);
  double seconds = -1;
  while (auto* message = gst_bus_timed_pop(bus, 20 * GST_SECOND)) {
    bool stop = handler.handle(message);
    gst_message_unref(message);
    if (handler.playing()) {
      seconds = std::chrono::duration<double>(Clock::now() - start).count();
      stop = true;
    }
    if (stop) break;
  }
  gst_object_unref(bus);
  gst_element_set_state(playbin, GST_STATE_NULL);
  gst_object_unref(playbin);
  return seconds;
}

std::string fileURL(const std::string& path) { return BVURL::fileURLWithPath(path).absoluteString(); }

void report(benchmark::State& state, double seconds) {
  if (seconds < 0) state.SkipWithError("did not reach playing");
  state.SetIterationTime(seconds < 0 ? 0 : seconds);
}

void BM_PlayLinkToPlaying_LocalAAC(benchmark::State& state) {
  for (auto _ : state) report(state, timeToPlaying(fileURL(media().m4a)));
}
void BM_PlaybinToPlaying_LocalAAC(benchmark::State& state) {
  for (auto _ : state) report(state, playbinTimeToPlaying(fileURL(media().m4a)));
}
void BM_PlayLinkToPlaying_AACStation(benchmark::State& state) {
  Station station;
  for (auto _ : state) report(state, timeToPlaying(station.url()));
}
void BM_PlaybinToPlaying_AACStation(benchmark::State& state) {
  Station station;
  for (auto _ : state) report(state, playbinTimeToPlaying(station.url()));
}

// One refresh of the attributes (both metadata readers, comparison,
// announcements) while the file plays. The idle rule asks for about one a
// second in the first 30 s and one every 5 s after, so the CPU share per
// second of playback is at most this time per second.
void BM_AttributeRefreshDuringPlayback(benchmark::State& state) {
  auto player = BVQuickTimePlayer::create();
  StateWatcher watcher;
  player->setOwner(&watcher);
  player->playLink(BVMediaLink::linkWithURL(BVURL::fileURLWithPath(media().m4a)));
  BVRunLoop::main().runUntil([&] { return watcher.last >= BVPlayerStatePlaying; }, 20.0);
  double cpu = 0;
  for (auto _ : state) {
    timespec a, b;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &a);
    player->_updateAttributesNotifyingChanges(true);
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &b);
    cpu += double(b.tv_sec - a.tv_sec) + double(b.tv_nsec - a.tv_nsec) * 1e-9;
  }
  state.counters["cpu_us_per_refresh"] = cpu / double(state.iterations()) * 1e6;
  // One refresh per second of playback, as a share of one core.
  state.counters["core_percent_at_1_per_s"] = cpu / double(state.iterations()) * 100.0;
  player->setOwner(nullptr);
}

}  // namespace

BENCHMARK(BM_PlayLinkToPlaying_LocalAAC)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20);
BENCHMARK(BM_PlaybinToPlaying_LocalAAC)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20);
BENCHMARK(BM_PlayLinkToPlaying_AACStation)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(10);
BENCHMARK(BM_PlaybinToPlaying_AACStation)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(10);
BENCHMARK(BM_AttributeRefreshDuringPlayback)->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
