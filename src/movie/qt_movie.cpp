// QTMovie over a GStreamer playbin (see QTMovie.h).
#include <belvane/BVKitOwner.h>
#include <belvane/BVRunLoop.h>
#include <gst/gst.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <fstream>
#include <vector>

#include "foundation/text_encoding.h"
#include "movie/gst_media_types.h"
#include "movie/QTMovie.h"
#include "movie/movie_pipeline.h"
#include "movie/movie_station_list.h"
#include "movie/movie_status.h"
#include "movie/reference_movie.h"
#include "playlists/playlist_format.h"
#include "streaming/stream_reader.h"

namespace belvane::detail {

bool QTTimeIsIndefinite(QTTime time) { return (time.flags & kQTTimeIsIndefinite) != 0; }

bool QTGetTimeInterval(QTTime time, double* seconds) {
  if (QTTimeIsIndefinite(time) || time.timeScale == 0) return false;
  if (seconds) *seconds = double(time.timeValue) / double(time.timeScale);
  return true;
}

// The controller only runs the idle action; it belongs to its movie.
class QTMovieController {
 public:
  MCActionFilterWithRefConProcPtr filter = nullptr;
  intptr_t refCon = 0;
};

void MCSetActionFilterWithRefCon(QTMovieController* mc, MCActionFilterWithRefConProcPtr filter, intptr_t refCon) {
  if (!mc) return;
  mc->filter = filter;
  mc->refCon = filter ? refCon : 0;
}

namespace {

constexpr unsigned kIdleIntervalMilliseconds = 250;
// How long a pipeline may take to load before it counts as failed.
constexpr unsigned kLocalLoadTimeoutMilliseconds = 10'000;
constexpr unsigned kNetworkLoadTimeoutMilliseconds = 30'000;
constexpr int kMaximumReferenceDepth = 8;
// Reconnection of a live stream GStreamer reads (HLS) that broke: the pace
// of Belvane's own connection (first pause, doubled up to the longest), for
// the movie's patience after the break.
constexpr double kReconnectFirstDelaySeconds = kStreamReconnectFirstDelay;
constexpr double kReconnectMaxDelaySeconds = kStreamReconnectMaxDelay;

constexpr size_t kReferenceSniffLength = 64 * 1024;

bool isHTTP(const BVURL& url) {
  std::string scheme = asciiLower(url.scheme());
  return scheme == "http" || scheme == "https";
}

std::vector<uint8_t> readHead(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::vector<uint8_t> bytes(kReferenceSniffLength);
  in.read(reinterpret_cast<char*>(bytes.data()), std::streamsize(bytes.size()));
  bytes.resize(size_t(std::max<std::streamsize>(in.gcount(), 0)));
  return bytes;
}

// The URL to give the pipeline: reference movies followed (depth-bounded).
// 0 and the URL, or the status that makes opening fail at once: -43 for a
// missing local file, -2048 for a scheme no source element reads or a chain
// of references that does not end.
int32_t resolvePlayableURL(BVURL url, BVURL* out) {
  for (int depth = 0; depth <= kMaximumReferenceDepth; ++depth) {
    std::string scheme = asciiLower(url.scheme());
    if (scheme.empty() || !gst_uri_protocol_is_supported(GST_URI_SRC, scheme.c_str())) return kMovieStatusNotAMovie;
    if (!url.isFileURL()) {
      *out = url;
      return 0;
    }
    std::string path = url.fileSystemPath();
    struct stat info {};
    if (path.empty() || stat(path.c_str(), &info) != 0) return kMovieStatusFileNotFound;
    std::optional<std::string> target;
    if (S_ISREG(info.st_mode)) target = referenceMovieURL(readHead(path));
    if (!target) {
      *out = url;
      return 0;
    }
    auto next = BVURL::URLWithStringRelativeTo(*target, url);
    if (!next) return kMovieStatusNotAMovie;
    url = *next;
  }
  return kMovieStatusNotAMovie;
}

struct Registration {
  const void* observer;
  std::string name;
  std::function<void(const QTNotification&)> handler;
  bool active = true;
};

}  // namespace

struct QTMovie::Impl final : MoviePipelineListener {
  QTMovie* movie = nullptr;
  GMainContext* context = nullptr;
  QTMovieController controller;
  std::shared_ptr<MoviePipeline> pipeline;  // the only reference
  std::unique_ptr<MovieStationList> stationList;
  std::shared_ptr<MovieAudioSink> audio;
  MovieReading reading;  // patience (0: the short window), request settings, title encoding
  GSource* idleTimer = nullptr;
  GSource* reconnectTimer = nullptr;
  GSource* loadWatchdog = nullptr;
  std::vector<std::shared_ptr<Registration>> registrations;

  std::optional<BVURL> url;  // what is being played (or the list being read)
  int64_t loadState = QTMovieLoadStateLoading;
  int32_t status = 0;
  bool dontInteract = false;
  float volume = 1.0f;
  bool muted = false;

  // Per pipeline.
  bool wantPlaying = false;
  bool buffering = false;
  bool sawBuffering = false;
  int bufferPercent = 0;
  bool ended = false;
  double reportedRate = 0.0;
  std::optional<int64_t> durationNs;
  bool seekable = false;
  std::optional<int64_t> pendingSeekNs;
  int64_t lastPositionNs = 0;

  // A live stream that has played: a break is reconnected (see QTMovie.h).
  bool playedLive = false;
  std::optional<std::chrono::steady_clock::time_point> reconnectDeadline;
  double reconnectDelay = kReconnectFirstDelaySeconds;
  // This movie's own reopenings of a stream GStreamer reads, and whether one
  // is under way (from the break until it plays again).
  int32_t reopenAttempts = 0;
  bool reopening = false;

  // HLS: its adaptive demuxer fetches the playlist and segments itself, so
  // the pipeline reads it with GStreamer's own HTTP source; every other
  // network stream is read by Belvane's connection.
  bool isHLS = false;

  // Station lists.
  std::vector<BVURL> entries;
  std::vector<PlaylistEntry> entryDetails;  // entries' titles and places
  size_t nextEntry = 0;
  bool playingStationList = false;
  bool triedContentTypeList = false;
  int32_t lastEntryStatus = 0;

  ~Impl() override {
    stationList.reset();
    stopLoadWatchdog();
    stopReconnectTimer();
    pipeline.reset();
    if (idleTimer) {
      g_source_destroy(idleTimer);
      g_source_unref(idleTimer);
    }
    if (context) g_main_context_unref(context);
  }

  // MARK: notifications

  // Returns false when a handler destroyed the movie.
  bool post(const char* name, std::optional<double> rate = std::nullopt) {
    std::weak_ptr<QTMovie> self = movie->weak_from_this();
    std::vector<std::shared_ptr<Registration>> matching;
    for (const auto& r : registrations)
      if (r->name == name) matching.push_back(r);
    QTNotification note{name, movie, rate};
    for (const auto& r : matching) {
      if (!r->active) continue;
      r->handler(note);
      if (self.expired()) return false;
    }
    return true;
  }

  bool setLoadState(int64_t state) {
    if (state == loadState) return true;
    loadState = state;
    return post(QTMovieLoadStateDidChangeNotification);
  }

  bool reportRate(double rate) {
    if (rate == reportedRate) return true;
    reportedRate = rate;
    return post(QTMovieRateDidChangeNotification, rate);
  }

  void fail(int32_t code) {
    status = code ? code : -1;
    wantPlaying = false;
    if (!setLoadState(QTMovieLoadStateError)) return;
    reportRate(0.0);
  }

  // MARK: opening

  // A new pipeline starts from scratch; a play request stays.
  void resetPlaybackFacts() {
    buffering = sawBuffering = ended = false;
    bufferPercent = 0;
    durationNs.reset();
    seekable = false;
    pendingSeekNs.reset();
    lastPositionNs = 0;
  }

  // Opens url (following references) as a station list or in a pipeline.
  // A status other than 0 means it could not even start.
  int32_t open(const BVURL& requested, bool allowStationList) {
    BVURL resolved = requested;
    if (int32_t failure = resolvePlayableURL(requested, &resolved)) return failure;
    url = resolved;
    if (allowStationList) {
      if (auto format = MovieStationList::formatForURL(resolved)) {
        startStationList(resolved, *format);
        return 0;
      }
    }
    return startPipeline(resolved);
  }

  int32_t startPipeline(const BVURL& target) {
    pipeline.reset();
    resetPlaybackFacts();
    url = target;
    bool ownConnection = !isHLS && asciiLower(target.pathExtension()) != "m3u8";
    pipeline = MoviePipeline::create(target.absoluteString(), context, this, audio, reading, ownConnection);
    if (!pipeline) return kMovieStatusNotAMovie;
    startLoadWatchdog();
    pipeline->setVolume(std::clamp(volume, 0.0f, 1.0f));
    pipeline->setMuted(muted);
    return 0;
  }

  void startStationList(const BVURL& listURL, PlaylistFormat format) {
    pipeline.reset();
    playingStationList = true;
    url = listURL;
    stationList = std::make_unique<MovieStationList>(
        listURL, format, reading.requestSettings,
        [this](const MovieStationList::Result& result) { stationListLoaded(result); });
  }

  void stationListLoaded(const MovieStationList::Result& result) {
    BVURL listURL = *url;
    if (result.isHLS) {
      // An HLS playlist: the pipeline's adaptive demuxer plays it as it is.
      playingStationList = false;
      isHLS = true;
      if (int32_t failure = startPipeline(listURL)) fail(failure);
      return;
    }
    if (result.status != 0) {
      fail(result.status);
      return;
    }
    entries = result.entries;
    entryDetails = result.details;
    nextEntry = 0;
    lastEntryStatus = kMovieStatusNotAMovie;
    tryNextEntry();
  }

  // Plays the next entry that starts; fails with the last entry's status
  // when none is left.
  void tryNextEntry() {
    while (nextEntry < entries.size()) {
      BVURL entry = entries[nextEntry++];
      int32_t failure = open(entry, false);
      if (failure == 0) return;
      lastEntryStatus = failure;
    }
    pipeline.reset();
    fail(lastEntryStatus);
  }

  // MARK: pipeline events

  bool isLocalFile() const { return url && url->isFileURL(); }
  // A file, local or served with its length: seeks land where asked.
  bool isFinite() const { return isLocalFile() || (pipeline && pipeline->httpDeclaredLength()); }

  void refreshDuration() {
    if (!pipeline || !pipeline->hasPrerolled()) return;
    if (auto d = pipeline->duration()) durationNs = d;
    seekable = pipeline->isSeekable();
  }

  // GStreamer's decoder chooser can swallow a demuxer's error that comes
  // while the demuxer is still being tried, leaving a pipeline that neither
  // prerolls nor fails: a pipeline that has not loaded in time has failed.
  void startLoadWatchdog() {
    stopLoadWatchdog();
    loadWatchdog = g_timeout_source_new(isLocalFile() ? kLocalLoadTimeoutMilliseconds : kNetworkLoadTimeoutMilliseconds);
    g_source_set_callback(
        loadWatchdog,
        [](gpointer data) -> gboolean {
          auto* self = static_cast<Impl*>(data);
          self->stopLoadWatchdog();
          self->pipelineFailedWithStatus(self->isLocalFile() ? kMovieStatusNotAMovie : kMovieStatusCannotReachStream,
                                         true);
          return G_SOURCE_REMOVE;
        },
        this, nullptr);
    g_source_attach(loadWatchdog, context);
  }

  void stopLoadWatchdog() {
    if (!loadWatchdog) return;
    g_source_destroy(loadWatchdog);
    g_source_unref(loadWatchdog);
    loadWatchdog = nullptr;
  }

  void pipelinePrerolled() override {
    stopLoadWatchdog();
    refreshDuration();
    if (pendingSeekNs) {
      pipeline->seek(*pendingSeekNs, isFinite());
      pendingSeekNs.reset();
    }
    int64_t state;
    if (isLocalFile())
      state = QTMovieLoadStateComplete;
    else if (pipeline->isLive() || !sawBuffering || bufferPercent >= 100)
      state = QTMovieLoadStatePlaythroughOK;
    else
      state = QTMovieLoadStatePlayable;
    if (state > loadState && !setLoadState(state)) return;
    if (wantPlaying && !buffering && pipeline) pipeline->setPlaying(true);
  }

  void pipelineBuffering(int percent) override {
    sawBuffering = true;
    bufferPercent = percent;
    if (percent < 100) {
      // Standard buffering: hold the pipeline until the queue is full again.
      if (!buffering) {
        buffering = true;
        // A stream that runs dry after playing through is stalled, not
        // finished: it is only playable until the data flows again.
        if (!isLocalFile() && loadState >= QTMovieLoadStatePlaythroughOK && !setLoadState(QTMovieLoadStatePlayable))
          return;
        if (pipeline && pipeline->isPlaying()) pipeline->setPlaying(false);
      }
      return;
    }
    buffering = false;
    if (pipeline->hasPrerolled() && loadState >= 0 && loadState < QTMovieLoadStatePlaythroughOK &&
        !setLoadState(QTMovieLoadStatePlaythroughOK))
      return;
    if (wantPlaying && !ended && pipeline) pipeline->setPlaying(true);
  }

  void pipelinePlayingChanged(bool playing) override {
    if (playing && !isLocalFile() && isLive() && !pipeline->httpDeclaredLength()) {
      playedLive = true;
      reconnectDeadline.reset();  // it plays again: a later break gets a new window
      reconnectDelay = kReconnectFirstDelaySeconds;
    }
    if (playing) reopening = false;
    reportRate(playing ? 1.0 : 0.0);
  }

  void pipelineEnded() override {
    if (playedLive && !pipeline->readsOwnConnection()) {
      // A live stream has no end: its server or the network dropped it.
      streamBroke(kMovieStatusCannotReachStream);
      return;
    }
    ended = true;
    wantPlaying = false;
    refreshDuration();
    if (durationNs) lastPositionNs = *durationNs;
    pipeline->setPlaying(false);
    if (!post(QTMovieDidEndNotification)) return;
    reportRate(0.0);
  }

  void pipelineFailed(const MoviePipelineError& error) override {
    MovieErrorFacts facts;
    facts.error = error.error;
    facts.httpStatus = error.httpStatus;
    facts.fromSource = error.fromSource;
    facts.networkURL = url && !url->isFileURL();
    if (url && url->isFileURL()) facts.localPath = url->fileSystemPath();
    pipelineFailedWithStatus(movieStatusForError(facts), false);
  }

  void pipelineFailedWithStatus(int32_t code, bool stalled) {
    stopLoadWatchdog();
    // Belvane's connection has already tried to reconnect by the time it
    // fails; GStreamer's source has not.
    if (playedLive && pipeline && !pipeline->readsOwnConnection()) {
      streamBroke(code);
      return;
    }
    bool beforePlaythrough = loadState >= 0 && loadState < QTMovieLoadStatePlaythroughOK;

    if (playingStationList && beforePlaythrough) {
      // This entry did not open: the next one gets its turn.
      lastEntryStatus = code;
      tryNextEntry();
      return;
    }
    if (!playingStationList && !triedContentTypeList && beforePlaythrough && code == kMovieStatusNotAMovie && url &&
        isHTTP(*url)) {
      // A station list served without a telling extension: its content type says so.
      auto contentType = pipeline->httpContentType();
      if (contentType && isHLSMIMEType(*contentType) && !isHLS) {
        // HLS under an address that did not say so: its demuxer fetches it.
        isHLS = true;
        if (int32_t failure = startPipeline(*url)) fail(failure);
        return;
      }
      auto format = contentType ? MovieStationList::formatForContentType(*contentType) : std::nullopt;
      if (format) {
        triedContentTypeList = true;
        startStationList(*url, *format);
        return;
      }
    }
    if (stalled) pipeline.reset();
    fail(code);
  }

  // MARK: reconnection

  // The live stream broke (status `code`): open it again after a pause, or
  // fail once the window since the break has passed. Until then the movie
  // is only playable, so that its player does not take the silence for an end.
  void streamBroke(int32_t code) {
    auto now = std::chrono::steady_clock::now();
    if (!reconnectDeadline) {
      auto window = std::chrono::duration<double>(reconnectWindowForPatience(reading.reconnectPatience));
      reconnectDeadline = now + std::chrono::duration_cast<std::chrono::steady_clock::duration>(window);
    }
    auto pause = std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>(reconnectDelay));
    if (now + pause > *reconnectDeadline) {
      playedLive = false;
      reconnectDeadline.reset();
      fail(code);
      return;
    }
    pipeline.reset();
    reopening = true;
    if (!setLoadState(QTMovieLoadStatePlayable)) return;
    if (!reportRate(0.0)) return;
    stopReconnectTimer();
    reconnectTimer = g_timeout_source_new(unsigned(reconnectDelay * 1000));
    reconnectDelay = std::min(reconnectDelay * 2, kReconnectMaxDelaySeconds);
    g_source_set_callback(
        reconnectTimer,
        [](gpointer data) -> gboolean {
          auto* self = static_cast<Impl*>(data);
          self->stopReconnectTimer();
          ++self->reopenAttempts;
          if (auto target = self->url)
            if (int32_t failure = self->startPipeline(*target)) self->streamBroke(failure);
          return G_SOURCE_REMOVE;
        },
        this, nullptr);
    g_source_attach(reconnectTimer, context);
  }

  void stopReconnectTimer() {
    if (!reconnectTimer) return;
    g_source_destroy(reconnectTimer);
    g_source_unref(reconnectTimer);
    reconnectTimer = nullptr;
  }

  void pipelineTagsChanged() override { post(QTMovieMetaDataDidChangeNotification); }

  void pipelineDurationChanged() override { refreshDuration(); }

  void pipelineSeekDone() override { post(QTMovieTimeDidChangeNotification); }

  // MARK: idle

  void startIdleTimer() {
    idleTimer = g_timeout_source_new(kIdleIntervalMilliseconds);
    g_source_set_callback(
        idleTimer,
        [](gpointer data) -> gboolean {
          auto* self = static_cast<Impl*>(data);
          std::weak_ptr<QTMovie> movie = self->movie->weak_from_this();
          if (self->controller.filter)
            self->controller.filter(&self->controller, mcActionIdle, nullptr, self->controller.refCon);
          // The filter may have released the movie; its timer is gone then.
          return movie.expired() ? G_SOURCE_REMOVE : G_SOURCE_CONTINUE;
        },
        this, nullptr);
    g_source_attach(idleTimer, context);
  }

  // No position: a live source, a stream that cannot seek, or no duration yet.
  // A file (local, or served with its length) has a position once its
  // duration is known, whether or not its server lets it be sought.
  bool isLive() const {
    if (!pipeline || !durationNs) return true;
    return !isFinite() && (pipeline->isLive() || !seekable);
  }
};

QTMovie::QTMovie() : impl_(std::make_unique<Impl>()) { impl_->movie = this; }

QTMovie::~QTMovie() = default;

std::shared_ptr<QTMovie> QTMovie::movieWithURL(const BVURL& url, BVErrorRef* error,
                                               std::shared_ptr<MovieAudioSink> audio, const MovieReading& reading) {
  if (error) *error = nullptr;
  if (!ensureGStreamer()) {
    if (error) *error = BVError::create(BVOSStatusErrorDomain, kMovieStatusNotAMovie);
    return nullptr;
  }
  std::shared_ptr<QTMovie> movie(new QTMovie());
  Impl& impl = *movie->impl_;
  impl.context = g_main_context_ref(BVRunLoop::current().context());
  impl.audio = std::move(audio);
  impl.reading = reading;
  if (int32_t failure = impl.open(url, true)) {
    if (error) *error = BVError::create(BVOSStatusErrorDomain, failure);
    return nullptr;
  }
  impl.startIdleTimer();
  return movie;
}

BVValue QTMovie::attributeForKey(const std::string& key) const {
  if (key == QTMovieLoadStateAttribute) return BVValue(impl_->loadState);
  if (key == QTMovieDurationAttribute) {
    impl_->refreshDuration();
    if (impl_->isLive()) return BVValue();
    return BVValue(double(*impl_->durationNs) / 1e9);
  }
  if (key == QTMovieDontInteractWithUserAttribute) return BVValue(impl_->dontInteract);
  return BVValue();
}

void QTMovie::setAttribute(const BVValue& value, const std::string& key) {
  if (key == QTMovieDontInteractWithUserAttribute) impl_->dontInteract = value.boolValue();
}

void QTMovie::play() {
  Impl& impl = *impl_;
  if (impl.ended || impl.loadState == QTMovieLoadStateError) return;
  impl.wantPlaying = true;
  if (impl.pipeline && !impl.buffering) impl.pipeline->setPlaying(true);
}

void QTMovie::stop() {
  impl_->wantPlaying = false;
  if (impl_->pipeline) impl_->pipeline->setPlaying(false);
}

float QTMovie::rate() const {
  const Impl& impl = *impl_;
  return impl.wantPlaying && !impl.buffering && !impl.ended && impl.loadState != QTMovieLoadStateError ? 1.0f : 0.0f;
}

QTTime QTMovie::currentTime() const {
  Impl& impl = *impl_;
  if (impl.pendingSeekNs) {
    impl.lastPositionNs = *impl.pendingSeekNs;
  } else if (!impl.ended && impl.pipeline && impl.pipeline->hasPrerolled() && !impl.pipeline->hasFailed()) {
    if (auto position = impl.pipeline->position()) impl.lastPositionNs = *position;
  }
  return QTTime{impl.lastPositionNs / 1000, kQTMovieTimeScale, 0};
}

QTTime QTMovie::duration() const {
  impl_->refreshDuration();
  if (impl_->isLive()) return QTTime{0, kQTMovieTimeScale, kQTTimeIsIndefinite};
  return QTTime{*impl_->durationNs / 1000, kQTMovieTimeScale, 0};
}

void QTMovie::setCurrentTime(QTTime time) {
  double seconds = 0;
  if (!QTGetTimeInterval(time, &seconds) || !std::isfinite(seconds)) return;
  Impl& impl = *impl_;
  int64_t ns = int64_t(std::max(0.0, seconds) * 1e9);
  if (impl.pipeline && impl.pipeline->hasPrerolled() && !impl.isLocalFile() && !impl.seekable) {
    // Playback goes on where it is: the server does not serve parts of it.
    BVLog("A seek was refused: the file's server does not take Range requests, so it cannot be sought.");
    return;
  }
  impl.ended = false;
  impl.lastPositionNs = ns;
  if (impl.pipeline && impl.pipeline->hasPrerolled()) {
    impl.pipeline->seek(ns, impl.isFinite());
  } else {
    impl.pendingSeekNs = ns;
  }
}

float QTMovie::volume() const { return impl_->volume; }

void QTMovie::setVolume(float volume) {
  impl_->volume = volume;
  if (impl_->pipeline) impl_->pipeline->setVolume(std::clamp(volume, 0.0f, 1.0f));
}

bool QTMovie::muted() const { return impl_->muted; }

void QTMovie::setMuted(bool muted) {
  impl_->muted = muted;
  if (impl_->pipeline) impl_->pipeline->setMuted(muted);
}

int32_t QTMovie::movieStatus() const { return impl_->status; }

QTMovieController* QTMovie::quickTimeMovieController() { return &impl_->controller; }

void QTMovie::addObserver(const void* observer, const std::string& name,
                          std::function<void(const QTNotification&)> handler) {
  auto registration = std::make_shared<Registration>();
  registration->observer = observer;
  registration->name = name;
  registration->handler = std::move(handler);
  impl_->registrations.push_back(std::move(registration));
}

void QTMovie::removeObserver(const void* observer) {
  auto& list = impl_->registrations;
  for (auto& r : list)
    if (r->observer == observer) r->active = false;
  std::erase_if(list, [](const auto& r) { return !r->active; });
}

std::optional<std::string> QTMovie::filePath() const {
  if (!impl_->url || !impl_->url->isFileURL() || (impl_->playingStationList && !impl_->pipeline)) return std::nullopt;
  return impl_->url->fileSystemPath();
}

namespace {
constexpr const char* kStreamKinds[] = {"audio", "video", "text"};
}

std::vector<QTTrack> QTMovie::tracks() {
  std::vector<QTTrack> list;
  if (!impl_->pipeline || !impl_->pipeline->hasPrerolled()) return list;
  size_t index = 0;
  for (const char* kind : kStreamKinds)
    for (int i = 0, n = impl_->pipeline->streamCount(kind); i < n; ++i) list.push_back(QTTrack{shared_from_this(), index++});
  return list;
}

GstTagList* QTMovie::copyTags() const { return impl_->pipeline ? impl_->pipeline->copyTags() : nullptr; }

GstTagList* QTMovie::copyTrackTags(size_t index) const {
  if (!impl_->pipeline || !impl_->pipeline->hasPrerolled()) return nullptr;
  for (const char* kind : kStreamKinds) {
    size_t count = size_t(impl_->pipeline->streamCount(kind));
    if (index < count) return impl_->pipeline->copyStreamTags(kind, int(index));
    index -= count;
  }
  return nullptr;
}

bool QTMovie::isFiniteResource() const { return impl_->isFinite(); }

StreamReaderProgress QTMovie::connectionProgress() const {
  StreamReaderProgress progress = impl_->pipeline ? impl_->pipeline->connectionProgress() : StreamReaderProgress{};
  progress.reconnectAttempts += impl_->reopenAttempts;
  progress.broken = progress.broken || impl_->reopening;
  return progress;
}

MovieRingFeed* QTMovie::ringFeed() const { return impl_->pipeline ? impl_->pipeline->ringFeed() : nullptr; }

BVDictionary QTMovie::stationFacts() const {
  BVDictionary facts = impl_->pipeline ? impl_->pipeline->stationFacts() : BVDictionary{};
  if (impl_->pipeline)
    for (const auto& [key, value] : impl_->pipeline->decodedFormat()) facts.insert_or_assign(key, value);
  // The station list's entry that plays (entries are tried in turn).
  if (impl_->playingStationList && impl_->nextEntry > 0 && impl_->nextEntry <= impl_->entryDetails.size())
    for (const auto& [key, value] : playlistEntryAttributes(impl_->entryDetails[impl_->nextEntry - 1]))
      facts.insert_or_assign(key, value);
  return facts;
}

BVURL QTMovie::url() const { return *impl_->url; }

}  // namespace belvane::detail
