// The GStreamer pipeline behind a movie (see movie_pipeline.h).
#include "movie/movie_pipeline.h"

#include <gst/gst.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "movie/movie_audio_tap.h"
#include "movie/movie_decoded_format.h"
#include "movie/movie_stream_source.h"
#include "movie/movie_timed_id3.h"
#include "playlists/playlist_format.h"

namespace belvane::detail {
namespace {

constexpr const char* kLiveReadyMessage = "belvane-live-ready";
// Seconds a network source may go without data before its read fails (a live
// stream is then opened again by the movie).
constexpr unsigned kNetworkReadTimeoutSeconds = 8;
// The network queue's size, and so how much must have arrived before a
// stream counts as buffered: 2 s at 128 kbit/s. Left to itself, uridecodebin
// sizes the queue from the bitrate the parser reports, which it only does
// after some frames have passed the sink; a sink that holds the first frame
// while prerolling keeps it from ever learning it, and the queue then fills
// only at the stream's real rate, however large the server's burst. The
// buffering level also counts time by the rate data arrives at, so a station
// without a burst is buffered within about 2 s all the same.
constexpr int kNetworkQueueBytes = 32 * 1024;

GstElement* makeSilentSink() {
  GstElement* sink = gst_element_factory_make("fakesink", nullptr);
  if (sink) g_object_set(sink, "sync", TRUE, nullptr);
  return sink;
}

// The kind of stream a decoded pad carries, by its caps' media type.
std::string streamKind(GstPad* pad) {
  GstCaps* caps = gst_pad_get_current_caps(pad);
  if (!caps) caps = gst_pad_query_caps(pad, nullptr);
  std::string kind = "text";
  if (caps && !gst_caps_is_empty(caps)) {
    const char* name = gst_structure_get_name(gst_caps_get_structure(caps, 0));
    if (g_str_has_prefix(name, "audio/"))
      kind = "audio";
    else if (g_str_has_prefix(name, "video/") || g_str_has_prefix(name, "image/"))
      kind = "video";
  }
  if (caps) gst_caps_unref(caps);
  return kind;
}

bool isRawAudio(GstPad* pad) {
  GstCaps* caps = gst_pad_get_current_caps(pad);
  if (!caps) caps = gst_pad_query_caps(pad, nullptr);
  bool raw = caps && !gst_caps_is_empty(caps) &&
             gst_structure_has_name(gst_caps_get_structure(caps, 0), "audio/x-raw");
  if (caps) gst_caps_unref(caps);
  return raw;
}

// Video, image and subtitle streams are exposed before their parser or
// decoder would be plugged: nobody sees them, so they are dropped undecoded.
// Containers (demuxers) are still plugged, whatever their media type says.
int selectFactory(GstElement*, GstPad*, GstCaps*, GstElementFactory* factory, gpointer) {
  constexpr int kTry = 0, kExpose = 1;  // GstAutoplugSelectResult
  const char* klass = gst_element_factory_get_metadata(factory, GST_ELEMENT_METADATA_KLASS);
  if (!klass || std::strstr(klass, "Demux")) return kTry;
  bool unseen = std::strstr(klass, "Video") || std::strstr(klass, "Image") || std::strstr(klass, "Subtitle");
  return unseen ? kExpose : kTry;
}

struct HTTPFacts {
  std::mutex* mutex;
  std::optional<std::string>* contentType;
  bool* declaredLength;
};

// Picks the Content-Type and whether a Content-Length came out of
// A player's request settings on one of GStreamer's HTTP sources
// (souphttpsrc: the pipeline's own, and those HLS's demuxer makes for its
// segments): its user agent, extra header fields and proxy, each where the
// source has the property. Without a proxy of the player's own, souphttpsrc
// takes http_proxy from the environment itself.
void configureHTTPSource(GstElement* source, const BVRequestSettings& settings) {
  GObjectClass* type = G_OBJECT_GET_CLASS(source);
  auto has = [type](const char* name) { return g_object_class_find_property(type, name) != nullptr; };
  if (has("user-agent")) g_object_set(source, "user-agent", settings.userAgent().c_str(), nullptr);
  if (has("extra-headers") && !settings.headerFields().empty()) {
    GstStructure* headers = gst_structure_new_empty("extra-headers");
    for (const auto& [name, value] : settings.headerFields())
      gst_structure_set(headers, name.c_str(), G_TYPE_STRING, value.c_str(), nullptr);
    g_object_set(source, "extra-headers", headers, nullptr);
    gst_structure_free(headers);
  }
  if (!has("proxy")) return;
  switch (settings.proxy()) {
    case BVRequestSettings::Proxy::Environment: break;
    case BVRequestSettings::Proxy::None: g_object_set(source, "proxy", nullptr, nullptr); break;
    case BVRequestSettings::Proxy::URL: g_object_set(source, "proxy", settings.proxyURL().c_str(), nullptr); break;
  }
}

bool isSoupHTTPSource(GstElement* element) { return g_str_has_prefix(G_OBJECT_TYPE_NAME(element), "GstSoupHTTPSrc"); }

// souphttpsrc's "http-headers" event.
GstPadProbeReturn watchHTTPHeaders(GstPad*, GstPadProbeInfo* info, gpointer data) {
  GstEvent* event = GST_PAD_PROBE_INFO_EVENT(info);
  if (!event || GST_EVENT_TYPE(event) != GST_EVENT_CUSTOM_DOWNSTREAM_STICKY) return GST_PAD_PROBE_OK;
  const GstStructure* s = gst_event_get_structure(event);
  if (!s || !gst_structure_has_name(s, "http-headers")) return GST_PAD_PROBE_OK;
  const GstStructure* response = nullptr;
  const GValue* value = gst_structure_get_value(s, "response-headers");
  if (value && GST_VALUE_HOLDS_STRUCTURE(value)) response = gst_value_get_structure(value);
  if (!response) return GST_PAD_PROBE_OK;
  auto* store = static_cast<HTTPFacts*>(data);
  for (int i = 0, n = gst_structure_n_fields(response); i < n; ++i) {
    const char* name = gst_structure_nth_field_name(response, i);
    const GValue* field = gst_structure_get_value(response, name);
    std::lock_guard lock(*store->mutex);
    if (g_ascii_strcasecmp(name, "Content-Length") == 0) *store->declaredLength = true;
    if (g_ascii_strcasecmp(name, "Content-Type") == 0 && field && G_VALUE_HOLDS_STRING(field))
      *store->contentType = g_value_get_string(field);
  }
  return GST_PAD_PROBE_OK;
}

}  // namespace

// The bus watch's callback has the GstBusFunc signature.
gboolean MoviePipeline::busWatchCallback(GstBus*, GstMessage* message, gpointer data) {
  auto* self = static_cast<MoviePipeline*>(data);
  std::weak_ptr<MoviePipeline> alive = self->weak_from_this();
  self->handle(message);
  // The listener may have destroyed the pipeline; its watch is gone then.
  return alive.expired() ? G_SOURCE_REMOVE : G_SOURCE_CONTINUE;
}

MoviePipeline::MoviePipeline(GMainContext* context, MoviePipelineListener* listener)
    : context_(g_main_context_ref(context)), listener_(listener) {}

std::shared_ptr<MoviePipeline> MoviePipeline::create(const std::string& uri, GMainContext* context,
                                                     MoviePipelineListener* listener,
                                                     std::shared_ptr<MovieAudioSink> audio,
                                                     const MovieReading& reading, bool ownConnection) {
  std::shared_ptr<MoviePipeline> pipeline(new MoviePipeline(context, listener));
  pipeline->requestSettings_ = reading.requestSettings;
  bool built = false;
  if (audio) {
    pipeline->tap_ = std::make_unique<MovieAudioTap>(audio);
    if (GstElement* tapBin = pipeline->tap_->makeSinkBin())
      built = ownConnection && MovieStreamSource::handles(uri)
                  ? pipeline->buildStreamDecoding(uri, tapBin, reading, audio)
                  : pipeline->buildDecoding(uri, tapBin);
  }
  if (!built && !pipeline->buildPlaybin(uri)) return nullptr;
  // Titles in an MPEG-TS stream's timed ID3 (HLS), which tsdemux drops.
  if (built) readTimedID3(pipeline->pipeline_, pipeline->tap_.get());

  GstBus* bus = gst_element_get_bus(pipeline->pipeline_);
  pipeline->busWatch_ = gst_bus_create_watch(bus);
  gst_object_unref(bus);
  g_source_set_callback(pipeline->busWatch_, G_SOURCE_FUNC(busWatchCallback), pipeline.get(), nullptr);
  g_source_attach(pipeline->busWatch_, context);

  GstElement* top = pipeline->pipeline_;
  GstStateChangeReturn result = gst_element_set_state(top, GST_STATE_PAUSED);
  if (result == GST_STATE_CHANGE_NO_PREROLL) {
    // A live source never prerolls: it counts as loaded once the bus says so.
    pipeline->live_ = true;
    gst_element_post_message(top, gst_message_new_application(GST_OBJECT(top),
                                                              gst_structure_new_empty(kLiveReadyMessage)));
  }
  // A failure here also posts an error on the bus, which reports it.
  if (pipeline->stream_) pipeline->stream_->start();
  return pipeline;
}

// A playbin rendering the audio silently in real time.
bool MoviePipeline::buildPlaybin(const std::string& uri) {
  GstElement* playbin = gst_element_factory_make("playbin", nullptr);
  if (!playbin) return false;
  pipeline_ = GST_ELEMENT(gst_object_ref_sink(playbin));
  g_object_set(playbin, "uri", uri.c_str(), "audio-sink", makeSilentSink(), "video-sink", makeSilentSink(),
               "text-sink", makeSilentSink(), nullptr);
  g_signal_connect(playbin, "source-setup", G_CALLBACK(onSourceSetup), this);
  g_signal_connect(playbin, "deep-element-added", G_CALLBACK(onDeepElementAdded), this);
  return true;
}

// uridecodebin (the source, network buffering and decoding half of playbin)
// linked straight to the tap's bin. Takes the floating tap bin.
bool MoviePipeline::buildDecoding(const std::string& uri, GstElement* tapBin) {
  GstElement* decoder = gst_element_factory_make("uridecodebin", nullptr);
  if (!decoder) {
    gst_object_unref(gst_object_ref_sink(tapBin));
    return false;
  }
  pipeline_ = GST_ELEMENT(gst_object_ref_sink(gst_pipeline_new(nullptr)));
  gst_bin_add_many(GST_BIN(pipeline_), decoder, tapBin, nullptr);
  decoder_ = decoder;
  tapBin_ = tapBin;
  // Buffering as playbin asks for it: queue2 after a network source posts
  // the buffering messages the movie pauses and resumes on.
  g_object_set(decoder, "uri", uri.c_str(), "use-buffering", TRUE, "buffer-size", kNetworkQueueBytes, nullptr);
  g_signal_connect(decoder, "source-setup", G_CALLBACK(onSourceSetup), this);
  g_signal_connect(pipeline_, "deep-element-added", G_CALLBACK(onDeepElementAdded), this);
  connectDecoderSignals();
  return true;
}

// Belvane's connection into decodebin (type finding, demuxing, decoding),
// linked to the tap's bin as uridecodebin is. No network queue: the reader
// and the appsrc's queue buffer the stream. Takes the floating tap bin.
bool MoviePipeline::buildStreamDecoding(const std::string& uri, GstElement* tapBin, const MovieReading& reading,
                                        std::shared_ptr<MovieAudioSink> audio) {
  auto stream = MovieStreamSource::create(uri, reading, std::move(audio));
  GstElement* decoder = stream ? gst_element_factory_make("decodebin", nullptr) : nullptr;
  if (!decoder) {
    gst_object_unref(gst_object_ref_sink(tapBin));
    return false;
  }
  pipeline_ = GST_ELEMENT(gst_object_ref_sink(gst_pipeline_new(nullptr)));
  gst_bin_add_many(GST_BIN(pipeline_), GST_ELEMENT(gst_object_ref(stream->element())), decoder, tapBin, nullptr);
  gst_element_link(stream->element(), decoder);
  decoder_ = decoder;
  tapBin_ = tapBin;
  source_ = GST_ELEMENT(gst_object_ref(stream->element()));
  stream_ = std::move(stream);
  connectDecoderSignals();
  return true;
}

void MoviePipeline::connectDecoderSignals() {
  g_signal_connect(decoder_, "autoplug-select", G_CALLBACK(selectFactory), nullptr);
  g_signal_connect(decoder_, "pad-added", G_CALLBACK(onPadAdded), this);
  g_signal_connect(decoder_, "pad-removed", G_CALLBACK(onPadRemoved), this);
  g_signal_connect(decoder_, "no-more-pads", G_CALLBACK(onNoMorePads), this);
}

// On a streaming thread: the first raw audio stream goes to the tap (again
// after a chained stream's switch, when the last one's pad has gone); every
// other stream to a fakesink of its own.
void MoviePipeline::onPadAdded(GstElement*, GstPad* pad, void* data) {
  auto* self = static_cast<MoviePipeline*>(data);
  std::string kind = streamKind(pad);
  bool linked = false;
  {
    std::lock_guard lock(self->mutex_);
    self->streams_.push_back({kind, GST_PAD(gst_object_ref(pad))});
    if (self->tapBin_ && kind == "audio" && isRawAudio(pad)) {
      GstPad* tapPad = gst_element_get_static_pad(self->tapBin_, "sink");
      linked = tapPad && !gst_pad_is_linked(tapPad) && GST_PAD_LINK_SUCCESSFUL(gst_pad_link(pad, tapPad));
      if (tapPad) gst_object_unref(tapPad);
    }
  }
  if (linked) return;
  GstElement* sink = gst_element_factory_make("fakesink", nullptr);
  if (!sink) return;
  g_object_set(sink, "sync", FALSE, "async", FALSE, nullptr);
  gst_bin_add(GST_BIN(self->pipeline_), sink);
  GstPad* sinkPad = gst_element_get_static_pad(sink, "sink");
  gst_pad_link(pad, sinkPad);
  gst_object_unref(sinkPad);
  gst_element_sync_state_with_parent(sink);
}

void MoviePipeline::onPadRemoved(GstElement*, GstPad* pad, void* data) {
  auto* self = static_cast<MoviePipeline*>(data);
  std::lock_guard lock(self->mutex_);
  auto& streams = self->streams_;
  auto found = std::find_if(streams.begin(), streams.end(), [pad](const auto& s) { return s.pad == pad; });
  if (found == streams.end()) return;
  gst_object_unref(found->pad);
  streams.erase(found);
}

// A movie without audio: the tap would wait for its first buffer for ever
// and hold the preroll, so it leaves the pipeline.
void MoviePipeline::onNoMorePads(GstElement*, void* data) {
  auto* self = static_cast<MoviePipeline*>(data);
  GstElement* tapBin = nullptr;
  {
    std::lock_guard lock(self->mutex_);
    if (!self->tapBin_) return;
    GstPad* tapPad = gst_element_get_static_pad(self->tapBin_, "sink");
    bool linked = tapPad && gst_pad_is_linked(tapPad);
    if (tapPad) gst_object_unref(tapPad);
    if (linked) return;
    tapBin = std::exchange(self->tapBin_, nullptr);
  }
  gst_element_set_locked_state(tapBin, TRUE);
  gst_element_set_state(tapBin, GST_STATE_NULL);
  gst_bin_remove(GST_BIN(self->pipeline_), tapBin);
}

MoviePipeline::~MoviePipeline() {
  if (busWatch_) {
    g_source_destroy(busWatch_);
    g_source_unref(busWatch_);
  }
  // The reader stops first; the pipeline's stop then releases a push that
  // waits on the appsrc's full queue, and the reading thread ends.
  if (stream_) stream_->cancel();
  if (pipeline_) {
    gst_element_set_state(pipeline_, GST_STATE_NULL);
    g_signal_handlers_disconnect_by_data(pipeline_, this);
    if (decoder_) g_signal_handlers_disconnect_by_data(decoder_, this);
    gst_object_unref(pipeline_);
  }
  {
    std::lock_guard lock(mutex_);
    if (source_) gst_object_unref(source_);
    source_ = nullptr;
    for (auto& stream : streams_) gst_object_unref(stream.pad);
    streams_.clear();
  }
  stream_.reset();
  if (tags_) gst_tag_list_unref(tags_);
  g_main_context_unref(context_);
}

// On a streaming thread: HLS's demuxer reads its segments with HTTP sources
// of its own, inside a bin it adds to itself; they make the playback's
// requests too.
void MoviePipeline::onDeepElementAdded(GstBin*, GstBin*, GstElement* element, void* data) {
  auto* self = static_cast<MoviePipeline*>(data);
  if (!self->requestSettings_) return;
  if (!GST_IS_BIN(element)) {
    if (isSoupHTTPSource(element)) configureHTTPSource(element, *self->requestSettings_);
    return;
  }
  GstIterator* children = gst_bin_iterate_recurse(GST_BIN(element));
  GValue item = G_VALUE_INIT;
  while (gst_iterator_next(children, &item) == GST_ITERATOR_OK) {
    auto* child = GST_ELEMENT(g_value_get_object(&item));
    if (isSoupHTTPSource(child)) configureHTTPSource(child, *self->requestSettings_);
    g_value_reset(&item);
  }
  g_value_unset(&item);
  gst_iterator_free(children);
}

void MoviePipeline::onSourceSetup(GstElement*, GstElement* source, void* data) {
  // Called on a streaming thread while the pipeline starts.
  auto* self = static_cast<MoviePipeline*>(data);
  // souphttpsrc's read time-out, in seconds (other sources' "timeout" means
  // other things and is left alone).
  GParamSpec* timeout = g_object_class_find_property(G_OBJECT_GET_CLASS(source), "timeout");
  if (timeout && timeout->value_type == G_TYPE_UINT && isSoupHTTPSource(source))
    g_object_set(source, "timeout", kNetworkReadTimeoutSeconds, nullptr);
  if (self->requestSettings_) configureHTTPSource(source, *self->requestSettings_);
  {
    std::lock_guard lock(self->mutex_);
    if (self->source_) gst_object_unref(self->source_);
    self->source_ = GST_ELEMENT(gst_object_ref(source));
  }
  if (GstPad* pad = gst_element_get_static_pad(source, "src")) {
    auto* store = new HTTPFacts{&self->mutex_, &self->contentType_, &self->declaredLength_};
    gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM, watchHTTPHeaders, store,
                      [](gpointer d) { delete static_cast<HTTPFacts*>(d); });
    gst_object_unref(pad);
  }
}

void MoviePipeline::handle(GstMessage* message) {
  switch (GST_MESSAGE_TYPE(message)) {
    case GST_MESSAGE_ERROR:
      handleError(message);
      return;
    case GST_MESSAGE_EOS:
      if (!failed_) listener_->pipelineEnded();
      return;
    case GST_MESSAGE_BUFFERING: {
      if (failed_ || live_) return;
      int percent = 0;
      gst_message_parse_buffering(message, &percent);
      listener_->pipelineBuffering(percent);
      return;
    }
    case GST_MESSAGE_ASYNC_DONE:
      if (GST_MESSAGE_SRC(message) != GST_OBJECT(pipeline_) || failed_) return;
      if (!prerolled_) {
        prerolled_ = true;
        seeking_ = false;
        listener_->pipelinePrerolled();
      } else if (seeking_) {
        seeking_ = false;
        listener_->pipelineSeekDone();
      }
      return;
    case GST_MESSAGE_STATE_CHANGED: {
      if (GST_MESSAGE_SRC(message) != GST_OBJECT(pipeline_) || failed_) return;
      GstState oldState, newState;
      gst_message_parse_state_changed(message, &oldState, &newState, nullptr);
      // A flushing seek takes a playing pipeline through PAUSED and back:
      // that is no change of rate.
      if (seeking_) return;
      bool playing = newState == GST_STATE_PLAYING;
      // A pipeline that loses its state (a sink flushed when the HTTP source
      // reopens a dropped connection by itself) passes through PAUSED while
      // it still aims at PLAYING: that is no change of rate either.
      if (!playing && GST_STATE_TARGET(pipeline_) == GST_STATE_PLAYING) return;
      if (playing != playing_) {
        playing_ = playing;
        listener_->pipelinePlayingChanged(playing);
      }
      return;
    }
    case GST_MESSAGE_TAG: {
      GstTagList* incoming = nullptr;
      gst_message_parse_tag(message, &incoming);
      if (!incoming) return;
      GstTagList* merged = gst_tag_list_merge(tags_, incoming, GST_TAG_MERGE_REPLACE);
      gst_tag_list_unref(incoming);
      bool changed = !tags_ || !merged || !gst_tag_list_is_equal(tags_, merged);
      if (tags_) gst_tag_list_unref(tags_);
      tags_ = merged;
      if (changed) listener_->pipelineTagsChanged();
      return;
    }
    case GST_MESSAGE_APPLICATION:
      if (gst_message_has_name(message, kLiveReadyMessage) && !prerolled_ && !failed_) {
        prerolled_ = true;
        listener_->pipelinePrerolled();
      }
      return;
    case GST_MESSAGE_DURATION_CHANGED:
      listener_->pipelineDurationChanged();
      return;
    case GST_MESSAGE_CLOCK_LOST:
      // The usual recovery: a new clock is chosen on the way back to PLAYING.
      if (playing_) {
        gst_element_set_state(pipeline_, GST_STATE_PAUSED);
        gst_element_set_state(pipeline_, GST_STATE_PLAYING);
      }
      return;
    default:
      return;
  }
}

void MoviePipeline::handleError(GstMessage* message) {
  if (failed_) return;
  failed_ = true;
  GError* error = nullptr;
  gst_message_parse_error(message, &error, nullptr);
  MoviePipelineError facts;
  facts.error = error;
  const GstStructure* details = nullptr;
  gst_message_parse_error_details(message, &details);
  guint status = 0;
  if (details && gst_structure_get_uint(details, "http-status-code", &status)) facts.httpStatus = status;
  {
    std::lock_guard lock(mutex_);
    GstObject* origin = GST_MESSAGE_SRC(message);
    facts.fromSource = source_ && origin &&
                       (origin == GST_OBJECT(source_) || gst_object_has_as_ancestor(origin, GST_OBJECT(source_)));
  }
  std::weak_ptr<MoviePipeline> alive = weak_from_this();
  listener_->pipelineFailed(facts);
  g_error_free(error);
  if (!alive.expired()) gst_element_set_state(pipeline_, GST_STATE_NULL);
}

void MoviePipeline::setPlaying(bool playing) {
  if (failed_) return;
  gst_element_set_state(pipeline_, playing ? GST_STATE_PLAYING : GST_STATE_PAUSED);
}

std::optional<int64_t> MoviePipeline::position() const {
  gint64 value = 0;
  if (!gst_element_query_position(pipeline_, GST_FORMAT_TIME, &value) || value < 0) return std::nullopt;
  return value;
}

std::optional<int64_t> MoviePipeline::duration() const {
  gint64 value = 0;
  if (!gst_element_query_duration(pipeline_, GST_FORMAT_TIME, &value) || value <= 0) return std::nullopt;
  return value;
}

bool MoviePipeline::isSeekable() const {
  if (live_) return false;
  GstQuery* query = gst_query_new_seeking(GST_FORMAT_TIME);
  gboolean seekable = FALSE;
  if (gst_element_query(pipeline_, query)) gst_query_parse_seeking(query, nullptr, &seekable, nullptr, nullptr);
  gst_query_unref(query);
  return seekable;
}

bool MoviePipeline::seek(int64_t nanoseconds, bool accurate) {
  if (failed_ || !prerolled_) return false;
  auto flags = GstSeekFlags(GST_SEEK_FLAG_FLUSH | (accurate ? GST_SEEK_FLAG_ACCURATE : GST_SEEK_FLAG_KEY_UNIT));
  if (!gst_element_seek_simple(pipeline_, GST_FORMAT_TIME, flags, nanoseconds)) return false;
  seeking_ = true;
  return true;
}

void MoviePipeline::setVolume(double volume) {
  if (!decoder_) g_object_set(pipeline_, "volume", volume, nullptr);
}

void MoviePipeline::setMuted(bool muted) {
  if (!decoder_) g_object_set(pipeline_, "mute", gboolean(muted), nullptr);
}

GstTagList* MoviePipeline::copyTags() const { return tags_ ? gst_tag_list_ref(tags_) : nullptr; }

namespace {
// Every tag event stuck to a pad (global and stream scope), merged.
GstTagList* stickyTags(GstPad* pad) {
  GstTagList* merged = nullptr;
  gst_pad_sticky_events_foreach(
      pad,
      [](GstPad*, GstEvent** event, gpointer data) -> gboolean {
        if (GST_EVENT_TYPE(*event) != GST_EVENT_TAG) return TRUE;
        GstTagList* tags = nullptr;
        gst_event_parse_tag(*event, &tags);
        auto** into = static_cast<GstTagList**>(data);
        GstTagList* next = gst_tag_list_merge(*into, tags, GST_TAG_MERGE_APPEND);
        if (*into) gst_tag_list_unref(*into);
        *into = next;
        return TRUE;
      },
      &merged);
  return merged;
}
}  // namespace

int MoviePipeline::streamCount(const char* kind) const {
  if (decoder_) {
    std::lock_guard lock(mutex_);
    return int(std::count_if(streams_.begin(), streams_.end(), [kind](const auto& s) { return s.kind == kind; }));
  }
  gint count = 0;
  std::string property = std::string("n-") + kind;
  g_object_get(pipeline_, property.c_str(), &count, nullptr);
  return count;
}

GstTagList* MoviePipeline::copyStreamTags(const char* kind, int index) const {
  if (decoder_) {
    std::lock_guard lock(mutex_);
    for (const auto& stream : streams_)
      if (stream.kind == kind && index-- == 0) return stickyTags(stream.pad);
    return nullptr;
  }
  GstTagList* tags = nullptr;
  std::string signal = std::string("get-") + kind + "-tags";
  g_signal_emit_by_name(pipeline_, signal.c_str(), index, &tags);
  return tags;
}

std::optional<std::string> MoviePipeline::httpContentType() const {
  if (stream_) return stream_->contentType();
  std::lock_guard lock(mutex_);
  return contentType_;
}

bool MoviePipeline::httpDeclaredLength() const {
  if (stream_) return stream_->declaredLength();
  std::lock_guard lock(mutex_);
  // An HLS playlist's length is the playlist's: the stream it lists may be live.
  if (contentType_ && isHLSMIMEType(*contentType_)) return false;
  return declaredLength_;
}

bool MoviePipeline::tookHeldReply() const { return stream_ && stream_->tookHeldReply(); }

StreamReaderProgress MoviePipeline::connectionProgress() const {
  return stream_ ? stream_->connectionProgress() : StreamReaderProgress{};
}
BVDictionary MoviePipeline::stationFacts() const { return stream_ ? stream_->stationFacts() : BVDictionary{}; }

BVDictionary MoviePipeline::decodedFormat() const { return decodedFormatOf(pipeline_, tags_); }

}  // namespace belvane::detail
