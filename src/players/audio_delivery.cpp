// AudioDelivery: writing, title timing by frames, and gain (see audio_delivery.h).
#include "players/audio_delivery.h"

#include "audio_output/output_playback.h"
#include "audio_output/output_setting.h"

#include <belvane/BVBasePlayer.h>
#include <belvane/BVConstants.h>
#include <belvane/BVKitOwner.h>

#include <algorithm>
#include <chrono>
#include <cmath>

namespace belvane::detail {
namespace {
// How long the decoding thread lets the run loop take a due title before it
// writes on. A real-time device still holds more than this when a title
// falls due (its buffer is full then), so waiting costs no audio; a run loop
// that is free takes the title well within it, and the title then lands
// exactly on its first frame. An output that is not real-time (a file) can
// afford to wait longer.
constexpr auto kTitleHandOffWait = std::chrono::milliseconds(40);
constexpr auto kTitleHandOffWaitOffline = std::chrono::seconds(2);
// The longest wait for the device to take what was queued before a title.
constexpr auto kWrittenWait = std::chrono::milliseconds(2000);
// The most the output (its queue and the device, at low latency) holds ahead
// of the listener, with room for a device that asks for a little more.
constexpr auto kMostHeldAhead = std::chrono::milliseconds(500);
}  // namespace

std::shared_ptr<AudioDelivery> AudioDelivery::create() { return std::shared_ptr<AudioDelivery>(new AudioDelivery()); }

AudioDelivery::AudioDelivery() : loop_(BVRunLoop::current()) {
  output_ = orplayer_create();
  orplayer_options_t options{};
  options.flags = ORPLAYER_OPTION_LOW_LATENCY;
  orplayer_set_options(output_, &options);
  orplayer_set_device_listener(output_, &AudioDelivery::outputDeviceChanged, this);
  orplayer_set_drained_listener(output_, &AudioDelivery::outputDrained, this);
}

AudioDelivery::~AudioDelivery() {
  setClient(nullptr);
  orplayer_destroy(output_);
}

void AudioDelivery::setClient(AudioDeliveryClient* client) {
  std::lock_guard lock(clientMutex_);
  client_ = client;
}

AudioDeliveryClient* AudioDelivery::client() const {
  std::lock_guard lock(clientMutex_);
  return client_;
}

void AudioDelivery::useCurrentRunLoop() {
  std::lock_guard lock(clientMutex_);
  loop_ = BVRunLoop::current();
  loopThread_ = std::this_thread::get_id();
}

void AudioDelivery::setOutput(const BVAudioOutputSetting& setting) { setOutputSetting(output_, setting); }

const char* AudioDelivery::outputName() const { return orplayer_output_name(output_); }
uint64_t AudioDelivery::framesWritten() const { return orplayer_frames_written(output_); }
uint64_t AudioDelivery::underruns() const { return orplayer_underruns(output_); }

// ---- the device in use, and its changes ---------------------------------------------

// Belvane's own code for an output's, in BVBelvaneErrorDomain, with the
// sentence the listener reads.
BVErrorRef AudioDelivery::outputError(int orplayerCode, const std::string& sentence) {
  int32_t code = BVAudioOutputErrorNoOutput;
  switch (orplayerCode) {
    case ORPLAYER_ERROR_BAD_SPEC: code = BVAudioOutputErrorSetting; break;
    case ORPLAYER_ERROR_WAV_FILE: code = BVAudioOutputErrorWavFile; break;
    case ORPLAYER_ERROR_PULSE: code = BVAudioOutputErrorSoundServer; break;
    case ORPLAYER_ERROR_ALSA: code = BVAudioOutputErrorSoundCard; break;
    case ORPLAYER_ERROR_THREAD: code = BVAudioOutputErrorThread; break;
    default: break;
  }
  BVDictionary info{{BVLocalizedDescriptionKey, BVValue(sentence)}, {BVDoNotReportToRadioTimeErrorKey, BVValue("")}};
  return BVError::create(BVBelvaneErrorDomain, code, std::move(info));
}

void AudioDelivery::setPlayback(std::shared_ptr<OutputPlayback> playback) {
  setOutputPlayback(output_, std::move(playback));
}

std::string AudioDelivery::outputDevice() const {
  std::string device(orplayer_output_device(output_, nullptr, 0), '\0');
  orplayer_output_device(output_, device.data(), device.size() + 1);
  return device;
}

void AudioDelivery::checkOutputFailure() {
  if (failureTold_.load(std::memory_order_relaxed)) return;
  char reason[512];
  int code = orplayer_output_failure(output_, reason, sizeof reason);
  if (code == 0 || failureTold_.exchange(true)) return;
  auto error = outputError(code, "The audio output failed: " + std::string(reason) + ".");
  std::lock_guard lock(clientMutex_);
  loop_.perform(weak_from_this(), [this, error] {
    if (auto* c = client()) c->audioDeliveryOutputFailed(error);
  });
}

void AudioDelivery::outputDeviceChanged(const char* device, void* self) {
  auto* delivery = static_cast<AudioDelivery*>(self);
  std::lock_guard lock(delivery->clientMutex_);
  delivery->loop_.perform(delivery->weak_from_this(), [delivery, name = std::string(device)] {
    if (auto* c = delivery->client()) c->audioDeliveryOutputChanged(name);
  });
}

void AudioDelivery::outputDrained(double seconds, void* self) {
  auto* delivery = static_cast<AudioDelivery*>(self);
  const uint64_t ticket = delivery->drainTicket_.load();
  std::lock_guard lock(delivery->clientMutex_);
  auto tell = [delivery, ticket] { delivery->tellDrained(ticket); };
  if (seconds > 0)
    delivery->loop_.performAfterDelay(seconds, delivery->weak_from_this(), tell);  // a known end, not a poll
  else
    delivery->loop_.perform(delivery->weak_from_this(), tell);
}

// On the run loop.
void AudioDelivery::tellDrained(uint64_t ticket) {
  if (ticket != drainTicket_.load() || !drainPending_.exchange(false)) return;
  if (auto* c = client()) c->audioDeliveryDrained();
}

std::chrono::steady_clock::time_point AudioDelivery::audioRunsOutAt() const {
  return std::chrono::steady_clock::time_point(std::chrono::steady_clock::duration(runsOutAt_.load()));
}

int AudioDelivery::start() {
  ++drainTicket_;
  drainPending_ = false;
  interrupted_ = false;
  failureTold_ = false;
  haltedAtTitle_ = false;
  ending_ = false;
  runsOutAt_ = 0;
  // What an earlier run queued but dropped was never written: once nothing
  // is playing, count from what the output has taken.
  if (!orplayer_is_playing(output_)) framesQueued_ = orplayer_frames_written(output_);
  return orplayer_start(output_);
}

BVErrorRef AudioDelivery::startError(int code) const {
  // The listener reads why (the output's own reason), not the code.
  std::string reason = orplayer_failure_reason(output_);
  return outputError(code, "The audio output could not start" + (reason.empty() ? std::string() : ": " + reason) + ".");
}

void AudioDelivery::stop() {
  orplayer_stop(output_);
  // After the stop: a drained event the output told before it is stale.
  ++drainTicket_;
  drainPending_ = false;
}

bool AudioDelivery::isPlaying() const { return orplayer_is_playing(output_); }

void AudioDelivery::playDone() {
  ending_ = true;
  ++drainTicket_;
  drainPending_ = true;
  orplayer_play_done(output_);
}

void AudioDelivery::interrupt() {
  {
    std::lock_guard lock(ackMutex_);
    interrupted_ = true;
    ackCondition_.notify_all();
  }
  orplayer_stop(output_);  // also ends the decoding thread's waits on the output
  // A play-out asked for has ended here too: the client hears so.
  if (drainPending_) outputDrained(0, this);
}

// ---- volume and mute: muting remembers the gain to restore ----------------------

void AudioDelivery::setVolume(float volume) {
  if (volume < 0) return;
  if (isMuted())
    unmutedVolume_ = volume;
  else
    orplayer_set_gain(output_, volume);
}

float AudioDelivery::volume() const { return isMuted() ? unmutedVolume_ : orplayer_get_gain(output_); }

void AudioDelivery::fadeVolumeTo(float volume, double seconds) {
  if (volume < 0) return;
  if (isMuted())
    unmutedVolume_ = volume;
  else
    orplayer_ramp_gain(output_, volume, seconds);
}

bool AudioDelivery::isMuted() const { return unmutedVolume_ >= 0; }

void AudioDelivery::setMuted(bool muted) {
  if (muted) {
    if (isMuted()) return;
    unmutedVolume_ = orplayer_get_gain_target(output_);  // where a fade was going
    orplayer_set_gain(output_, 0.0f);
  } else {
    if (!isMuted()) return;
    orplayer_set_gain(output_, unmutedVolume_);
    unmutedVolume_ = -1.0f;
  }
}

// ---- decoding thread ---------------------------------------------------------------

// Hands a due title to the run loop, and gives the loop a moment to announce
// it before more audio is written (see kTitleHandOffWait).
void AudioDelivery::announce(StreamTitle title) {
  lastTitle_ = title.title;
  announcedAny_ = true;
  auto shared = std::make_shared<const StreamTitle>(std::move(title));
  uint64_t ticket;
  {
    std::lock_guard lock(ackMutex_);
    ticket = ++titlesSent_;
  }
  bool onLoopThread;
  {
    std::lock_guard lock(clientMutex_);
    onLoopThread = loopThread_ == std::this_thread::get_id();
    loop_.perform(weak_from_this(), [this, shared, ticket] {
      if (auto* c = client()) c->audioDeliveryTitleDue(shared);
      std::lock_guard lock(ackMutex_);
      titlesAnnounced_ = std::max(titlesAnnounced_, ticket);
      ackCondition_.notify_all();
    });
  }
  if (onLoopThread) return;  // waiting would only time out
  std::unique_lock lock(ackMutex_);
  auto wait = orplayer_is_real_time(output_) ? std::chrono::duration_cast<std::chrono::milliseconds>(kTitleHandOffWait)
                                             : std::chrono::duration_cast<std::chrono::milliseconds>(kTitleHandOffWaitOffline);
  ackCondition_.wait_for(lock, wait, [&] { return interrupted_ || titlesAnnounced_ >= ticket; });
}

void AudioDelivery::title(const StreamTitle& title, int32_t framesBuffered) {
  if (framesBuffered < 0) return;
  if (framesBuffered == 0) {
    // Its audio comes next: announce it once what was written has been taken.
    waitUntilWritten();
    if (stopsAtTitle(title)) return;
    announce(title);
    return;
  }
  if (!pending_.empty()) {
    // The frames still to be written before the last pending title: the
    // countdown to the first, plus the spacing of those after it. Entries
    // after the first hold their distance from the title before them.
    int64_t ahead = framesBuffered_;
    for (size_t i = 1; i < pending_.size(); ++i) ahead += pending_[i].framesBuffered;
    if (framesBuffered <= ahead) {
      BVLog("Stream player was given title '%s' to buffer for %i frames but is already buffering for %i frames.",
            title.title.c_str(), int(framesBuffered), int(ahead));
      return;
    }
    framesBuffered -= int32_t(ahead);
  } else {
    framesBuffered_ = framesBuffered;
  }
  pending_.push_back({title, framesBuffered});
}

void AudioDelivery::playOut() {
  ending_ = true;
  orplayer_play_done(output_);
  // Bounded: the queue and the device hold a fraction of a second. An
  // interrupt stops the output, which ends the wait.
  if (!interrupted_) orplayer_wait_drained(output_, int32_t(kWrittenWait.count()));
}

void AudioDelivery::forgetPendingTitles() {
  pending_.clear();
  framesBuffered_ = 0;
}

void AudioDelivery::write(float sampleRate, float** channels, int32_t frames) {
  if (haltedAtTitle_) return;
  if (framesBuffered_ == 0 || frames < 0 || framesBuffered_ - frames > 0) {
    writeRange(sampleRate, channels, 0, frames);
    if (framesBuffered_ != 0 && frames >= 0) framesBuffered_ -= frames;
    return;
  }
  // A title falls due within this block.
  framesBuffered_ -= frames;
  if (pending_.empty()) {
    writeRange(sampleRate, channels, 0, frames);
    framesBuffered_ = 0;
    BVLog("Error: was buffering frames, but there are no buffered titles.");
    return;
  }
  StreamTitle due = std::move(pending_.front().title);
  pending_.pop_front();
  int32_t dueAt = frames + framesBuffered_;  // where in the block the chosen title's audio starts
  while (!pending_.empty()) {
    framesBuffered_ += pending_.front().framesBuffered;
    if (framesBuffered_ > 0) break;
    dueAt = frames + framesBuffered_;
    due = std::move(pending_.front().title);
    pending_.pop_front();
  }
  if (framesBuffered_ < 0) framesBuffered_ = 0;
  dueAt = std::clamp(dueAt, 0, frames);
  // The listener hears the title change with its audio: write up to it, let
  // the output take that, announce, then write the rest.
  writeRange(sampleRate, channels, 0, dueAt);
  waitUntilWritten();
  if (stopsAtTitle(due)) return;
  announce(std::move(due));
  writeRange(sampleRate, channels, dueAt, frames - dueAt);
}

bool AudioDelivery::stopsAtTitle(const StreamTitle& title) {
  // The first title of a stream names what plays already: only a change
  // from an announced title is the next one.
  if (!stopAtNextTitle_ || !announcedAny_ || title.title == lastTitle_) return false;
  stopAtNextTitle_ = false;
  haltedAtTitle_ = true;
  forgetPendingTitles();
  playOut();
  std::lock_guard lock(clientMutex_);
  loop_.perform(weak_from_this(), [this] {
    if (auto* c = client()) c->audioDeliveryStoppedAtTitle();
  });
  return true;
}

// ---- time-shift: holding and dropping writes -----------------------------------

void AudioDelivery::setHeld(bool held) {
  std::lock_guard lock(ackMutex_);
  held_ = held;
  ackCondition_.notify_all();
}

void AudioDelivery::dropHeldWrite() {
  std::lock_guard lock(ackMutex_);
  dropWrites_ = true;
  ackCondition_.notify_all();
}

void AudioDelivery::flushed() {
  forgetPendingTitles();
  dropWrites_ = false;
}

// False when the write is to be dropped.
bool AudioDelivery::waitWhileHeld() {
  if (!held_ && !dropWrites_) return true;
  std::unique_lock lock(ackMutex_);
  ackCondition_.wait(lock, [&] { return !held_ || dropWrites_ || interrupted_; });
  return !dropWrites_ && !interrupted_;
}

// ---- decoding thread, continued ---------------------------------------------------

void AudioDelivery::writeRange(float sampleRate, float** channels, int32_t from, int32_t count) {
  if (count <= 0) return;
  if (!waitWhileHeld()) return;
  float* part[2] = {channels[0] + from, channels[1] ? channels[1] + from : nullptr};
  // Loudness normalisation measures and scales what goes out (no-op when off).
  unsigned rate = sampleRate >= 1 && sampleRate <= 768000 ? unsigned(std::lround(sampleRate)) : 0;
  float** normalised = loudness_->process(rate, part, size_t(count));
  orplayer_play_wait(output_, sampleRate, normalised, count);
  checkOutputFailure();
  framesQueued_.fetch_add(uint64_t(count), std::memory_order_relaxed);
  if (sampleRate > 0) lastSampleRate_ = sampleRate;
  // The write returned once the output had room, so what it holds ahead of
  // now is at most its queue and device buffer: the estimate accumulates the
  // lengths written but never runs further ahead than that, which keeps a
  // device clock that drifts from ours (or an unpaced output) from pushing
  // it out of reach.
  using namespace std::chrono;
  auto now = steady_clock::now();
  auto length = duration_cast<steady_clock::duration>(duration<double>(count / double(lastSampleRate_)));
  auto previous = steady_clock::time_point(steady_clock::duration(runsOutAt_.load(std::memory_order_relaxed)));
  auto estimate = std::min(std::max(previous, now) + length, now + kMostHeldAhead);
  runsOutAt_.store(estimate.time_since_epoch().count(), std::memory_order_relaxed);
}

void AudioDelivery::waitUntilWritten() {
  // The output wakes this thread once it has handed the frames to the
  // device, or at once when it stops (an interrupt) or has nothing playing.
  if (interrupted_) return;
  orplayer_wait_written(output_, framesQueued_.load(std::memory_order_relaxed),
                        int32_t(kWrittenWait.count()));
}

}  // namespace belvane::detail
