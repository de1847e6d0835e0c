// The shoutstreamer C interface: a network thread that connects, decodes
// and reconnects, and a delivery thread that makes every callback.
#include "streaming/shoutstreamer.h"

#include <belvane/BVConstants.h>

#include "foundation/mime_type.h"
#include "foundation/text_encoding.h"
#include "foundation/title_encoding.h"
#include "foundation/thread_annotations.h"
#include "foundation/thread_name.h"
#include "streaming/QLDebug.h"
#include "streaming/shoutstreamer_buffer.h"
#include "streaming/shoutstreamer_connection.h"
#include "streaming/shoutstreamer_pipeline.h"
#include "streaming/station_tap.h"
#include "streaming/time_shift.h"
#include "streaming/stream_reader.h"
#include "streaming/shoutstreamer_tuning.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

using belvane::detail::Mutex;
using belvane::detail::MutexLock;
using belvane::detail::PipelineSink;
using belvane::detail::ShoutstreamerTuning;
using belvane::detail::StreamBuffer;
using belvane::detail::StreamConnection;
using belvane::detail::StreamPipeline;
using belvane::detail::StreamReader;
using belvane::detail::StreamReaderPolicy;
using belvane::detail::StreamReplyHead;

struct shoutstreamer {
  shoutstreamer_delegate_t delegate{nullptr};  // first: shoutstreamer_delegate's record
  ShoutstreamerTuning tuning;
  std::string url;
  shoutstreamer_state_callback_t stateCallback = nullptr;
  shoutstreamer_audio_callback_t audioCallback = nullptr;
  shoutstreamer_title_callback_t titleCallback = nullptr;
  shoutstreamer_interrupt_callback_t interruptCallback = nullptr;

  std::atomic<int32_t> error{0};
  bool started = false;
  std::unique_ptr<StreamBuffer> buffer;
  std::thread network;
  std::thread delivery;
  bool freeWhenDelivered = false;  // destroyed from inside a callback

  // Connects, reconnects and hands the bytes to the decoder; made at start,
  // when it takes the tuner's open reply for this address.
  std::unique_ptr<StreamReader> reader;
  Mutex controlMutex;
  std::condition_variable controlChanged;
  bool threadsStored GUARDED_BY(controlMutex) = false;  // start has stored both thread objects
  // What the last reply head announced of the station, and what the decoder
  // found the stream to be.
  Mutex factsMutex;
  BVDictionary stationFacts GUARDED_BY(factsMutex);
  std::atomic<int32_t> reconnectAttempts{0};
  std::atomic<bool> connectionBroken{false};
  BVDictionary decodedFacts GUARDED_BY(factsMutex);
  // The StreamUrl of the title whose callback is being made (delivery thread).
  std::string titleURL;

  // A time-shift's feeder writes to the buffer: it ends before the buffer goes.
  ~shoutstreamer() {
    if (tuning.timeShift) tuning.timeShift->detach();
  }
};

namespace {

using Clock = std::chrono::steady_clock;

// What the decoder found the stream to be, as player attributes.
BVDictionary decodedFacts(const belvane::detail::MpegDecoder::Format& format) {
  BVDictionary facts;
  static constexpr const char* kLayerNames[] = {"MPEG audio", "MP1", "MP2", "MP3"};
  const int layer = format.layer >= 1 && format.layer <= 3 ? format.layer : 0;
  facts[BVPlayerAttributeCodecKey] = BVValue(std::string(kLayerNames[layer]));
  if (format.sampleRate > 0) facts[BVPlayerAttributeSampleRateKey] = BVValue(int64_t(format.sampleRate));
  if (format.channels > 0) facts[BVPlayerAttributeChannelsKey] = BVValue(int64_t(format.channels));
  return facts;
}

// The stream whose delivery thread this is, so destroy can tell when it is
// called from inside a callback.
thread_local shoutstreamer* tDeliveringFor = nullptr;

// Decodes the station for the reader: each connection's head starts a
// pipeline, its payload runs through it into the buffer.
class StreamDecoder final : public StreamReader::Client, public PipelineSink {
 public:
  explicit StreamDecoder(shoutstreamer& s) : s_(s) {}

  int32_t head(const StreamReplyHead& head) override {
    uint32_t metaint = 0;
    if (const std::string* value = head.field("icy-metaint")) {
      char* end = nullptr;
      unsigned long parsed = std::strtoul(value->c_str(), &end, 10);
      if (end != value->c_str() && parsed <= UINT32_MAX) metaint = uint32_t(parsed);
    }
    QLDebugLog(QL_LOG_INFO, "shoutstreamer: %s answered %d, metadata every %u bytes", s_.url.c_str(), head.status,
               metaint);
    pipeline_ = std::make_unique<StreamPipeline>(metaint, *this, s_.tuning.syncSearchBytes);
    if (const auto& tap = s_.tuning.stationTap) {
      tap->connectionStarted(s_.tuning.titleEncoding);
      pipeline_->setTap(tap.get());
    }
    pipeline_->setTimeShift(s_.tuning.timeShift.get());
    {
      MutexLock lock(s_.factsMutex);
      s_.stationFacts = belvane::detail::stationFactsFromHead(head);
    }
    connectionFrames_ = connectionAudioBytes_ = 0;
    const std::string* type = head.field("content-type");
    servedAsHTML_ = type && belvane::detail::mimeTypeWithoutParameters(*type) == "text/html";
    s_.buffer->setConnected();
    s_.connectionBroken = false;
    return 0;
  }

  void reconnecting(int) override {
    s_.reconnectAttempts.fetch_add(1);
    s_.connectionBroken = true;
  }

  int32_t body(std::span<const uint8_t> bytes) override {
    if (servedAsHTML_ && isMarkup(bytes)) return SHOUTSTREAMER_ERROR_WEB_PAGE;
    servedAsHTML_ = false;  // only the first bytes tell
    switch (pipeline_->feed(bytes)) {
      case StreamPipeline::Status::Ok: return 0;
      case StreamPipeline::Status::Stopped: return StreamConnection::kStop;
      case StreamPipeline::Status::Failed: return pipeline_->error();
    }
    return 0;
  }

  void connectionEnded() override {
    if (!pipeline_) return;
    pipeline_->handOverNow();
    pipeline_->finish();
    connectionFrames_ = pipeline_->framesDecoded();
    connectionAudioBytes_ = pipeline_->audioBytes();
  }

  bool hasPlayed() const override { return s_.buffer->framesAppended() >= s_.buffer->prebufferFrames(); }
  bool connectionPlayed() const override { return connectionFrames_ >= s_.buffer->prebufferFrames(); }
  int32_t silentEndError() const override {
    if (s_.buffer->framesAppended() > 0) return 0;
    return connectionAudioBytes_ > 0 ? SHOUTSTREAMER_ERROR_NOT_MPEG : SHOUTSTREAMER_ERROR_NO_AUDIO;
  }

  void title(belvane::detail::StreamTitle title) override {
    title.title = belvane::detail::stationTitleToUTF8(belvane::detail::bytesOf(title.title), s_.tuning.titleEncoding);
    title.url = belvane::detail::stationTitleToUTF8(belvane::detail::bytesOf(title.url), s_.tuning.titleEncoding);
    QLDebugLog(QL_LOG_DEBUG, "shoutstreamer: title '%s'", title.title.c_str());
    if (const auto& shift = s_.tuning.timeShift; shift && shift->diverting())
      shift->carryTitle(std::move(title));
    else
      s_.buffer->appendTitle(std::move(title));
  }

  void format(const belvane::detail::MpegDecoder::Format& format) override {
    BVDictionary facts = decodedFacts(format);
    MutexLock lock(s_.factsMutex);
    s_.decodedFacts = std::move(facts);
  }

  // While a pause waits for the decoder's hand-over, what it decodes is
  // carried to the time-shift instead (the buffer may stay full).
  bool audio(const float* interleaved, size_t frames, long sampleRate) override {
    const auto& shift = s_.tuning.timeShift;
    if (!(shift && shift->diverting()) && s_.buffer->appendAudio(interleaved, frames, sampleRate)) return true;
    if (!shift || !shift->diverting() || s_.buffer->closed()) return false;
    shift->carryAudio(interleaved, frames, sampleRate);
    return true;
  }

 private:
  shoutstreamer& s_;
  std::unique_ptr<StreamPipeline> pipeline_;
  uint64_t connectionFrames_ = 0;
  uint64_t connectionAudioBytes_ = 0;
  // Served as text/html (which Shoutcast servers also send for streams):
  // the first bytes tell a page from audio.
  bool servedAsHTML_ = false;

  static bool isMarkup(std::span<const uint8_t> bytes) {
    for (uint8_t byte : bytes) {
      if (byte == ' ' || byte == '\t' || byte == '\r' || byte == '\n') continue;
      return byte == '<';
    }
    return false;
  }
};

void networkMain(shoutstreamer* s) {
  belvane::detail::nameThisThread("bv-stream-net");
  StreamDecoder decoder(*s);
  StreamReader::Outcome outcome = s->reader->run(decoder);
  if (s->tuning.stationTap) s->tuning.stationTap->streamEnded();
  if (outcome.cancelled) return;
  if (const auto& shift = s->tuning.timeShift; shift && shift->wantsDecoder()) shift->handOver(nullptr, 0, {}, {});
  // Played from the ring: the feeder plays it out before the end.
  if (const auto& shift = s->tuning.timeShift; shift && shift->hasDecoder())
    shift->inputEnded(outcome.error);
  else
    s->buffer->finish(outcome.error);
}

void changeState(shoutstreamer* s, int& state, int newState) {
  if (state == newState) return;
  int old = state;
  state = newState;
  QLDebugLog(QL_LOG_DEBUG, "shoutstreamer: state %d -> %d", old, newState);
  if (s->stateCallback) s->stateCallback(s, old, newState);
}

void deliveryMain(shoutstreamer* s) {
  using Phase = StreamBuffer::Phase;
  using Event = StreamBuffer::Event;
  belvane::detail::nameThisThread("bv-stream-play");
  tDeliveringFor = s;
  {
    // No callback before start has stored the thread objects: a callback
    // may destroy the stream, which then detaches this thread.
    MutexLock lock(s->controlMutex);
    while (!s->threadsStored) lock.wait(s->controlChanged);
  }
  Phase phase = Phase::Connecting;
  int state = SHOUTSTREAMER_STATE_ENDED;
  changeState(s, state, SHOUTSTREAMER_STATE_CONNECTING);
  // While refilling after an underrun: when the refill is reported as
  // buffering, unless it has ended by then.
  std::optional<Clock::time_point> reportRefillAt;
  bool done = false;
  while (!done) {
    Event event = reportRefillAt ? s->buffer->next(phase, *reportRefillAt) : s->buffer->next(phase);
    switch (event.kind) {
      case Event::Closed: done = true; break;
      case Event::Title:
        s->titleURL = std::move(event.title.url);
        if (s->titleCallback)
          s->titleCallback(s, event.title.title.data(), int32_t(event.title.title.size()), event.framesBeforeTitle);
        break;
      case Event::Connected:
        phase = Phase::Buffering;
        changeState(s, state, SHOUTSTREAMER_STATE_BUFFERING);
        break;
      case Event::StartPlaying:
        phase = Phase::Playing;
        reportRefillAt.reset();
        changeState(s, state, SHOUTSTREAMER_STATE_PLAYING);
        break;
      case Event::TimedOut:
        reportRefillAt.reset();
        changeState(s, state, SHOUTSTREAMER_STATE_BUFFERING);
        break;
      case Event::Flushed:
        if (s->tuning.timeShift) s->tuning.timeShift->flushReached();
        break;
      case Event::Audio:
        if (s->audioCallback) s->audioCallback(s, float(event.sampleRate), event.channels, int32_t(event.frames));
        s->buffer->consumed(event.frames);
        break;
      case Event::Underrun:
        QLDebugLog(QL_LOG_INFO, "shoutstreamer: buffer ran dry, refilling");
        phase = Phase::Buffering;
        reportRefillAt = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                            std::chrono::duration<double>(s->tuning.underrunReportDelay));
        break;
      case Event::Finished:
        reportRefillAt.reset();
        s->error = event.error;
        changeState(s, state, event.error ? SHOUTSTREAMER_STATE_FAILED : SHOUTSTREAMER_STATE_ENDED);
        done = true;
        break;
    }
  }
  if (s->freeWhenDelivered) {
    // destroy was called from a callback on this thread; finish it here.
    if (s->network.joinable()) s->network.join();
    s->delivery.detach();
    delete s;
  }
}

}  // namespace

namespace belvane::detail {

void shoutstreamerSetTuning(shoutstreamer_t streamer, const ShoutstreamerTuning& tuning) {
  if (streamer && !streamer->started) streamer->tuning = tuning;
}

BVDictionary shoutstreamerStationFacts(shoutstreamer_t streamer) {
  if (!streamer) return {};
  MutexLock lock(streamer->factsMutex);
  BVDictionary facts = streamer->stationFacts;
  for (const auto& [key, value] : streamer->decodedFacts) facts.insert_or_assign(key, value);
  return facts;
}

const std::string& shoutstreamerTitleURL(shoutstreamer_t streamer) {
  static const std::string none;
  return streamer ? streamer->titleURL : none;
}

ShoutstreamerReception shoutstreamerReception(shoutstreamer_t streamer) {
  if (!streamer) return {};
  ShoutstreamerReception reception;
  reception.reconnectAttempts = streamer->reconnectAttempts.load();
  reception.connectionBroken = streamer->connectionBroken.load();
  // The buffer is made at start, on the thread that starts the stream.
  reception.prebufferFill = streamer->buffer ? streamer->buffer->prebufferFill() : 0.0f;
  return reception;
}

}  // namespace belvane::detail

extern "C" {

shoutstreamer_t shoutstreamer_create(void) { return new (std::nothrow) shoutstreamer; }

int shoutstreamer_start(shoutstreamer_t s, const char* url, void* context,
                        shoutstreamer_state_callback_t stateCallback, shoutstreamer_audio_callback_t audioCallback,
                        shoutstreamer_other_callback_t, shoutstreamer_title_callback_t titleCallback) {
  if (!s) return SHOUTSTREAMER_ERROR_INTERNAL;
  if (s->started) return SHOUTSTREAMER_ERROR_ALREADY_STARTED;
  if (!url || !*url) return SHOUTSTREAMER_ERROR_BAD_URL;
  s->started = true;
  s->url = url;
  s->delegate.context = context;
  s->stateCallback = stateCallback;
  s->audioCallback = audioCallback;
  s->titleCallback = titleCallback;
  s->buffer = std::make_unique<StreamBuffer>(s->tuning.bufferFrames, s->tuning.prebufferSeconds,
                                             s->tuning.maxCallbackFrames);
  StreamReaderPolicy policy;
  policy.connectTimeout = s->tuning.connectTimeout;
  policy.stallTimeout = s->tuning.stallTimeout;
  policy.reconnectWindow = s->tuning.reconnectWindow;
  policy.reconnectFirstDelay = s->tuning.reconnectFirstDelay;
  policy.reconnectMaxDelay = s->tuning.reconnectMaxDelay;
  policy.requestSettings = s->tuning.requestSettings;
  policy.alternates = s->tuning.alternates;
  s->reader = std::make_unique<StreamReader>(s->url, policy);
  if (s->tuning.timeShift)
    s->tuning.timeShift->attach(s->buffer.get(), [s](const belvane::detail::MpegDecoder::Format& format) {
      BVDictionary facts = decodedFacts(format);
      MutexLock lock(s->factsMutex);
      s->decodedFacts = std::move(facts);
    });
  QLDebugLog(QL_LOG_INFO, "shoutstreamer: starting %s", url);
  int result = 0;
  try {
    s->network = std::thread(networkMain, s);
    s->delivery = std::thread(deliveryMain, s);
  } catch (const std::system_error&) {
    s->buffer->close();
    s->reader->cancel();
    result = SHOUTSTREAMER_ERROR_INTERNAL;
  }
  {
    MutexLock lock(s->controlMutex);
    s->threadsStored = true;
  }
  s->controlChanged.notify_all();
  if (result && s->network.joinable()) s->network.join();
  return result;
}

shoutstreamer_delegate_t* shoutstreamer_delegate(shoutstreamer_t s) { return s ? &s->delegate : nullptr; }

int32_t shoutstreamer_status(shoutstreamer_t s, int32_t* errorCode) {
  int32_t code = s ? s->error.load() : 0;
  if (errorCode) *errorCode = code;
  return code;
}

void shoutstreamer_set_interrupt_callback(shoutstreamer_t s, shoutstreamer_interrupt_callback_t callback) {
  if (s && !s->started) s->interruptCallback = callback;
}

void shoutstreamer_destroy(shoutstreamer_t s) {
  if (!s) return;
  if (s->started) {
    s->reader->cancel();
    s->buffer->close();
    if (tDeliveringFor == s) {
      s->freeWhenDelivered = true;
      return;
    }
    if (s->interruptCallback) s->interruptCallback(s);
    if (s->delivery.joinable()) s->delivery.join();
    if (s->network.joinable()) s->network.join();
  }
  delete s;
}

}  // extern "C"
