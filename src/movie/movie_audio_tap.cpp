// MovieAudioTap: appsink to MovieAudioSink (see movie_audio_tap.h).
#include "movie/movie_audio_tap.h"

#include <gst/app/gstappsink.h>
#include <gst/audio/audio.h>
#include <gst/gst.h>

#include <algorithm>
#include <utility>

#include "foundation/tsan_handoff.h"
#include "movie/movie_audio_sink.h"
#include "movie/movie_ring_title.h"

namespace belvane::detail {
namespace {

// Planar float, one or two channels; audioconvert mixes anything wider down.
constexpr const char* kTapDescription =
    "audioconvert ! audio/x-raw,format=F32LE,layout=non-interleaved,channels=[1,2] ! "
    "appsink name=tap sync=false max-buffers=2 drop=false enable-last-sample=false";

// Timed titles waiting for their audio.
constexpr size_t kMaxTimedTitles = 64;

GstFlowReturn onNewSample(GstAppSink* appsink, gpointer data) {
  static_cast<MovieAudioTap*>(data)->handleSample(GST_ELEMENT(appsink));
  return GST_FLOW_OK;
}

// Serialised events reach the tap's probe in order with the buffers, on the
// streaming thread: a title arrives just before its audio.
GstPadProbeReturn onEvent(GstPad*, GstPadProbeInfo* info, gpointer data) {
  auto* tap = static_cast<MovieAudioTap*>(data);
  GstEvent* event = GST_PAD_PROBE_INFO_EVENT(info);
  switch (GST_EVENT_TYPE(event)) {
    case GST_EVENT_TAG: {
      GstTagList* tags = nullptr;
      gst_event_parse_tag(event, &tags);
      if (tags) tap->handleTags(tags);
      break;
    }
    case GST_EVENT_FLUSH_STOP:
      tap->handleFlush();
      break;
    case GST_EVENT_STREAM_START:
      tap->handleStreamStart();
      break;
    case GST_EVENT_EOS:
      tap->handleEnd();
      break;
    default:
      break;
  }
  return GST_PAD_PROBE_OK;
}

std::string tagString(const GstTagList* tags, const char* tag) {
  gchar* value = nullptr;
  if (!gst_tag_list_get_string(tags, tag, &value) || !value) return {};
  std::string text(value);
  g_free(value);
  return text;
}

}  // namespace

StreamTitle streamTitleFromTags(const GstTagList* tags) {
  std::string title = tagString(tags, GST_TAG_TITLE);
  if (title.empty()) return {};
  std::string artist = tagString(tags, GST_TAG_ARTIST);
  return {artist.empty() ? title : artist + " - " + title, tagString(tags, GST_TAG_HOMEPAGE)};
}

MovieAudioTap::MovieAudioTap(std::shared_ptr<MovieAudioSink> sink) : sink_(std::move(sink)) {}

MovieAudioTap::~MovieAudioTap() {
  if (infoCaps_) gst_caps_unref(infoCaps_);
}

GstElement* MovieAudioTap::makeSinkBin() {
  GError* error = nullptr;
  GstElement* bin = gst_parse_bin_from_description(kTapDescription, TRUE, &error);
  if (!bin) {
    if (error) g_error_free(error);
    return nullptr;
  }
  GstElement* appsink = gst_bin_get_by_name(GST_BIN(bin), "tap");
  GstAppSinkCallbacks callbacks{};
  callbacks.new_sample = onNewSample;
  gst_app_sink_set_callbacks(GST_APP_SINK(appsink), &callbacks, this, nullptr);
  if (GstPad* pad = gst_element_get_static_pad(appsink, "sink")) {
    gst_pad_add_probe(pad, GstPadProbeType(GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM | GST_PAD_PROBE_TYPE_EVENT_FLUSH),
                      onEvent, this, nullptr);
    gst_object_unref(pad);
  }
  gst_object_unref(appsink);
  return bin;
}

void MovieAudioTap::handleSample(GstElement* appsink) {
  // One handler at a time: on the streaming thread, or a flush on the
  // seeking thread while GStreamer's stream lock holds the streaming thread.
  HandoffTurn turn(this);
  GstSample* sample = gst_app_sink_pull_sample(GST_APP_SINK(appsink));
  if (!sample) return;
  GstBuffer* buffer = gst_sample_get_buffer(sample);
  GstCaps* caps = gst_sample_get_caps(sample);
  // The caps change only with the stream's format: their audio info is read
  // again only then, not for every buffer.
  if (caps && caps != infoCaps_) {
    infoValid_ = gst_audio_info_from_caps(&info_, caps);
    gst_caps_replace(&infoCaps_, caps);
  }
  GstAudioBuffer audio;
  if (buffer && caps && infoValid_ && gst_audio_buffer_map(&audio, &info_, buffer, GST_MAP_READ)) {
    float* channels[2] = {static_cast<float*>(audio.planes[0]),
                          audio.n_planes > 1 ? static_cast<float*>(audio.planes[1]) : nullptr};
    if (audio.n_samples > 0) {
      const int rate = GST_AUDIO_INFO_RATE(&info_);
      const int64_t frames = int64_t(audio.n_samples);
      int64_t written = 0;
      // Timed titles split the buffer at their frames; one without a
      // timestamp takes them all before it.
      const uint64_t pts = GST_BUFFER_PTS_IS_VALID(buffer) ? GST_BUFFER_PTS(buffer) : UINT64_MAX;
      while (auto due = takeTimedTitle(pts, rate, frames)) {
        int64_t at = std::max(due->first, written);
        if (at > written) {
          float* part[2] = {channels[0] + written, channels[1] ? channels[1] + written : nullptr};
          sink_->movieAudio(float(rate), part, int32_t(at - written));
          written = at;
        }
        announce(due->second);
      }
      float* rest[2] = {channels[0] + written, channels[1] ? channels[1] + written : nullptr};
      if (written < frames) sink_->movieAudio(float(rate), rest, int32_t(frames - written));
      audioSinceStreamStart_ = true;
      if (heldTitle_) sink_->movieStreamTitle(*std::exchange(heldTitle_, std::nullopt));
    }
    gst_audio_buffer_unmap(&audio);
  }
  gst_sample_unref(sample);
}

void MovieAudioTap::handleTags(const GstTagList* tags) {
  // One handler at a time: on the streaming thread, or a flush on the
  // seeking thread while GStreamer's stream lock holds the streaming thread.
  HandoffTurn turn(this);
  // Decoders pass the stream's tags on again whenever they add their own:
  // only a different title (or address with it) is news.
  StreamTitle title = streamTitleFromTags(tags);
  if (title.title.empty() || title == lastTitle_) return;
  lastTitle_ = title;
  // A title the ring placed comes right before the frame it starts at.
  if (audioSinceStreamStart_ && !isRingTitle(tags))
    heldTitle_ = title;
  else
    sink_->movieStreamTitle(title);
}

void MovieAudioTap::addTimedTitle(uint64_t pts, std::string title) {
  std::lock_guard lock(timedMutex_);
  auto later = std::upper_bound(timed_.begin(), timed_.end(), pts,
                                [](uint64_t value, const TimedTitle& t) { return value < t.pts; });
  timed_.insert(later, TimedTitle{pts, std::move(title)});
  // Past the cap the latest goes: after a clock that jumped back, titles
  // the audio will never reach are the latest.
  if (timed_.size() > kMaxTimedTitles) timed_.pop_back();
}

std::optional<std::pair<int64_t, std::string>> MovieAudioTap::takeTimedTitle(uint64_t pts, int rate, int64_t frames) {
  std::lock_guard lock(timedMutex_);
  if (timed_.empty() || rate <= 0) return std::nullopt;
  const TimedTitle& next = timed_.front();
  int64_t frame = 0;
  if (pts != UINT64_MAX && next.pts > pts) {
    // The first frame at or after the title's time.
    frame = int64_t(gst_util_uint64_scale_int_ceil(next.pts - pts, rate, GST_SECOND));
    if (frame >= frames) return std::nullopt;
  }
  std::pair<int64_t, std::string> due{frame, std::move(timed_.front().title)};
  timed_.pop_front();
  return due;
}

void MovieAudioTap::announce(const std::string& text) {
  StreamTitle title{text, {}};
  if (title.title.empty() || title == lastTitle_) return;
  lastTitle_ = title;
  sink_->movieStreamTitle(title);
}

void MovieAudioTap::handleStreamStart() {
  // One handler at a time: on the streaming thread, or a flush on the
  // seeking thread while GStreamer's stream lock holds the streaming thread.
  HandoffTurn turn(this);
  audioSinceStreamStart_ = false;
  if (heldTitle_) sink_->movieStreamTitle(*std::exchange(heldTitle_, std::nullopt));
  sink_->movieAudioDiscontinuity();
}

void MovieAudioTap::handleFlush() {
  // One handler at a time: on the streaming thread, or a flush on the
  // seeking thread while GStreamer's stream lock holds the streaming thread.
  HandoffTurn turn(this);
  heldTitle_.reset();
  // After a jump the title in force where it lands is news again.
  lastTitle_ = {};
  {
    std::lock_guard lock(timedMutex_);
    timed_.clear();
  }
  sink_->movieAudioFlushed();
}

void MovieAudioTap::handleEnd() { sink_->movieAudioEnded(); }

}  // namespace belvane::detail
