// The kit player: a playbin driven from the creating thread's main context.
#include "kit_player.h"

#include "audio_sink.h"
#include "ram_metafile.h"

#include <gst/gst.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace belvane::detail {

namespace {

constexpr int kMaxRedirects = 8;
// How long a stream may take to load before the kit gives up on it. Some
// damaged files make the demuxer wait for data that never comes. A sound
// local file loads in well under a second, but a busy machine (or one
// running sanitized builds) can take several: the bound leaves it room.
constexpr guint kLocalLoadSeconds = 15;
constexpr guint kNetworkLoadSeconds = 30;
constexpr guint64 kRtspTcpTimeoutMicroseconds = 10 * G_USEC_PER_SEC;
// playbin's GstPlayFlags: audio and software volume only, so video streams
// are neither decoded nor shown.
constexpr guint kPlayFlagAudio = 1u << 1;
constexpr guint kPlayFlagSoftVolume = 1u << 4;

std::string lowerScheme(const std::string& url) {
  gchar* scheme = g_uri_parse_scheme(url.c_str());
  std::string out = scheme ? scheme : "";
  g_free(scheme);
  std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return char(g_ascii_tolower(c)); });
  return out;
}

bool isHTTP(const std::string& scheme) { return scheme == "http" || scheme == "https"; }

// Extensions whose HTTP URLs are streamed without looking for a metafile.
bool isMediaExtension(const std::string& url) {
  std::string path = url.substr(0, url.find_first_of("?#"));
  size_t dot = path.rfind('.');
  if (dot == std::string::npos || path.find('/', dot) != std::string::npos) return false;
  std::string ext = path.substr(dot + 1);
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return char(g_ascii_tolower(c)); });
  for (const char* known : {"rm", "ra", "rmvb", "rv", "mp3", "ogg", "wav"})
    if (ext == known) return true;
  return false;
}

// Network sources give up on a silent server in reasonable time.
void onSourceSetup(GstElement*, GstElement* source, gpointer) {
  if (g_object_class_find_property(G_OBJECT_GET_CLASS(source), "tcp-timeout"))
    g_object_set(source, "tcp-timeout", kRtspTcpTimeoutMicroseconds, nullptr);
}

}  // namespace

std::shared_ptr<KitPlayer> KitPlayer::create(const HXClientObserver* observer) {
  if (!gst_init_check(nullptr, nullptr, nullptr)) return nullptr;
  return std::make_shared<KitPlayer>(observer);
}

KitPlayer::KitPlayer(const HXClientObserver* observer) {
  if (observer) observer_ = *observer;
  context_ = g_main_context_ref_thread_default();
}

KitPlayer::~KitPlayer() {
  release();
  g_main_context_unref(context_);
}

void KitPlayer::release() {
  released_ = true;
  stopWatchdog();
  if (fetch_) fetch_->cancel();
  fetch_.reset();
  if (busWatch_) {
    g_source_destroy(busWatch_);
    g_source_unref(busWatch_);
    busWatch_ = nullptr;
  }
  if (pipeline_) {
    gst_element_set_state(pipeline_, GST_STATE_NULL);
    gst_object_unref(pipeline_);
    pipeline_ = nullptr;
  }
  statistics_.removeAllObservers();
}

// -- Reporting -------------------------------------------------------------

bool KitPlayer::setState(int32_t state) {
  if (state == state_ || released_) return alive();
  int32_t from = state_;
  state_ = state;
  if (observer_.onContentStateChanged) observer_.onContentStateChanged(observer_.context, from, state);
  return alive();
}

bool KitPlayer::reportError(const KitFailure& failure) {
  if (released_) return false;
  if (!observer_.onErrorOccurred) return true;
  std::string id = std::to_string(int32_t(failure.result));
  std::string hex = kitResultHex(failure.result);
  std::string moreInfo = failure.detail + (failure.url.empty() ? "" : " [" + failure.url + "]");
  std::string message = failure.message();
  const char* keys[] = {"HX_RESULT_KEY", "ID", "UC", "MI", "MU"};
  const char* values[] = {hex.c_str(), id.c_str(), "0", moreInfo.c_str(), ""};
  observer_.onErrorOccurred(observer_.context, failure.detail.c_str(), message.c_str(), keys, values, 5);
  return alive();
}

// -- Opening ---------------------------------------------------------------

bool KitPlayer::open(const std::string& urlOrPath, const std::string& mimeType) {
  if (released_ || urlOrPath.empty()) return false;
  std::string url = urlOrPath;
  if (url[0] == '/') {
    gchar* uri = g_filename_to_uri(url.c_str(), nullptr, nullptr);
    if (!uri) return false;
    url = uri;
    g_free(uri);
  }
  std::string scheme = lowerScheme(url);
  if (scheme.empty() || !gst_uri_protocol_is_supported(GST_URI_SRC, scheme.c_str())) return false;

  auto self = shared_from_this();
  if (fetch_) fetch_->cancel();
  fetch_.reset();
  resetPipeline();
  entries_.clear();
  entry_ = 0;
  unseekable_ = false;
  url_ = url;
  mimeType_ = mimeType;
  concluded_ = false;
  lastPositionMs_ = 0;
  if (!statistics_.clear([this] { return alive(); })) return true;
  if (!setState(kKitContentContacting)) return true;

  const bool metafileURL = isRamMetafileURL(url);
  const bool metafileType = isRamMetafileType(mimeType);
  if (scheme == "file" && (metafileURL || metafileType)) {
    gchar* path = g_filename_from_uri(url.c_str(), nullptr, nullptr);
    gchar* text = nullptr;
    gsize size = 0;
    bool read = path && g_file_get_contents(path, &text, &size, nullptr);
    g_free(path);
    if (!read) {
      entryFailed(KitFailure{KitResult::FileNotFound, "the metafile could not be read", url});
      return true;
    }
    bool media = looksLikeRealMedia(text, size);
    std::vector<std::string> entries = media ? std::vector<std::string>{url} : parseRamMetafile(text, url);
    g_free(text);
    if (entries.empty()) {
      entryFailed(KitFailure{KitResult::InvalidFile, "the metafile lists no streams", url});
      return true;
    }
    beginEntries(std::move(entries));
  } else if (isHTTP(scheme) && (metafileURL || metafileType || !isMediaExtension(url))) {
    std::weak_ptr<KitPlayer> weak = self;
    fetch_ = MetafileFetch::start(url, metafileURL, context_, [weak](MetafileFetchResult result) {
      if (auto player = weak.lock()) player->onFetched(std::move(result));
    });
  } else {
    beginEntries({url});
  }
  return true;
}

void KitPlayer::onFetched(MetafileFetchResult result) {
  if (released_) return;
  auto self = shared_from_this();
  fetch_.reset();
  if (result.failure) {
    entryFailed(*result.failure);
  } else if (result.isMetafile) {
    beginEntries(std::move(result.urls));
  } else {
    beginEntries({url_});
  }
}

void KitPlayer::beginEntries(std::vector<std::string> entries) {
  entries_ = std::move(entries);
  startEntry(0);
}

bool KitPlayer::ensurePipeline() {
  if (pipeline_) return true;
  pipeline_ = gst_element_factory_make("playbin", nullptr);
  if (!pipeline_) return false;
  gst_object_ref_sink(pipeline_);
  g_object_set(pipeline_, "audio-sink", makeKitAudioSink(audioOutput_), "video-sink", makeKitVideoSink(), "flags",
               kPlayFlagAudio | kPlayFlagSoftVolume, nullptr);
  g_signal_connect(pipeline_, "source-setup", G_CALLBACK(onSourceSetup), nullptr);

  GstBus* bus = gst_element_get_bus(pipeline_);
  busWatch_ = gst_bus_create_watch(bus);
  gst_object_unref(bus);
  g_source_set_callback(busWatch_, reinterpret_cast<GSourceFunc>(reinterpret_cast<void (*)()>(&KitPlayer::onBusMessage)),
                        this, nullptr);
  g_source_attach(busWatch_, context_);
  return true;
}

void KitPlayer::resetPipeline() {
  stopWatchdog();
  if (pipeline_) gst_element_set_state(pipeline_, GST_STATE_NULL);
  lengthMs_ = 0;
  live_ = false;
  bufferingPercent_ = 100;
  deferredSeek_.reset();
}

void KitPlayer::startEntry(size_t index) {
  if (!ensurePipeline()) {
    entryFailed(KitFailure{KitResult::GeneralFailure, "the GStreamer playbin element is missing", url_});
    return;
  }
  resetPipeline();
  if (index != entry_) {
    redirects_ = 0;
    unseekable_ = false;
  }
  entry_ = index;
  concluded_ = false;
  if (index > 0 && !statistics_.clear([this] { return alive(); })) return;

  const std::string& url = entries_[index];
  g_object_set(pipeline_, "uri", url.c_str(), "volume", volume_ / 100.0, "mute", gboolean(muted_), nullptr);
  startWatchdog();
  GstStateChangeReturn r = gst_element_set_state(pipeline_, wantPlaying_ ? GST_STATE_PLAYING : GST_STATE_PAUSED);
  if (r == GST_STATE_CHANGE_NO_PREROLL) live_ = true;
  // A failure to change state is described by an error message on the bus.
}

void KitPlayer::startWatchdog() {
  stopWatchdog();
  const std::string& url = entries_[entry_];
  bool local = url.rfind("file:", 0) == 0;
  watchdog_ = g_timeout_source_new_seconds(local ? kLocalLoadSeconds : kNetworkLoadSeconds);
  g_source_set_callback(
      watchdog_,
      [](gpointer self) -> gboolean {
        auto* player = static_cast<KitPlayer*>(self);
        auto keep = player->shared_from_this();
        const std::string& url = player->entries_[player->entry_];
        bool local = url.rfind("file:", 0) == 0;
        player->stopWatchdog();
        player->entryFailed(KitFailure{local ? KitResult::InvalidFile : KitResult::Timeout,
                                       "the stream did not load in time", url});
        return G_SOURCE_REMOVE;
      },
      this, nullptr);
  g_source_attach(watchdog_, context_);
}

void KitPlayer::stopWatchdog() {
  if (!watchdog_) return;
  g_source_destroy(watchdog_);
  g_source_unref(watchdog_);
  watchdog_ = nullptr;
}

void KitPlayer::entryFailed(const KitFailure& failure) {
  g_debug("HXClientKit: %s: %s", failure.url.c_str(), failure.detail.c_str());
  if (entry_ + 1 < entries_.size()) {
    startEntry(entry_ + 1);
    return;
  }
  resetPipeline();
  wantPlaying_ = false;
  if (!reportError(failure)) return;
  setState(HXContentStateStopped);
}

void KitPlayer::entryEnded() {
  if (entry_ + 1 < entries_.size()) {
    startEntry(entry_ + 1);
    return;
  }
  uint32_t length = lengthMs_;
  resetPipeline();
  lengthMs_ = length;
  wantPlaying_ = false;
  concluded_ = true;
  lastPositionMs_ = length;
  if (!setState(HXContentStateStopped)) return;
  if (observer_.onContentConcluded) observer_.onContentConcluded(observer_.context);
}

void KitPlayer::followRedirect(const std::string& location) {
  if (++redirects_ > kMaxRedirects) {
    entryFailed(KitFailure{KitResult::ServerError, "too many redirections", entries_[entry_]});
    return;
  }
  gchar* absolute = g_uri_resolve_relative(entries_[entry_].c_str(), location.c_str(), G_URI_FLAGS_NONE, nullptr);
  entries_[entry_] = absolute ? absolute : location;
  g_free(absolute);
  startEntry(entry_);
}

// -- Bus -------------------------------------------------------------------

int KitPlayer::onBusMessage(GstBus*, GstMessage* message, void* self) {
  auto* player = static_cast<KitPlayer*>(self);
  auto keep = player->shared_from_this();  // the observer may release it meanwhile
  if (!player->released_) player->handle(message);
  return G_SOURCE_CONTINUE;
}

void KitPlayer::handle(GstMessage* message) {
  GstObject* src = GST_MESSAGE_SRC(message);
  switch (GST_MESSAGE_TYPE(message)) {
    case GST_MESSAGE_ERROR: {
      GError* error = nullptr;
      gchar* debug = nullptr;
      gst_message_parse_error(message, &error, &debug);
      KitFailure failure = kitFailureFromGstError(error, debug ? debug : "", entries_.empty() ? url_ : entries_[entry_]);
      g_clear_error(&error);
      g_free(debug);
      entryFailed(failure);
      break;
    }
    case GST_MESSAGE_EOS:
      entryEnded();
      break;
    case GST_MESSAGE_STATE_CHANGED: {
      if (src != GST_OBJECT(pipeline_)) break;
      GstState old, now, pending;
      gst_message_parse_state_changed(message, &old, &now, &pending);
      if (now == GST_STATE_PLAYING || (now == GST_STATE_PAUSED && !live_)) stopWatchdog();
      if (now == GST_STATE_PAUSED && pending == GST_STATE_VOID_PENDING) {
        updateLength();
        if (!alive()) return;
        if (deferredSeek_) applySeek(*deferredSeek_);
        setState(pausedByUser_ ? kKitContentPaused : kKitContentBuffering);
      } else if (now == GST_STATE_PLAYING) {
        updateLength();
        if (!alive()) return;
        setState(HXContentStatePlaying);
      }
      break;
    }
    case GST_MESSAGE_ASYNC_DONE:
    case GST_MESSAGE_DURATION_CHANGED:
      updateLength();
      break;
    case GST_MESSAGE_TAG:
      updateTags(message);
      break;
    case GST_MESSAGE_BUFFERING: {
      if (live_) break;
      gst_message_parse_buffering(message, &bufferingPercent_);
      if (!wantPlaying_) break;
      if (bufferingPercent_ < 100) {
        gst_element_set_state(pipeline_, GST_STATE_PAUSED);
        setState(kKitContentBuffering);
      } else {
        gst_element_set_state(pipeline_, GST_STATE_PLAYING);
      }
      break;
    }
    case GST_MESSAGE_CLOCK_LOST:
      if (wantPlaying_) {
        gst_element_set_state(pipeline_, GST_STATE_PAUSED);
        gst_element_set_state(pipeline_, GST_STATE_PLAYING);
      }
      break;
    case GST_MESSAGE_ELEMENT: {
      // pnmsrc (and RTSP servers) send the player elsewhere.
      const GstStructure* s = gst_message_get_structure(message);
      if (s && gst_structure_has_name(s, "redirect")) {
        const gchar* location = gst_structure_get_string(s, "new-location");
        if (location && *location) followRedirect(location);
      }
      break;
    }
    default:
      break;
  }
}

void KitPlayer::updateLength() {
  if (!pipeline_) return;
  gint64 duration = 0;
  if (!gst_element_query_duration(pipeline_, GST_FORMAT_TIME, &duration) || duration <= 0) return;
  auto ms = uint32_t(std::min<gint64>(duration / GST_MSECOND, G_MAXUINT32));
  if (ms == lengthMs_) return;
  lengthMs_ = ms;
  if (observer_.onLengthChanged) observer_.onLengthChanged(observer_.context, ms);
}

void KitPlayer::updateTags(GstMessage* message) {
  GstTagList* tags = nullptr;
  gst_message_parse_tag(message, &tags);
  // The audio codec as GStreamer describes it ("RealAudio G2 (Cook)").
  static const std::pair<const char*, const char*> kStatistics[] = {{GST_TAG_TITLE, "title"},
                                                                     {GST_TAG_ARTIST, "author"},
                                                                     {GST_TAG_COPYRIGHT, "copyright"},
                                                                     {GST_TAG_AUDIO_CODEC, "codec"}};
  for (const auto& [tag, name] : kStatistics) {
    const gchar* value = nullptr;
    if (!gst_tag_list_peek_string_index(tags, tag, 0, &value) || !value) continue;
    if (!statistics_.set(name, value, [this] { return alive(); })) break;
  }
  gst_tag_list_unref(tags);
}

// -- Controls --------------------------------------------------------------

void KitPlayer::play() {
  if (released_ || state_ == HXContentStateNotLoaded) return;
  auto self = shared_from_this();
  pausedByUser_ = false;
  wantPlaying_ = true;
  if (state_ == HXContentStateStopped) {
    // Stopped, ended or failed: start again from the beginning.
    if (entries_.empty()) {
      std::string url = url_, mimeType = mimeType_;
      open(url, mimeType);
      return;
    }
    if (!setState(kKitContentContacting)) return;
    startEntry(0);
    return;
  }
  if (entries_.empty()) return;  // still opening: the first entry starts playing
  if (pipeline_ && (bufferingPercent_ >= 100 || live_)) gst_element_set_state(pipeline_, GST_STATE_PLAYING);
}

void KitPlayer::pause() {
  if (released_ || state_ == HXContentStateNotLoaded || state_ == HXContentStateStopped) return;
  pausedByUser_ = true;
  wantPlaying_ = false;
  if (pipeline_) gst_element_set_state(pipeline_, GST_STATE_PAUSED);
}

void KitPlayer::stop() {
  if (released_ || state_ == HXContentStateNotLoaded) return;
  auto self = shared_from_this();
  if (fetch_) fetch_->cancel();
  fetch_.reset();
  resetPipeline();
  wantPlaying_ = false;
  pausedByUser_ = false;
  concluded_ = false;
  lastPositionMs_ = 0;
  setState(HXContentStateStopped);
}

bool KitPlayer::pipelineReady() const {
  if (!pipeline_) return false;
  GstState current, pending;
  gst_element_get_state(pipeline_, &current, &pending, 0);
  return current >= GST_STATE_PAUSED;
}

bool KitPlayer::startSeeking() {
  if (released_ || isLive() || !pipeline_ || unseekable_) return false;
  seeking_ = true;
  return true;
}

void KitPlayer::stopSeeking() {
  seeking_ = false;
  if (heldSeek_) {
    uint32_t target = *heldSeek_;
    heldSeek_.reset();
    applySeek(target);
  }
}

void KitPlayer::setPosition(uint32_t milliseconds) {
  if (released_) return;
  if (seeking_) {
    heldSeek_ = milliseconds;
  } else {
    applySeek(milliseconds);
  }
}

void KitPlayer::applySeek(uint32_t milliseconds) {
  if (!pipeline_ || concluded_) return;
  if (!pipelineReady()) {
    deferredSeek_ = milliseconds;
    return;
  }
  deferredSeek_.reset();
  auto flags = GstSeekFlags(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE);
  if (gst_element_seek_simple(pipeline_, GST_FORMAT_TIME, flags, gint64(milliseconds) * GST_MSECOND)) {
    lastPositionMs_ = milliseconds;
    return;
  }
  // A demuxer that cannot seek (a RealMedia file without an index) has
  // flushed its stream and stalls: start the entry again, without seeking.
  g_debug("HXClientKit: %s cannot seek", entries_[entry_].c_str());
  unseekable_ = true;
  startEntry(entry_);
}

uint32_t KitPlayer::position() {
  if (concluded_ || !pipeline_) return lastPositionMs_;
  gint64 now = 0;
  if (pipelineReady() && gst_element_query_position(pipeline_, GST_FORMAT_TIME, &now) && now >= 0)
    lastPositionMs_ = uint32_t(std::min<gint64>(now / GST_MSECOND, G_MAXUINT32));
  return lastPositionMs_;
}

void KitPlayer::setVolume(uint16_t volume) {
  volume_ = std::min<uint16_t>(volume, 100);
  if (pipeline_) g_object_set(pipeline_, "volume", volume_ / 100.0, nullptr);
}

void KitPlayer::mute(bool muted) {
  muted_ = muted;
  if (pipeline_) g_object_set(pipeline_, "mute", gboolean(muted), nullptr);
}

// -- Statistics ------------------------------------------------------------

char* KitPlayer::copyStatistic(const std::string& name) const {
  const std::string* value = statistics_.value(name);
  return value ? strdup(value->c_str()) : nullptr;
}

void KitPlayer::addObserver(const HXClientObserver* observer, const std::string& name, void* userInfo) {
  if (!released_) statistics_.addObserver(observer, name, userInfo);
}

void KitPlayer::removeObserver(const HXClientObserver* observer, const std::string& name, void* userInfo) {
  statistics_.removeObserver(observer, name, userInfo);
}

}  // namespace belvane::detail
