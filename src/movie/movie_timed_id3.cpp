// Timed ID3 read ahead of tsdemux (see movie_timed_id3.h).
#include "movie/movie_timed_id3.h"

#include <gst/gst.h>
#include <gst/tag/tag.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "movie/movie_audio_tap.h"
#include "movie/transport_stream_scanner.h"
#include "streaming/QLDebug.h"

namespace belvane::detail {
namespace {

// PES packets remembered per stream that tsdemux has not pushed yet; a
// stream nobody listens to (video) keeps only this many.
constexpr size_t kMaxRememberedPackets = 512;
// How far ahead of the next packet a demuxed buffer's packet is looked for.
constexpr size_t kPairingReach = 16;
// Titles waiting for the first audio buffer that maps the clock.
constexpr size_t kMaxWaitingTitles = 64;

int64_t nanosecondsOfPTS(int64_t pts) { return pts * 100'000 / 9; }  // 90 kHz ticks

std::string titleOfID3(const std::vector<uint8_t>& tag) {
  GstBuffer* buffer = gst_buffer_new_memdup(tag.data(), tag.size());
  GstTagList* tags = gst_tag_list_from_id3v2_tag(buffer);
  gst_buffer_unref(buffer);
  if (!tags) return {};
  std::string title = streamTitleFromTags(tags).title;
  gst_tag_list_unref(tags);
  return title;
}

// One tsdemux: what its sink probe read and its audio pads' probes pair.
struct Demuxer {
  MovieAudioTap* tap;
  std::mutex mutex;
  TransportStreamScanner scanner;
  struct Packet {
    std::optional<int64_t> pts;
    size_t size;
  };
  std::map<uint16_t, std::deque<Packet>> packets;  // per elementary PID, in stream order
  std::deque<std::pair<int64_t, std::string>> titles;  // PTS and title, waiting for the mapping
  std::string lastTitle;  // stations repeat the tag in every segment: only a change is queued

  explicit Demuxer(MovieAudioTap* tap) : tap(tap) {}

  void scan(GstBuffer* buffer) {
    GstMapInfo map;
    if (!gst_buffer_map(buffer, &map, GST_MAP_READ)) return;
    std::lock_guard lock(mutex);
    if (GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DISCONT)) scanner.discontinuity();
    scanner.scan(std::span<const uint8_t>(map.data, map.size));
    gst_buffer_unmap(buffer, &map);
    for (TransportPESPacket& packet : scanner.takePackets()) {
      if (!packet.metadata) {
        auto& queue = packets[packet.pid];
        if (queue.size() >= kMaxRememberedPackets) queue.pop_front();
        queue.push_back({packet.pts, packet.payloadSize});
        continue;
      }
      std::string title = titleOfID3(packet.payload);
      if (title.empty() || title == lastTitle) continue;
      QLDebugLog(QL_LOG_DEBUG, "timed ID3: title '%s' at PTS %lld", title.c_str(), (long long)*packet.pts);
      lastTitle = title;
      if (titles.size() >= kMaxWaitingTitles) titles.pop_front();
      titles.emplace_back(*packet.pts, std::move(title));
    }
  }

  void reset() {
    std::lock_guard lock(mutex);
    scanner.reset();
    packets.clear();
    titles.clear();
    lastTitle.clear();
  }

  // tsdemux pushed buffer on the audio pad of stream pid.
  void demuxed(uint16_t pid, GstBuffer* buffer) {
    std::lock_guard lock(mutex);
    auto& queue = packets[pid];
    size_t size = gst_buffer_get_size(buffer);
    if (queue.empty()) return;
    // The next packet of the same size (packets the demuxer dropped are
    // passed over), else (a demuxer that reworked the payload) the next one.
    auto near = queue.begin() + std::ptrdiff_t(std::min(queue.size(), kPairingReach));
    auto match = std::find_if(queue.begin(), near, [size](const Packet& p) { return p.size == size; });
    if (match == near) match = queue.begin();
    std::optional<int64_t> pts = match->pts;
    queue.erase(queue.begin(), match + 1);
    if (!pts || !GST_BUFFER_PTS_IS_VALID(buffer) || titles.empty()) return;
    int64_t offset = int64_t(GST_BUFFER_PTS(buffer)) - nanosecondsOfPTS(*pts);
    for (auto& [titlePTS, title] : titles)
      tap->addTimedTitle(uint64_t(std::max<int64_t>(nanosecondsOfPTS(titlePTS) + offset, 0)), std::move(title));
    titles.clear();
  }
};

// The stream PID of a tsdemux source pad ("audio_<program>_<pid in hex>").
std::optional<uint16_t> streamPID(GstPad* pad) {
  gchar* name = gst_pad_get_name(pad);
  std::optional<uint16_t> pid;
  if (g_str_has_prefix(name, "audio_")) {
    const char* last = std::strrchr(name, '_');
    char* end = nullptr;
    unsigned long value = std::strtoul(last + 1, &end, 16);
    if (end && *end == '\0' && end != last + 1 && value < 0x2000) pid = uint16_t(value);
  }
  g_free(name);
  return pid;
}

using SharedDemuxer = std::shared_ptr<Demuxer>;

void releaseDemuxer(gpointer data) { delete static_cast<SharedDemuxer*>(data); }

gpointer shareDemuxer(const SharedDemuxer& demuxer) { return new SharedDemuxer(demuxer); }

Demuxer& demuxerOf(gpointer data) { return **static_cast<SharedDemuxer*>(data); }

GstPadProbeReturn onSinkData(GstPad*, GstPadProbeInfo* info, gpointer data) {
  Demuxer& demuxer = demuxerOf(data);
  if (info->type & GST_PAD_PROBE_TYPE_BUFFER) {
    demuxer.scan(GST_PAD_PROBE_INFO_BUFFER(info));
  } else if (info->type & GST_PAD_PROBE_TYPE_BUFFER_LIST) {
    GstBufferList* list = GST_PAD_PROBE_INFO_BUFFER_LIST(info);
    for (guint i = 0, n = gst_buffer_list_length(list); i < n; ++i) demuxer.scan(gst_buffer_list_get(list, i));
  } else if (GstEvent* event = GST_PAD_PROBE_INFO_EVENT(info); event && GST_EVENT_TYPE(event) == GST_EVENT_FLUSH_STOP) {
    demuxer.reset();
  }
  return GST_PAD_PROBE_OK;
}

struct AudioPad {
  SharedDemuxer demuxer;
  uint16_t pid;
};

GstPadProbeReturn onAudioData(GstPad*, GstPadProbeInfo* info, gpointer data) {
  auto* pad = static_cast<AudioPad*>(data);
  if (info->type & GST_PAD_PROBE_TYPE_BUFFER) {
    pad->demuxer->demuxed(pad->pid, GST_PAD_PROBE_INFO_BUFFER(info));
  } else if (info->type & GST_PAD_PROBE_TYPE_BUFFER_LIST) {
    GstBufferList* list = GST_PAD_PROBE_INFO_BUFFER_LIST(info);
    for (guint i = 0, n = gst_buffer_list_length(list); i < n; ++i)
      pad->demuxer->demuxed(pad->pid, gst_buffer_list_get(list, i));
  }
  return GST_PAD_PROBE_OK;
}

void onDemuxerPadAdded(GstElement*, GstPad* pad, gpointer data) {
  if (GST_PAD_DIRECTION(pad) != GST_PAD_SRC) return;
  auto pid = streamPID(pad);
  if (!pid) return;
  gst_pad_add_probe(pad, GstPadProbeType(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_BUFFER_LIST), onAudioData,
                    new AudioPad{*static_cast<SharedDemuxer*>(data), *pid},
                    [](gpointer d) { delete static_cast<AudioPad*>(d); });
}

void onElementAdded(GstBin*, GstBin*, GstElement* element, gpointer data) {
  GstElementFactory* factory = gst_element_get_factory(element);
  if (!factory || std::strcmp(GST_OBJECT_NAME(factory), "tsdemux") != 0) return;
  GstPad* sink = gst_element_get_static_pad(element, "sink");
  if (!sink) return;
  auto demuxer = std::make_shared<Demuxer>(static_cast<MovieAudioTap*>(data));
  gst_pad_add_probe(sink,
                    GstPadProbeType(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_BUFFER_LIST |
                                    GST_PAD_PROBE_TYPE_EVENT_FLUSH),
                    onSinkData, shareDemuxer(demuxer), releaseDemuxer);
  gst_object_unref(sink);
  g_signal_connect_data(element, "pad-added", G_CALLBACK(onDemuxerPadAdded), shareDemuxer(demuxer),
                        [](gpointer d, GClosure*) { releaseDemuxer(d); }, GConnectFlags(0));
}

}  // namespace

void readTimedID3(GstElement* pipeline, MovieAudioTap* tap) {
  gst_tag_register_musicbrainz_tags();
  g_signal_connect(pipeline, "deep-element-added", G_CALLBACK(onElementAdded), tap);
}

}  // namespace belvane::detail
