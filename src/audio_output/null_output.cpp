// The "null" outputs: frames go nowhere. Paced, it behaves like a sound card
// with a buffer of deviceSeconds, playing frames at the sample rate by the
// monotonic clock (the writer waits for room just as it would on a
// device); "null:fast" takes everything at once.
#include "audio_output/output_backend.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace belvane::detail {
namespace {

using Clock = std::chrono::steady_clock;

class NullOutput final : public OutputBackend {
 public:
  NullOutput(bool paced, double deviceSeconds, std::shared_ptr<OutputSession> session)
      : paced_(paced), deviceSeconds_(deviceSeconds), session_(std::move(session)) {}

  const char* name() const override { return paced_ ? "null" : "null:fast"; }
  bool paced() const override { return paced_; }
  // Its only wait is the session's interruptible sleep.
  bool writableByCaller() const override { return true; }
  bool discardsSamples() const override { return true; }
  Clock::time_point playedOutAt() const override {
    return paced_ && clockRunning_ ? std::max(Clock::now(), timeOf(written_)) : Clock::now();
  }

  int open(unsigned rate) override {
    rate_ = rate;
    written_ = 0;
    clockRunning_ = false;
    return 0;
  }

  bool write(const float*, size_t frames) override {
    if (!paced_) return true;
    Clock::time_point now = Clock::now();
    // The device starts playing at the first write, and after an underrun
    // (everything written has been played) it starts again from now.
    if (!clockRunning_ || now >= timeOf(written_)) {
      if (clockRunning_) ++underruns_;
      origin_ = now - toDuration(static_cast<double>(written_) / rate_);
      clockRunning_ = true;
    }
    // Room for these frames once all but deviceSeconds of them have played.
    Clock::time_point accepted = timeOf(written_ + frames) - toDuration(deviceSeconds_);
    if (accepted > now) {
      // Full: sleep until a fifth of the buffer is left (longer if these
      // frames need more room), so that the thread wakes once per few
      // writes rather than once per write.
      Clock::time_point mostlyPlayed = timeOf(written_) - toDuration(deviceSeconds_ / 5);
      if (!session_->sleepUntil(std::max(accepted, mostlyPlayed))) return false;
    }
    written_ += frames;
    return true;
  }

  void drain() override {
    if (paced_ && clockRunning_) session_->sleepUntil(timeOf(written_));
  }

  int changeRate(unsigned rate) override { return open(rate); }
  uint64_t takeUnderruns() override { return std::exchange(underruns_, 0); }

 private:
  static Clock::duration toDuration(double seconds) {
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
  }
  Clock::time_point timeOf(uint64_t frame) const {
    return origin_ + toDuration(static_cast<double>(frame) / rate_);
  }

  bool paced_;
  double deviceSeconds_;
  std::shared_ptr<OutputSession> session_;
  Clock::time_point origin_;  // when frame 0 started playing
  uint64_t written_ = 0;      // frames handed over since the last (re)start at this rate
  bool clockRunning_ = false;
  uint64_t underruns_ = 0;
};

}  // namespace

std::unique_ptr<OutputBackend> makeNullOutput(bool paced, double deviceSeconds, std::shared_ptr<OutputSession> session) {
  return std::make_unique<NullOutput>(paced, deviceSeconds, std::move(session));
}

}  // namespace belvane::detail
