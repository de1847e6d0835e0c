// The "pulse" output: a PulseAudio playback stream (PipeWire serves it too)
// through libpulse's asynchronous API, on a threaded main loop of its own.
//
// The asynchronous API rather than libpulse-simple, because a stream must be
// able to change sinks while it plays (pa_context_move_sink_input_by_name)
// and the player must hear when the server moves it: a sink that goes away
// (a USB headset unplugged) or a new system default moves the stream, and
// the moved callback reports the sink it plays on now. A stream opened
// without a sink follows the system default; one that lost its sink plays on
// wherever the server put it, or, when the server ended it instead, is
// reopened on the default by recover().
//
// The stream asks the server for a short target buffer so that what the
// player has handed over is heard soon after. The writing thread (the
// player's output thread) holds the main loop's lock while it talks to the
// stream and waits on the loop's signal for room; the loop's callbacks only
// signal and note the sink.
#include <pulse/error.h>
#include <pulse/pulseaudio.h>

#include <cstring>
#include <mutex>

#include "audio_output/orplayer.h"
#include "audio_output/output_backend.h"
#include "audio_output/output_log.h"

namespace belvane::detail {
namespace {

class PulseOutput final : public OutputBackend {
 public:
  PulseOutput(double deviceSeconds, std::string sink) : deviceSeconds_(deviceSeconds), sink_(std::move(sink)) {}
  ~PulseOutput() override { close(); }

  const char* name() const override { return "pulse"; }
  bool paced() const override { return true; }
  std::string device() const override {
    std::lock_guard lock(deviceMutex_);
    return "pulse:" + playingOn_;
  }

  int open(unsigned rate) override {
    close();
    rate_ = rate;
    if (!connect()) return fail("no PulseAudio (or PipeWire) server answered");
    if (!openStream(sink_.empty() ? nullptr : sink_.c_str()))
      return fail(sink_.empty() ? std::string("the PulseAudio server refused a playback stream")
                                : "the PulseAudio sink " + sink_ + " cannot be played to");
    return 0;
  }

  bool write(const float* interleaved, size_t frames) override {
    if (!loop_) return false;
    const auto* bytes = reinterpret_cast<const uint8_t*>(interleaved);
    size_t left = frames * 2 * sizeof(float);
    pa_threaded_mainloop_lock(loop_);
    while (left > 0) {
      if (!streamReady()) {
        pa_threaded_mainloop_unlock(loop_);
        outputLog(QL_LOG_ERROR, "PulseAudio stream ended: %s", pa_strerror(pa_context_errno(context_)));
        return false;
      }
      size_t room = pa_stream_writable_size(stream_);
      if (room == 0 || room == static_cast<size_t>(-1)) {
        pa_threaded_mainloop_wait(loop_);
        continue;
      }
      size_t n = std::min(room, left);
      if (pa_stream_write(stream_, bytes, n, nullptr, 0, PA_SEEK_RELATIVE) < 0) {
        pa_threaded_mainloop_unlock(loop_);
        outputLog(QL_LOG_ERROR, "PulseAudio write failed: %s", pa_strerror(pa_context_errno(context_)));
        return false;
      }
      bytes += n;
      left -= n;
    }
    pa_threaded_mainloop_unlock(loop_);
    return true;
  }

  void drain() override {
    if (!loop_) return;
    pa_threaded_mainloop_lock(loop_);
    if (streamReady() && !waitFor(pa_stream_drain(stream_, &PulseOutput::succeeded, this)))
      outputLog(QL_LOG_WARNING, "PulseAudio drain failed: %s", pa_strerror(pa_context_errno(context_)));
    pa_threaded_mainloop_unlock(loop_);
  }

  void discard() override {
    if (!loop_) return;
    pa_threaded_mainloop_lock(loop_);
    if (streamReady()) {
      if (pa_operation* op = pa_stream_flush(stream_, nullptr, nullptr)) pa_operation_unref(op);
    }
    pa_threaded_mainloop_unlock(loop_);
  }

  int changeRate(unsigned rate) override { return open(rate); }

  // A stream the server ended (its sink went away and nothing took it in):
  // reopened on the sink it was given, else on the system default.
  bool recover() override {
    if (open(rate_) == 0) return true;
    if (sink_.empty()) return false;
    outputLog(QL_LOG_WARNING, "PulseAudio sink \"%s\" is gone; playing to the default", sink_.c_str());
    sink_.clear();
    if (open(rate_) != 0) return false;
    deviceChanged(device());
    return true;
  }

  bool moveTo(const BVAudioOutputSetting& setting) override {
    if (setting.kind != BVAudioOutputSetting::Kind::Pulse || !loop_) return false;
    const std::string& sink = setting.device;
    // A stream moved by name stays on that sink; to follow the default again
    // it is opened afresh without one.
    if (sink.empty()) {
      sink_.clear();
      return open(rate_) == 0;
    }
    pa_threaded_mainloop_lock(loop_);
    bool moved = streamReady() &&
                 waitFor(pa_context_move_sink_input_by_name(context_, pa_stream_get_index(stream_), sink.c_str(),
                                                            &PulseOutput::contextSucceeded, this));
    pa_threaded_mainloop_unlock(loop_);
    if (!moved) {
      outputLog(QL_LOG_WARNING, "cannot move to PulseAudio sink \"%s\"", sink.c_str());
      return false;
    }
    sink_ = sink;
    setPlayingOn(sink);
    return true;
  }

 private:
  int fail(std::string reason) {
    const char* why = context_ ? pa_strerror(pa_context_errno(context_)) : "no main loop";
    outputLog(QL_LOG_INFO, "PulseAudio unavailable: %s (%s)", reason.c_str(), why);
    failureReason_ = reason + " (" + why + ")";
    close();
    return ORPLAYER_ERROR_PULSE;
  }

  bool connect() {
    loop_ = pa_threaded_mainloop_new();
    if (!loop_) return false;
    pa_proplist* props = pa_proplist_new();
    pa_proplist_sets(props, PA_PROP_APPLICATION_NAME, "Belvane");
    pa_proplist_sets(props, PA_PROP_MEDIA_ROLE, "music");
    context_ = pa_context_new_with_proplist(pa_threaded_mainloop_get_api(loop_), "Belvane", props);
    pa_proplist_free(props);
    if (!context_) return false;
    pa_context_set_state_callback(context_, &PulseOutput::signal, this);
    pa_threaded_mainloop_lock(loop_);
    bool ready = pa_context_connect(context_, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) >= 0 &&
                 pa_threaded_mainloop_start(loop_) >= 0;
    while (ready) {
      pa_context_state_t state = pa_context_get_state(context_);
      if (state == PA_CONTEXT_READY) break;
      if (!PA_CONTEXT_IS_GOOD(state)) ready = false;
      else pa_threaded_mainloop_wait(loop_);
    }
    pa_threaded_mainloop_unlock(loop_);
    return ready;
  }

  bool openStream(const char* sink) {
    pa_sample_spec sampleFormat{};
    sampleFormat.format = PA_SAMPLE_FLOAT32NE;
    sampleFormat.rate = rate_;
    sampleFormat.channels = 2;
    pa_buffer_attr attr{};
    attr.maxlength = static_cast<uint32_t>(-1);
    attr.tlength = static_cast<uint32_t>(pa_usec_to_bytes(static_cast<pa_usec_t>(deviceSeconds_ * 1e6), &sampleFormat));
    attr.prebuf = static_cast<uint32_t>(-1);
    attr.minreq = static_cast<uint32_t>(-1);
    attr.fragsize = static_cast<uint32_t>(-1);
    pa_threaded_mainloop_lock(loop_);
    stream_ = pa_stream_new(context_, "Radio stream", &sampleFormat, nullptr);
    bool ready = stream_ != nullptr;
    if (ready) {
      pa_stream_set_state_callback(stream_, &PulseOutput::streamSignal, this);
      pa_stream_set_write_callback(stream_, &PulseOutput::writable, this);
      pa_stream_set_moved_callback(stream_, &PulseOutput::moved, this);
      auto flags = static_cast<pa_stream_flags_t>(PA_STREAM_ADJUST_LATENCY | PA_STREAM_AUTO_TIMING_UPDATE);
      ready = pa_stream_connect_playback(stream_, sink, &attr, flags, nullptr, nullptr) >= 0;
    }
    while (ready) {
      pa_stream_state_t state = pa_stream_get_state(stream_);
      if (state == PA_STREAM_READY) break;
      if (!PA_STREAM_IS_GOOD(state)) ready = false;
      else pa_threaded_mainloop_wait(loop_);
    }
    if (ready) setPlayingOn(pa_stream_get_device_name(stream_));
    pa_threaded_mainloop_unlock(loop_);
    return ready;
  }

  bool streamReady() const {
    return stream_ && pa_stream_get_state(stream_) == PA_STREAM_READY &&
           pa_context_get_state(context_) == PA_CONTEXT_READY;
  }

  // Waits (the lock held) for an operation whose callback sets opSucceeded_.
  bool waitFor(pa_operation* op) {
    if (!op) return false;
    opSucceeded_ = false;
    while (pa_operation_get_state(op) == PA_OPERATION_RUNNING && streamReady()) pa_threaded_mainloop_wait(loop_);
    bool done = pa_operation_get_state(op) == PA_OPERATION_DONE && opSucceeded_;
    pa_operation_unref(op);
    return done;
  }

  void setPlayingOn(const char* sink) {
    std::lock_guard lock(deviceMutex_);
    playingOn_ = sink ? sink : "";
  }
  void setPlayingOn(const std::string& sink) { setPlayingOn(sink.c_str()); }

  static void signal(pa_context*, void* self) {
    pa_threaded_mainloop_signal(static_cast<PulseOutput*>(self)->loop_, 0);
  }
  static void streamSignal(pa_stream*, void* self) {
    pa_threaded_mainloop_signal(static_cast<PulseOutput*>(self)->loop_, 0);
  }
  static void writable(pa_stream*, size_t, void* self) {
    pa_threaded_mainloop_signal(static_cast<PulseOutput*>(self)->loop_, 0);
  }
  static void succeeded(pa_stream*, int success, void* self) { contextSucceeded(nullptr, success, self); }
  static void contextSucceeded(pa_context*, int success, void* self) {
    auto* output = static_cast<PulseOutput*>(self);
    output->opSucceeded_ = success != 0;
    pa_threaded_mainloop_signal(output->loop_, 0);
  }
  // The server moved the stream (its sink went away, or the default
  // changed): note the new sink and tell the player.
  static void moved(pa_stream* stream, void* self) {
    auto* output = static_cast<PulseOutput*>(self);
    const char* sink = pa_stream_get_device_name(stream);
    outputLog(QL_LOG_INFO, "PulseAudio moved the stream to \"%s\"", sink ? sink : "?");
    output->setPlayingOn(sink);
    output->deviceChanged(output->device());
  }

  void close() {
    if (loop_) pa_threaded_mainloop_stop(loop_);
    if (stream_) {
      pa_stream_disconnect(stream_);
      pa_stream_unref(stream_);
      stream_ = nullptr;
    }
    if (context_) {
      pa_context_disconnect(context_);
      pa_context_unref(context_);
      context_ = nullptr;
    }
    if (loop_) pa_threaded_mainloop_free(loop_);
    loop_ = nullptr;
  }

  double deviceSeconds_;
  std::string sink_;  // asked for; empty: the system default
  pa_threaded_mainloop* loop_ = nullptr;
  pa_context* context_ = nullptr;
  pa_stream* stream_ = nullptr;
  bool opSucceeded_ = false;  // under the loop's lock
  mutable std::mutex deviceMutex_;
  std::string playingOn_;  // the sink the stream plays on, as the server names it
};

}  // namespace

std::unique_ptr<OutputBackend> makePulseOutput(double deviceSeconds, const std::string& sink) {
  return std::make_unique<PulseOutput>(deviceSeconds, sink);
}

}  // namespace belvane::detail
