// The "alsa" output: an ALSA PCM ("default" unless named), interleaved 32-bit float (the
// plug layer converts for the card), with a short device buffer.
#include <alsa/asoundlib.h>

#include "audio_output/orplayer.h"
#include "audio_output/output_backend.h"
#include "audio_output/output_log.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>

namespace belvane::detail {
namespace {

// ALSA's library writes its own diagnostics to stderr ("ALSA lib pcm.c:...
// Unknown PCM default" on a machine without a card), where they would reach
// the listener's terminal. They go to the output log, at the debug level,
// instead; the failure itself is logged and returned as an error code.
void alsaLibraryMessage(const char* file, int line, const char* function, int error, const char* format, ...) {
  if (QLDebugLogLevel() < QL_LOG_DEBUG) return;
  char message[512];
  va_list args;
  va_start(args, format);
  vsnprintf(message, sizeof message, format, args);
  va_end(args);
  outputLog(QL_LOG_DEBUG, "ALSA lib %s:%d:(%s) %s%s%s", file, line, function, message, error ? ": " : "",
            error ? snd_strerror(error) : "");
}

void routeALSAMessagesToLog() {
  static std::once_flag once;
  std::call_once(once, [] { snd_lib_error_set_handler(alsaLibraryMessage); });
}

class AlsaOutput final : public OutputBackend {
 public:
  AlsaOutput(double deviceSeconds, std::string device)
      : deviceSeconds_(deviceSeconds), device_(device.empty() ? "default" : std::move(device)) {}
  ~AlsaOutput() override { close(); }

  const char* name() const override { return "alsa"; }
  bool paced() const override { return true; }
  std::string device() const override { return "alsa:" + device_; }

  int open(unsigned rate) override {
    close();
    rate_ = rate;
    routeALSAMessagesToLog();
    int error = snd_pcm_open(&pcm_, device_.c_str(), SND_PCM_STREAM_PLAYBACK, 0);
    if (error < 0) {
      pcm_ = nullptr;
      outputLog(QL_LOG_INFO, "ALSA device \"%s\" unavailable: %s", device_.c_str(), snd_strerror(error));
      failureReason_ = (device_ == "default" ? std::string("no ALSA sound device could be opened (")
                                             : "the ALSA sound device " + device_ + " could not be opened (") +
                       snd_strerror(error) + ")";
      return ORPLAYER_ERROR_ALSA;
    }
    error = snd_pcm_set_params(pcm_, SND_PCM_FORMAT_FLOAT, SND_PCM_ACCESS_RW_INTERLEAVED, 2, rate, 1,
                               static_cast<unsigned>(deviceSeconds_ * 1e6));
    if (error < 0) {
      outputLog(QL_LOG_WARNING, "ALSA cannot play stereo float at %u Hz: %s", rate, snd_strerror(error));
      failureReason_ = "the ALSA sound device cannot play stereo float audio at " + std::to_string(rate) + " Hz (" +
                       snd_strerror(error) + ")";
      close();
      return ORPLAYER_ERROR_ALSA;
    }
    return 0;
  }

  bool write(const float* interleaved, size_t frames) override {
    if (!pcm_) return false;
    while (frames > 0) {
      snd_pcm_sframes_t n = snd_pcm_writei(pcm_, interleaved, frames);
      if (n == -EAGAIN) continue;
      if (n < 0) {
        // An underrun or a suspend: prepare the device again and go on.
        int error = snd_pcm_recover(pcm_, static_cast<int>(n), 1);
        if (error < 0) {
          outputLog(QL_LOG_ERROR, "ALSA write failed: %s", snd_strerror(error));
          return false;
        }
        continue;
      }
      interleaved += n * 2;
      frames -= static_cast<size_t>(n);
    }
    return true;
  }

  void drain() override {
    if (!pcm_) return;
    snd_pcm_drain(pcm_);
    snd_pcm_prepare(pcm_);  // ready for more frames after the drain
  }

  void discard() override {
    if (pcm_) snd_pcm_drop(pcm_);
  }

  int changeRate(unsigned rate) override { return open(rate); }
  bool recover() override { return open(rate_) == 0; }

 private:
  void close() {
    if (pcm_) snd_pcm_close(pcm_);
    pcm_ = nullptr;
  }

  double deviceSeconds_;
  std::string device_;
  snd_pcm_t* pcm_ = nullptr;
};

}  // namespace

bool alsaCardPresent() {
  routeALSAMessagesToLog();
  int card = -1;
  return snd_card_next(&card) == 0 && card >= 0;
}

std::unique_ptr<OutputBackend> makeAlsaOutput(double deviceSeconds, const std::string& device) {
  return std::make_unique<AlsaOutput>(deviceSeconds, device);
}

}  // namespace belvane::detail
