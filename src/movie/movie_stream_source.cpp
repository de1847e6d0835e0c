// MovieStreamSource: the reader's bytes into an appsrc (see movie_stream_source.h).
#include "movie/movie_stream_source.h"

#include "foundation/text_encoding.h"
#include "foundation/title_encoding.h"
#include "foundation/thread_name.h"
#include "foundation/tsan_handoff.h"
#include "streaming/QLDebug.h"
#include "streaming/shoutstreamer.h"
#include "streaming/shoutstreamer_errors.h"
#include "streaming/station_tap.h"
#include "movie/movie_audio_sink.h"
#include "movie/movie_ring_feed.h"

#include <gst/app/gstappsrc.h>
#include <gst/gst.h>

#include <cstdlib>
#include <vector>
#include <utility>

namespace belvane::detail {

namespace {

// Bytes queued ahead of type finding before a push waits: a few seconds of
// a station, enough to ride over the server's and the decoder's jitter.
constexpr guint64 kQueueBytes = 64 * 1024;
// Audio bytes a connection must deliver before a break is worth
// reconnecting, and before a reconnection counts as back: about half a
// second of a 128 kbit/s station.
constexpr uint64_t kPlayedBytes = 8 * 1024;

uint32_t metaintOf(const StreamReplyHead& head) {
  const std::string* value = head.field("icy-metaint");
  if (!value) return 0;
  char* end = nullptr;
  unsigned long parsed = std::strtoul(value->c_str(), &end, 10);
  return end != value->c_str() && parsed <= UINT32_MAX ? uint32_t(parsed) : 0;
}

// The GStreamer error a reader's failure is posted as: the movie words a
// resource error of a network source as a stream that cannot be reached,
// and one with an HTTP status by that status.
GstResourceError resourceErrorFor(int32_t code, unsigned* httpStatus) {
  char c[4] = {char((code >> 24) & 0xFF), char((code >> 16) & 0xFF), char((code >> 8) & 0xFF), char(code & 0xFF)};
  if (c[0] == 'H' && g_ascii_isdigit(c[1]) && g_ascii_isdigit(c[2]) && g_ascii_isdigit(c[3])) {
    *httpStatus = unsigned((c[1] - '0') * 100 + (c[2] - '0') * 10 + (c[3] - '0'));
    return *httpStatus == 404 ? GST_RESOURCE_ERROR_NOT_FOUND : GST_RESOURCE_ERROR_OPEN_READ;
  }
  switch (code) {
    case SHOUTSTREAMER_ERROR_CONNECTION_REFUSED:
    case SHOUTSTREAMER_ERROR_HOST_NOT_FOUND:
    case SHOUTSTREAMER_ERROR_SECURE_CONNECTION:
    case SHOUTSTREAMER_ERROR_BAD_URL: return GST_RESOURCE_ERROR_OPEN_READ;
    default: return GST_RESOURCE_ERROR_READ;
  }
}

// Whether bytes hold the header of an ADTS frame (a 12-bit sync, layer 0)
// followed by the next frame's sync where its length says.
bool hasADTSFrame(std::span<const uint8_t> bytes) {
  for (size_t i = 0; i + 7 <= bytes.size(); ++i) {
    if (bytes[i] != 0xFF || (bytes[i + 1] & 0xF6) != 0xF0) continue;
    size_t length = (size_t(bytes[i + 3] & 0x03) << 11) | (size_t(bytes[i + 4]) << 3) | (bytes[i + 5] >> 5);
    size_t next = i + length;
    if (length >= 7 && next + 2 <= bytes.size() && bytes[next] == 0xFF && (bytes[next + 1] & 0xF6) == 0xF0) return true;
  }
  return false;
}

// Posts the reader's failure as the source element's error.
void postReadError(GstElement* appsrc, int32_t readError) {
  unsigned httpStatus = 0;
  GstResourceError code = resourceErrorFor(readError, &httpStatus);
  char* text = shoutstreamer_error_as_string(readError);
  GError* error = g_error_new_literal(GST_RESOURCE_ERROR, code, text ? text : "The stream could not be read.");
  std::free(text);
  GstStructure* details =
      httpStatus ? gst_structure_new("details", "http-status-code", G_TYPE_UINT, httpStatus, nullptr) : nullptr;
  gst_element_post_message(appsrc, gst_message_new_error_with_details(GST_OBJECT(appsrc), error, nullptr, details));
  g_error_free(error);
}

}  // namespace

// Splits each connection's metadata from its audio and pushes both, in
// order, into the appsrc.
class MovieStreamSource::Client final : public StreamReader::Client, private IcyDemuxer::Handler {
 public:
  // offset: where in the body this reading starts (after a seek).
  Client(MovieStreamSource& source, uint64_t offset)
      : source_(source), appsrc_(GST_APP_SRC(source.appsrc_)), offset_(offset) {}

  int32_t head(const StreamReplyHead& head) override {
    const std::string* type = head.field("content-type");
    const std::string* length = head.field("content-length");
    {
      std::lock_guard lock(source_.mutex_);
      if (type) source_.contentType_ = *type;
      source_.stationFacts_ = stationFactsFromHead(head);
      if (offset_ == 0) source_.declaredLength_ = length != nullptr;
    }
    if (length && connections_ == 0 && offset_ == 0) {
      gint64 size = g_ascii_strtoll(length->c_str(), nullptr, 10);
      if (size > 0) gst_app_src_set_size(appsrc_, size);
      // A file its server serves in ranges can be sought.
      const std::string* ranges = head.field("accept-ranges");
      if (size > 0 && ranges && ranges->find("bytes") != std::string::npos)
        gst_app_src_set_stream_type(appsrc_, GST_APP_STREAM_TYPE_SEEKABLE);
    }
    adtsCaps_ = connections_ == 0 && offset_ == 0 && type && isAACContentType(*type);
    demuxer_ = std::make_unique<IcyDemuxer>(metaintOf(head));
    if (tap_) tap_->connectionStarted(source_.reading_.titleEncoding.value_or(""));
    connectionAudioBytes_ = 0;
    // A new connection to a live stream joins it somewhere else; a file
    // resumed where it broke (206) goes on from the same byte.
    discont_ = connections_++ > 0 && head.status != 206;
    source_.connectionBroken_ = false;
    return 0;
  }

  int32_t body(std::span<const uint8_t> bytes) override {
    auto scope = feed_ ? feed_->readingScope() : std::unique_lock<std::mutex>();
    // A push the appsrc refused (flushing: the pipeline stops) ends the
    // reading quietly; a pipeline that failed reports that itself.
    if (!demuxer_->feed(bytes, *this) || !push()) return StreamConnection::kStop;
    // Everything the ring has was pushed: a hand-over asked for meanwhile
    // is made now rather than at the next piece, which may be long in coming.
    if (feed_ && feed_->wantsHandOver()) feed_->handOver();
    return 0;
  }

  bool hasPlayed() const override { return audioBytes_ >= kPlayedBytes; }
  bool connectionPlayed() const override { return connectionAudioBytes_ >= kPlayedBytes; }
  int32_t silentEndError() const override { return audioBytes_ > 0 ? 0 : SHOUTSTREAMER_ERROR_NO_AUDIO; }
  void reconnecting(int) override {
    source_.reconnectAttempts_.fetch_add(1);
    source_.connectionBroken_ = true;
  }

 private:
  // The audio of one piece of the body goes in one buffer, however many
  // metadata blocks without a title cut it: fewer, larger hand-overs.
  bool audio(std::span<const uint8_t> bytes, uint64_t) override {
    if (feed_) {
      if (!anchored_) {
        feed_->anchor();
        anchored_ = true;
      }
      // Asked to hand over: what the ring has is pushed first, so that the
      // feeder goes on from exactly there.
      if (feed_->wantsHandOver() && push() && feed_->handOver()) QLDebugLog(QL_LOG_DEBUG, "stream: handed over");
      if (feed_->isHandedOver()) {
        tap_->audio(bytes);
        feed_->ringGrew();
        return true;
      }
    }
    if (tap_) tap_->audio(bytes);
    pending_.insert(pending_.end(), bytes.begin(), bytes.end());
    return true;
  }

  bool push() {
    if (pending_.empty()) return true;
    std::span<const uint8_t> bytes(pending_);
    if (audioBytes_ == 0 && adtsCaps_ && hasADTSFrame(bytes)) {
      // Type finding waits for 2 KiB, which a station's first block (1400
      // bytes on Icecast) does not hold: the type is known already.
      GstCaps* caps = gst_caps_new_simple("audio/mpeg", "mpegversion", G_TYPE_INT, 4, "stream-format", G_TYPE_STRING,
                                          "adts", nullptr);
      gst_app_src_set_caps(appsrc_, caps);
      gst_caps_unref(caps);
    }
    GstBuffer* buffer = gst_buffer_new_memdup(bytes.data(), bytes.size());
    const size_t size = bytes.size();
    pending_.clear();
    if (discont_) {
      // A reconnection: the decoder picks the stream up afresh.
      GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DISCONT);
      discont_ = false;
    }
    // Bytes of a reading a seek has overtaken go nowhere.
    if (source_.seekPending()) {
      gst_buffer_unref(buffer);
      return false;
    }
    GstFlowReturn flow = gst_app_src_push_buffer(appsrc_, buffer);
    if (flow == GST_FLOW_FLUSHING) source_.waitForSeek();
    if (flow != GST_FLOW_OK) return false;
    audioBytes_ += size;
    connectionAudioBytes_ += size;
    // The flow control between the server and the decoder.
    return source_.waitForRoom();
  }

  void metadata(std::span<const uint8_t> block, uint64_t) override {
    auto title = streamTitleFromMetadata(block);
    if (title && tap_) tap_->title({*title, streamURLFromMetadata(block).value_or("")});
    // Played from the ring, the title goes in at its frame from there.
    if (feed_ && feed_->isHandedOver()) return;
    if (!title || !push()) return;
    std::string text = stationTitleToUTF8(bytesOf(*title), source_.reading_.titleEncoding.value_or(""));
    QLDebugLog(QL_LOG_DEBUG, "stream: title '%s'", text.c_str());
    // Serialised events wait in the appsrc's queue behind the bytes before
    // them: the title reaches the parser where the station placed it. Its
    // StreamUrl travels in the same tags as their home page (as GStreamer's
    // own ICY demuxer puts it); tags without one clear the last.
    GstTagList* tags = gst_tag_list_new(GST_TAG_TITLE, text.c_str(), nullptr);
    if (auto url = streamURLFromMetadata(block)) {
      std::string address = stationTitleToUTF8(bytesOf(*url), source_.reading_.titleEncoding.value_or(""));
      if (!address.empty()) gst_tag_list_add(tags, GST_TAG_MERGE_REPLACE, GST_TAG_HOMEPAGE, address.c_str(), nullptr);
    }
    gst_element_send_event(GST_ELEMENT(appsrc_), gst_event_new_tag(tags));
  }

  MovieStreamSource& source_;
  GstAppSrc* appsrc_;

  const uint64_t offset_;
  std::unique_ptr<IcyDemuxer> demuxer_;
  std::vector<uint8_t> pending_;  // audio not pushed yet
  uint64_t audioBytes_ = 0;
  uint64_t connectionAudioBytes_ = 0;
  int connections_ = 0;
  bool discont_ = false;
  bool adtsCaps_ = false;  // served as AAC: ADTS frames are looked for
  // Only a reading from the start feeds the ring: a file sought in is no station.
  StationTap* tap_ = offset_ == 0 ? source_.reading_.stationTap.get() : nullptr;
  MovieRingFeed* feed_ = tap_ ? source_.feed_.get() : nullptr;
  bool anchored_ = false;
};

bool MovieStreamSource::handles(const std::string& url) {
  size_t colon = url.find("://");
  if (colon == std::string::npos) return false;
  std::string scheme = asciiLower(std::string_view(url).substr(0, colon));
  return scheme == "http" || scheme == "https" || scheme == "icy" || scheme == "shttp";
}

namespace {
StreamReaderPolicy generalPolicy(const MovieReading& reading) {
  StreamReaderPolicy policy;
  policy.refuseAAC = false;
  policy.reconnectWindow = reconnectWindowForPatience(reading.reconnectPatience);
  policy.requestSettings = reading.requestSettings;
  return policy;
}
}  // namespace

MovieStreamSource::MovieStreamSource(const std::string& url, GstElement* appsrc, const MovieReading& reading,
                                     std::shared_ptr<MovieAudioSink> audio)
    : appsrc_(appsrc), url_(url), reading_(reading) {
  // The first reading is made now, so that it takes the tuner's reply at once.
  reader_ = std::make_unique<StreamReader>(url_, generalPolicy(reading_));
  tookHeld_ = reader_->tookHeldReply();
  if (reading_.stationTap && audio) {
    MovieRingFeed::Hooks hooks;
    hooks.secondsWritten = [audio] { return audio->movieSecondsTaken(); };
    hooks.dropUntilFlushed = [audio] { audio->movieDropUntilFlushed(); };
    hooks.wakeReader = [this] {
      std::lock_guard lock(mutex_);
      changed_.notify_all();
    };
    feed_ = std::make_unique<MovieRingFeed>(appsrc_, reading_.stationTap, std::move(hooks));
  }
  // The callbacks come from GStreamer's streaming threads (which its pool
  // may have made before) and end before the pipeline's stop returns, all
  // under GStreamer's own locks: declared for ThreadSanitizer as turns
  // handed on from the constructor and on to the destructor.
  HANDOFF_RELEASE(this);
  GstAppSrcCallbacks callbacks{};
  callbacks.seek_data = [](GstAppSrc*, guint64 offset, gpointer self) -> gboolean {
    HandoffTurn turn(self);
    static_cast<MovieStreamSource*>(self)->seekData(offset);
    return TRUE;
  };
  callbacks.need_data = [](GstAppSrc*, guint, gpointer self) {
    HandoffTurn turn(self);
    static_cast<MovieStreamSource*>(self)->roomChanged(false);
  };
  callbacks.enough_data = [](GstAppSrc*, gpointer self) {
    HandoffTurn turn(self);
    static_cast<MovieStreamSource*>(self)->roomChanged(true);
  };
  gst_app_src_set_callbacks(GST_APP_SRC(appsrc_), &callbacks, this, nullptr);
}

std::unique_ptr<MovieStreamSource> MovieStreamSource::create(const std::string& url, const MovieReading& reading,
                                                             std::shared_ptr<MovieAudioSink> audio) {
  GstElement* appsrc = gst_element_factory_make("appsrc", nullptr);
  if (!appsrc) return nullptr;
  gst_object_ref_sink(appsrc);
  // Bytes of unknown type, a stream that cannot seek; a push that fills the
  // queue is followed by a wait until it is half empty (waitForRoom).
  g_object_set(appsrc, "format", GST_FORMAT_BYTES, "stream-type", GST_APP_STREAM_TYPE_STREAM, "block", FALSE,
               "max-bytes", kQueueBytes, "min-percent", 50, "emit-signals", FALSE, nullptr);
  return std::unique_ptr<MovieStreamSource>(new MovieStreamSource(url, appsrc, reading, std::move(audio)));
}

MovieStreamSource::~MovieStreamSource() {
  HANDOFF_ACQUIRE(this);
  cancel();
  join();
  feed_.reset();
  gst_object_unref(appsrc_);
}

void MovieStreamSource::start() {
  if (!thread_.joinable()) thread_ = std::thread(&MovieStreamSource::readMain, this);
}

void MovieStreamSource::cancel() {
  std::lock_guard lock(mutex_);
  cancelled_ = true;
  if (reader_) reader_->cancel();
  changed_.notify_all();
}

void MovieStreamSource::seekData(uint64_t offset) {
  // A station played from its ring is flushed for a skip: the reading goes on.
  if (feed_ && feed_->isHandedOver()) return;
  std::lock_guard lock(mutex_);
  seekTo_ = offset;
  seekPending_ = true;
  if (reader_) reader_->cancel();
  changed_.notify_all();
}

void MovieStreamSource::roomChanged(bool full) {
  {
    std::lock_guard lock(mutex_);
    full_ = full;
    changed_.notify_all();
  }
  if (feed_) full ? feed_->enoughData() : feed_->needData();
}

bool MovieStreamSource::waitForRoom() {
  std::unique_lock lock(mutex_);
  // A hand-over asked for ends the wait: the reading thread then lets go of
  // the appsrc and only fills the ring.
  changed_.wait(lock, [&] { return !full_ || cancelled_ || seekTo_ || (feed_ && feed_->wantsHandOver()); });
  return !cancelled_ && !seekTo_;
}

bool MovieStreamSource::seekPending() const { return seekPending_.load(std::memory_order_acquire); }

bool MovieStreamSource::waitForSeek() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return cancelled_ || seekTo_; });
  return !cancelled_;
}

void MovieStreamSource::join() {
  if (thread_.joinable()) thread_.join();
}

std::optional<std::string> MovieStreamSource::contentType() const {
  std::lock_guard lock(mutex_);
  return contentType_;
}

StreamReaderProgress MovieStreamSource::connectionProgress() const {
  return {reconnectAttempts_.load(), connectionBroken_.load()};
}

BVDictionary MovieStreamSource::stationFacts() const {
  std::lock_guard lock(mutex_);
  return stationFacts_;
}

bool MovieStreamSource::declaredLength() const {
  std::lock_guard lock(mutex_);
  return declaredLength_;
}

void MovieStreamSource::readMain() {
  nameThisThread("bv-movie-net");
  uint64_t offset = 0;
  StreamReader::Outcome outcome;
  for (;;) {
    StreamReader* reader = nullptr;
    {
      std::lock_guard lock(mutex_);
      if (cancelled_) return;
      if (!reader_) {
        StreamReaderPolicy policy = generalPolicy(reading_);
        policy.startOffset = offset;
        reader_ = std::make_unique<StreamReader>(url_, policy);
      }
      reader = reader_.get();
    }
    Client client(*this, offset);
    outcome = reader->run(client);
    std::unique_lock lock(mutex_);
    reader_.reset();
    if (cancelled_) return;
    if (!seekTo_ && outcome.error == 0 && !outcome.cancelled) {
      // The end: a file that can be sought may be asked to go back.
      lock.unlock();
      if (reading_.stationTap) reading_.stationTap->streamEnded();
      GstAppSrc* appsrc = GST_APP_SRC(appsrc_);
      if (feed_ && feed_->isHandedOver())
        feed_->inputEnded([appsrc] { gst_app_src_end_of_stream(appsrc); });
      else
        gst_app_src_end_of_stream(appsrc);
      lock.lock();
      changed_.wait(lock, [&] { return cancelled_ || seekTo_; });
      if (cancelled_) return;
    }
    if (seekTo_) {
      offset = *std::exchange(seekTo_, std::nullopt);
      seekPending_ = false;
      QLDebugLog(QL_LOG_DEBUG, "stream: reading %s on from byte %llu", url_.c_str(),
                 static_cast<unsigned long long>(offset));
      continue;
    }
    if (outcome.cancelled) return;
    break;
  }
  if (reading_.stationTap) reading_.stationTap->streamEnded();
  // Played from the ring, the station fails once what the ring holds has played.
  if (feed_ && feed_->isHandedOver())
    feed_->inputEnded([appsrc = appsrc_, error = outcome.error] { postReadError(appsrc, error); });
  else
    postReadError(appsrc_, outcome.error);
}

}  // namespace belvane::detail
