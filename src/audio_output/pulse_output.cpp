// The "pulse" output: a PulseAudio playback stream through libpulse-simple
// (PipeWire serves it too). The stream asks the server for a short target
// buffer so that what the player has handed over is heard soon after.
#include <pulse/error.h>
#include <pulse/simple.h>

#include "audio_output/orplayer.h"
#include "audio_output/output_backend.h"
#include "audio_output/output_log.h"

namespace belvane::detail {
namespace {

class PulseOutput final : public OutputBackend {
 public:
  explicit PulseOutput(double deviceSeconds) : deviceSeconds_(deviceSeconds) {}
  ~PulseOutput() override { close(); }

  const char* name() const override { return "pulse"; }
  bool paced() const override { return true; }

  int open(unsigned rate) override {
    close();
    rate_ = rate;
    pa_sample_spec sampleSpec{};
    sampleSpec.format = PA_SAMPLE_FLOAT32NE;
    sampleSpec.rate = rate;
    sampleSpec.channels = 2;
    pa_buffer_attr attr{};
    attr.maxlength = static_cast<uint32_t>(-1);
    attr.tlength = static_cast<uint32_t>(pa_usec_to_bytes(static_cast<pa_usec_t>(deviceSeconds_ * 1e6), &sampleSpec));
    attr.prebuf = static_cast<uint32_t>(-1);
    attr.minreq = static_cast<uint32_t>(-1);
    attr.fragsize = static_cast<uint32_t>(-1);
    int error = 0;
    stream_ = pa_simple_new(nullptr, "Belvane", PA_STREAM_PLAYBACK, nullptr, "Radio stream", &sampleSpec, nullptr, &attr,
                            &error);
    if (!stream_) {
      outputLog(QL_LOG_INFO, "PulseAudio unavailable: %s", pa_strerror(error));
      failureReason_ = std::string("no PulseAudio (or PipeWire) server answered (") + pa_strerror(error) + ")";
      return ORPLAYER_ERROR_PULSE;
    }
    return 0;
  }

  bool write(const float* interleaved, size_t frames) override {
    int error = 0;
    if (stream_ && pa_simple_write(stream_, interleaved, frames * 2 * sizeof(float), &error) == 0) return true;
    if (stream_) outputLog(QL_LOG_ERROR, "PulseAudio write failed: %s", pa_strerror(error));
    return false;
  }

  void drain() override {
    int error = 0;
    if (stream_ && pa_simple_drain(stream_, &error) < 0)
      outputLog(QL_LOG_WARNING, "PulseAudio drain failed: %s", pa_strerror(error));
  }

  void discard() override {
    int error = 0;
    if (stream_) pa_simple_flush(stream_, &error);
  }

  int changeRate(unsigned rate) override { return open(rate); }
  bool recover() override { return open(rate_) == 0; }

 private:
  void close() {
    if (stream_) pa_simple_free(stream_);
    stream_ = nullptr;
  }

  double deviceSeconds_;
  pa_simple* stream_ = nullptr;
};

}  // namespace

std::unique_ptr<OutputBackend> makePulseOutput(double deviceSeconds) {
  return std::make_unique<PulseOutput>(deviceSeconds);
}

}  // namespace belvane::detail
