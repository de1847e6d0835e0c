// The shoutstreamer C interface: a network thread that connects, decodes
// and reconnects, and a delivery thread that makes every callback.
#include "streaming/shoutstreamer.h"

#include "foundation/text_encoding.h"
#include "foundation/title_encoding.h"
#include "foundation/thread_name.h"
#include "streaming/QLDebug.h"
#include "streaming/held_stream.h"
#include "streaming/shoutstreamer_buffer.h"
#include "streaming/shoutstreamer_connection.h"
#include "streaming/shoutstreamer_pipeline.h"
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

using belvane::detail::HeldStream;
using belvane::detail::PipelineSink;
using belvane::detail::ShoutstreamerTuning;
using belvane::detail::StreamBuffer;
using belvane::detail::StreamConnection;
using belvane::detail::StreamPipeline;
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

  // Guards the current connection and the reconnection pause, so destroy
  // can cut either short.
  std::mutex controlMutex;
  std::condition_variable controlChanged;
  bool stopping = false;
  bool threadsStored = false;  // start has stored both thread objects
  StreamConnection* connection = nullptr;
  // The tuner's open reply for this address, taken at start; the first
  // connection reads from it instead of asking the server again.
  std::shared_ptr<HeldStream> held;
};

namespace {

using Clock = std::chrono::steady_clock;

// The stream whose delivery thread this is, so destroy can tell when it is
// called from inside a callback.
thread_local shoutstreamer* tDeliveringFor = nullptr;

struct ConnectionOutcome {
  StreamConnection::Result result;
  uint64_t framesDecoded = 0;
  uint64_t audioBytes = 0;
};

// Handles one connection: the head starts the pipeline, the payload runs
// through it into the buffer.
class ConnectionHandler final : public StreamConnection::Handler, public PipelineSink {
 public:
  explicit ConnectionHandler(shoutstreamer& s) : s_(s) {}

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
    s_.buffer->setConnected();
    return 0;
  }

  int32_t body(std::span<const uint8_t> bytes) override {
    switch (pipeline_->feed(bytes)) {
      case StreamPipeline::Status::Ok: return 0;
      case StreamPipeline::Status::Stopped: return StreamConnection::kStop;
      case StreamPipeline::Status::Failed: return pipeline_->error();
    }
    return 0;
  }

  void title(std::string bytes) override {
    bytes = belvane::detail::stationTitleToUTF8(belvane::detail::bytesOf(bytes));
    QLDebugLog(QL_LOG_DEBUG, "shoutstreamer: title '%s'", bytes.c_str());
    s_.buffer->appendTitle(std::move(bytes));
  }

  bool audio(const float* interleaved, size_t frames, long sampleRate) override {
    return s_.buffer->appendAudio(interleaved, frames, sampleRate);
  }

  void finish(ConnectionOutcome& outcome) {
    if (!pipeline_) return;
    pipeline_->finish();
    outcome.framesDecoded = pipeline_->framesDecoded();
    outcome.audioBytes = pipeline_->audioBytes();
  }

 private:
  shoutstreamer& s_;
  std::unique_ptr<StreamPipeline> pipeline_;
};

ConnectionOutcome connectOnce(shoutstreamer& s, double connectTimeout) {
  ConnectionOutcome outcome;
  std::shared_ptr<HeldStream> held = std::move(s.held);
  StreamConnection connection = held ? StreamConnection(s.url, std::move(held), s.tuning.stallTimeout)
                                     : StreamConnection(s.url, connectTimeout, s.tuning.stallTimeout);
  {
    std::lock_guard lock(s.controlMutex);
    if (s.stopping) {
      outcome.result.cancelled = true;
      return outcome;
    }
    s.connection = &connection;
  }
  ConnectionHandler handler(s);
  outcome.result = connection.run(handler);
  {
    std::lock_guard lock(s.controlMutex);
    s.connection = nullptr;
  }
  handler.finish(outcome);
  return outcome;
}

// Sleeps, unless destroy comes first; false then.
bool pause(shoutstreamer& s, double seconds) {
  std::unique_lock lock(s.controlMutex);
  return !s.controlChanged.wait_for(lock, std::chrono::duration<double>(seconds), [&] { return s.stopping; });
}

bool stopping(shoutstreamer& s) {
  std::lock_guard lock(s.controlMutex);
  return s.stopping;
}

// Whether an outcome is a break in a live stream (worth reconnecting once
// it has played) rather than an end or a failure of the stream itself.
bool isDrop(const StreamConnection::Result& result) {
  if (result.error == 0) return !result.declaredEnd;
  return result.error == SHOUTSTREAMER_ERROR_CONNECTION_LOST || result.error == SHOUTSTREAMER_ERROR_TIMED_OUT;
}

// The code for a connection that ended without audio and without an error.
int32_t errorForSilentEnd(const ConnectionOutcome& outcome) {
  return outcome.audioBytes > 0 ? SHOUTSTREAMER_ERROR_NOT_MPEG : SHOUTSTREAMER_ERROR_NO_AUDIO;
}

// Tries to reconnect after a drop, for the reconnection window. Returns the
// outcome of the connection that played again (it has ended by then), or
// nothing (with *error set) when every try failed or destroy came.
std::optional<ConnectionOutcome> reconnect(shoutstreamer& s, int32_t* error) {
  const auto deadline = Clock::now() + std::chrono::duration<double>(s.tuning.reconnectWindow);
  auto remaining = [&] { return std::chrono::duration<double>(deadline - Clock::now()).count(); };
  double delay = s.tuning.reconnectFirstDelay;
  int attempt = 0;
  while (remaining() > 0) {
    if (!pause(s, std::min(delay, remaining()))) return std::nullopt;
    if (remaining() <= 0) break;
    ++attempt;
    QLDebugLog(QL_LOG_INFO, "shoutstreamer: reconnecting to %s (try %d)", s.url.c_str(), attempt);
    ConnectionOutcome outcome = connectOnce(s, std::min(s.tuning.connectTimeout, std::max(remaining(), 0.5)));
    if (outcome.result.cancelled) return std::nullopt;
    // A server that sends a scrap of audio and hangs up again has not
    // come back; that try counts as failed.
    if (outcome.framesDecoded >= s.buffer->prebufferFrames()) return outcome;
    *error = outcome.result.error ? outcome.result.error : errorForSilentEnd(outcome);
    delay *= 2;
  }
  return std::nullopt;
}

void networkMain(shoutstreamer* s) {
  belvane::detail::nameThisThread("bv-stream-net");
  ConnectionOutcome outcome = connectOnce(*s, s->tuning.connectTimeout);
  while (!outcome.result.cancelled && !stopping(*s)) {
    const auto& result = outcome.result;
    uint64_t decoded = s->buffer->framesAppended();
    bool playedEnough = decoded >= s->buffer->prebufferFrames();
    if (!isDrop(result) || !playedEnough) {
      // A stream that closed before playback started plays what it has.
      int32_t error = result.error;
      if (error == 0 && decoded == 0) error = errorForSilentEnd(outcome);
      if (error) {
        char* text = shoutstreamer_error_as_string(error);
        QLDebugLog(QL_LOG_ERROR, "shoutstreamer: %s failed: %s", s->url.c_str(), text ? text : "unknown error");
        std::free(text);
      }
      s->buffer->finish(error);
      return;
    }
    QLDebugLog(QL_LOG_WARNING, "shoutstreamer: %s dropped after %llu frames", s->url.c_str(),
               static_cast<unsigned long long>(decoded));
    int32_t error = result.error ? result.error : SHOUTSTREAMER_ERROR_CONNECTION_LOST;
    auto resumed = reconnect(*s, &error);
    if (!resumed) {
      if (!stopping(*s)) {
        QLDebugLog(QL_LOG_ERROR, "shoutstreamer: %s could not be reconnected", s->url.c_str());
        s->buffer->finish(error);
      }
      return;
    }
    outcome = *resumed;
  }
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
    std::unique_lock lock(s->controlMutex);
    s->controlChanged.wait(lock, [&] { return s->threadsStored; });
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
        if (s->titleCallback)
          s->titleCallback(s, event.title.data(), int32_t(event.title.size()), event.framesBeforeTitle);
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
  s->held = HeldStream::take(s->url);
  QLDebugLog(QL_LOG_INFO, "shoutstreamer: starting %s", url);
  int result = 0;
  try {
    s->network = std::thread(networkMain, s);
    s->delivery = std::thread(deliveryMain, s);
  } catch (const std::system_error&) {
    s->buffer->close();
    std::lock_guard lock(s->controlMutex);
    s->stopping = true;
    if (s->connection) s->connection->cancel();
    result = SHOUTSTREAMER_ERROR_INTERNAL;
  }
  {
    std::lock_guard lock(s->controlMutex);
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
    {
      std::lock_guard lock(s->controlMutex);
      s->stopping = true;
      if (s->connection) s->connection->cancel();
    }
    s->controlChanged.notify_all();
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
