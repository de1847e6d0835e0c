// orplayer: a bounded queue of stereo float frames, filled by
// orplayer_play_wait, and one output thread per started player that hands
// the frames to the chosen backend.
//
// The writer blocks while the queue holds its limit of audio; that wait is
// the stream's flow control. The queue and the device buffer are both kept
// short (ORPLAYER_OPTION_LOW_LATENCY), because callers announce stream titles
// once their audio has been accepted: what play_wait accepted is what is
// heard next.
//
// "Playing" (orplayer_is_playing) starts with the first frame queued after a
// start and lasts until orplayer_stop, or until orplayer_play_done has
// played everything out, the device's own buffer included. More frames after
// play_done simply start playing again. Nobody has to poll for either:
// orplayer_wait_written and orplayer_wait_drained block on the core's
// `progress` condition, which the output thread signals when it has written
// what a waiter wants and when a play-out ends, and the drained listener
// hears each play-out end (for a direct output, play_done names when).
//
// The outputs we implement ourselves ("null", "null:fast", "wav:PATH") get
// no thread: play_wait writes to them directly (the paced null output
// sleeps there, interruptibly, while its simulated device is full), and what
// it accepted has been written when it returns. Sound servers and cards have
// a queue and an output thread.
//
// Stopping and destroying never wait long for a backend: the output thread
// is given a short grace period, and one stuck in a sound server call is
// left to finish on its own (it holds its own reference to the shared state
// and no longer touches the queue).
#include "audio_output/orplayer.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

#include "audio_output/output_log.h"
#include "audio_output/output_playback.h"
#include "audio_output/output_setting.h"
#include "audio_output/player_core.h"

using namespace std::chrono_literals;
using belvane::detail::OutputSession;
using belvane::detail::outputLog;
using belvane::detail::PlayerCore;
using belvane::detail::recoverBackend;
using State = PlayerCore::State;

namespace {

constexpr float kMaxRate = 768000;
// The name of the silent output the automatic choice ends on when the
// machine has no sound server and no sound card.
constexpr const char* kSilentFallbackName = "null (no sound output found)";
// How long a stop waits for the output thread before leaving it behind.
constexpr auto kStopGrace = 2s;

}  // namespace

struct orplayer {
  std::shared_ptr<PlayerCore> core = std::make_shared<PlayerCore>();
  std::mutex control;  // serialises start, stop, destroy and the settings
  orplayer_options_t options{};
  BVAudioOutputSetting setting;           // set by orplayer_set_output; Default: none
  std::string failureReason;              // of the last start, guarded by control
  std::thread thread;
  std::shared_ptr<OutputSession> session;
  // An unpaced backend written by play_wait itself; guarded by `direct`.
  std::mutex direct;
  std::unique_ptr<belvane::detail::OutputBackend> directBackend;
  std::vector<float> directChunk;
};

namespace {

void stopLocked(orplayer* player) {
  PlayerCore& core = *player->core;
  bool direct;
  {
    std::lock_guard lock(core.mutex);
    if (!core.isOpen()) return;
    core.state = State::Idle;
    ++core.session;
    core.ring.clear();
    direct = core.directOutput;
    core.directOutput = false;
  }
  core.room.notify_all();
  core.work.notify_all();
  core.progress.notify_all();  // waits for frames written or a play-out end return at once
  if (direct) {
    // Ends a paced write's sleep, then waits for the write to return;
    // closing completes a file.
    player->session->requestStop();
    std::lock_guard lock(player->direct);
    player->directBackend->discard();
    player->directBackend.reset();
    player->session.reset();
    return;
  }
  player->session->requestStop();
  if (player->session->waitExited(kStopGrace)) {
    player->thread.join();
  } else {
    outputLog(QL_LOG_WARNING, "\"%s\" did not stop in time; leaving it to finish", core.outputName.load());
    player->thread.detach();
  }
  player->session.reset();
}

// play_wait for an unpaced output: follows a change of rate, applies the
// gain while interleaving, and writes on the caller's thread.
void writeDirect(orplayer* player, uint64_t id, unsigned rate, float** channels, size_t frames) {
  PlayerCore& core = *player->core;
  std::lock_guard lock(player->direct);
  auto& backend = player->directBackend;
  {
    std::lock_guard coreLock(core.mutex);
    if (!backend || core.session != id || !core.takesFrames()) return;
  }
  if (rate != backend->rate()) {
    backend->drain();
    if (player->session->stopRequested()) return;
    outputLog(QL_LOG_INFO, "sample rate changes from %u to %u Hz", backend->rate(), rate);
    if (backend->changeRate(rate) != 0) recoverBackend(backend, core, 0, player->session);
  }
  auto& chunk = player->directChunk;
  if (chunk.size() < frames * 2) chunk.resize(frames * 2);
  if (!backend->discardsSamples()) {
    std::lock_guard coreLock(core.mutex);  // for the ramp
    const float gain = core.gain.load(std::memory_order_relaxed);
    const bool ramping = core.ramp.isActive();
    const float constant = ramping ? 1.0f : gain;
    const float* left = channels[0];
    const float* right = channels[1] ? channels[1] : channels[0];
    for (size_t i = 0; i < frames; ++i) {
      chunk[2 * i] = left[i] * constant;
      chunk[2 * i + 1] = right[i] * constant;
    }
    if (ramping) core.gain.store(core.ramp.apply(chunk.data(), frames, rate, gain));
  }
  if (backend->write(chunk.data(), frames)) {
    core.framesWritten.fetch_add(frames, std::memory_order_relaxed);
    if (uint64_t gaps = backend->takeUnderruns()) core.underruns.fetch_add(gaps, std::memory_order_relaxed);
    std::lock_guard coreLock(core.mutex);
    core.directPlayedOutAt = backend->playedOutAt();
    core.noteWritten();
  } else if (!player->session->stopRequested()) {
    recoverBackend(backend, core, 0, player->session);
  }
}

}  // namespace

extern "C" {

orplayer_t orplayer_create(void) { return new orplayer; }

void orplayer_set_options(orplayer_t player, const orplayer_options_t* options) {
  if (!player || !options) return;
  for (uint8_t byte : options->reserved) {
    if (byte != 0) {
      outputLog(QL_LOG_WARNING, "options record with non-zero reserved bytes refused");
      return;
    }
  }
  std::lock_guard lock(player->control);
  player->options = *options;
}

}  // extern "C"

void belvane::detail::setOutputPlayback(orplayer_t player, std::shared_ptr<OutputPlayback> playback) {
  if (!player) return;
  std::lock_guard lock(player->core->mutex);
  player->core->playback = std::move(playback);
}

namespace {

int startLocked(orplayer* player);

// A playing output follows a new setting at once: its output thread moves
// to it (see switchBackend). An output written by play_wait itself has no
// thread to do that, and one that will be needs one: those start afresh,
// dropping the fraction of a second queued.
void changePlayingOutput(orplayer* player) {
  PlayerCore& core = *player->core;
  auto setting = player->setting.resolved();
  if (!setting) return;
  {
    std::lock_guard lock(core.mutex);
    if (!core.isOpen()) return;
    if (!core.directOutput && !setting->isWrittenDirectly()) {
      core.target = *setting;
      ++core.targetGeneration;
      core.work.notify_all();
      return;
    }
  }
  stopLocked(player);
  if (int error = startLocked(player))
    outputLog(QL_LOG_ERROR, "cannot change the output: %s", orplayer_error_string(error));
}

}  // namespace

void belvane::detail::setOutputSetting(orplayer_t player, const BVAudioOutputSetting& setting) {
  if (!player) return;
  std::lock_guard lock(player->control);
  if (setting == player->setting) return;  // a playing output is left alone
  player->setting = setting;
  changePlayingOutput(player);
}

extern "C" {

int orplayer_set_output(orplayer_t player, const char* text) {
  if (!player) return ORPLAYER_ERROR_INVALID;
  std::string reason;
  auto setting = BVAudioOutputSetting::fromString(text ? text : "", &reason);
  if (!setting) {
    outputLog(QL_LOG_WARNING, "%s", reason.c_str());
    return ORPLAYER_ERROR_BAD_SPEC;
  }
  belvane::detail::setOutputSetting(player, *setting);
  return 0;
}

void orplayer_set_device_listener(orplayer_t player, void (*listener)(const char* device, void* context),
                                  void* context) {
  if (player) player->core->setDeviceListener(listener, context);
}

size_t orplayer_output_device(orplayer_t player, char* buffer, size_t size) {
  std::string device = player ? player->core->device() : std::string();
  if (buffer && size > 0) snprintf(buffer, size, "%s", device.c_str());
  return device.size();
}

int orplayer_start(orplayer_t player) {
  if (!player) return ORPLAYER_ERROR_INVALID;
  std::lock_guard control(player->control);
  return startLocked(player);
}

}  // extern "C"

namespace {

// orplayer_start, with the control mutex held.
int startLocked(orplayer* player) {
  PlayerCore& core = *player->core;
  {
    std::lock_guard lock(core.mutex);
    if (core.isOpen()) return 0;
  }

  player->failureReason.clear();
  auto setting = player->setting.resolved(&player->failureReason);
  if (!setting) {
    outputLog(QL_LOG_ERROR, "%s", player->failureReason.c_str());
    return ORPLAYER_ERROR_BAD_SPEC;
  }
  const std::string text = setting->text();

  bool shortBuffers = player->options.flags & ORPLAYER_OPTION_LOW_LATENCY;
  double queueSeconds = shortBuffers ? belvane::detail::kShortQueue : belvane::detail::kLongQueue;
  double deviceSeconds = shortBuffers ? belvane::detail::kShortDevice : belvane::detail::kLongDevice;
  auto session = std::make_shared<OutputSession>();
  unsigned rate;
  std::shared_ptr<belvane::detail::OutputPlayback> playback;
  {
    std::lock_guard lock(core.mutex);
    rate = core.lastRate;
    playback = core.playback;
  }
  belvane::detail::OpenedOutput opened =
      belvane::detail::openOutput(*setting, rate, deviceSeconds, session, playback);
  if (!opened.backend) {
    outputLog(QL_LOG_ERROR, "cannot open \"%s\": %s", text.c_str(),
              orplayer_error_string(opened.error));
    player->failureReason = opened.reason;
    return opened.error;
  }
  const char* name = opened.backend->name();
  if (setting->kind == BVAudioOutputSetting::Kind::Auto && std::string_view(name) == "null") {
    // Nothing to hear: say so where the host reads the output's name, and
    // once in the log.
    name = kSilentFallbackName;
    static std::atomic<bool> told{false};
    if (!told.exchange(true)) outputLog(QL_LOG_WARNING, "no sound server or sound card: playing silently");
  }

  uint64_t id;
  {
    std::lock_guard lock(core.mutex);
    id = ++core.session;
    core.state = State::Started;
    core.failure = 0;
    core.failureReason.clear();
    core.ring.clear();
    core.queueSeconds = queueSeconds;
  }
  core.outputName = name;
  core.realTime = opened.backend->paced();
  core.noteDevice(opened.backend->device(), false);
  opened.backend->setDeviceListener(PlayerCore::deviceListenerFor(player->core));
  if (opened.backend->writableByCaller()) {
    {
      std::lock_guard lock(player->direct);
      player->directBackend = std::move(opened.backend);
    }
    std::lock_guard lock(core.mutex);
    core.directOutput = true;
    player->session = std::move(session);
    outputLog(QL_LOG_INFO, "writing to \"%s\"", name);
    return 0;
  }
  try {
    player->thread = std::thread(belvane::detail::runOutput, player->core, session, id, std::move(opened.backend), deviceSeconds);
  } catch (const std::system_error&) {
    std::lock_guard lock(core.mutex);
    core.state = State::Idle;
    ++core.session;
    return ORPLAYER_ERROR_THREAD;
  }
  player->session = std::move(session);
  outputLog(QL_LOG_INFO, "playing through \"%s\"", name);
  return 0;
}

}  // namespace

extern "C" {

void orplayer_play_wait(orplayer_t player, float sampleRate, float** channels, int32_t frames) {
  if (!player || !channels || !channels[0] || frames <= 0) return;
  if (!(sampleRate >= 1 && sampleRate <= kMaxRate)) {
    outputLog(QL_LOG_WARNING, "frames at %g Hz ignored", static_cast<double>(sampleRate));
    return;
  }
  unsigned rate = static_cast<unsigned>(std::lround(sampleRate));
  PlayerCore& core = *player->core;
  std::unique_lock lock(core.mutex);
  if (!core.takesFrames()) return;
  uint64_t id = core.session;
  ++core.writers;
  // More frames after play_done: the play-out is no longer the end.
  if (core.state == State::Draining) core.state = State::Playing;
  if (core.state == State::Drained) core.state = State::Started;
  core.lastRate = rate;
  if (core.directOutput) {
    core.state = State::Playing;
    lock.unlock();
    writeDirect(player, id, rate, channels, static_cast<size_t>(frames));
    lock.lock();
    if (--core.writers == 0 && core.state == State::Closed) core.room.notify_all();
    return;
  }
  size_t offset = 0, total = static_cast<size_t>(frames);
  // Once the queue is full, wait until half of it is free (or room for all
  // that is left) rather than for the first free frame: the output thread
  // then wakes this thread once per half queue, not once per write.
  const size_t halfQueue = std::max<size_t>(1, static_cast<size_t>(rate * core.queueSeconds / 2));
  while (offset < total) {
    size_t need = std::min(halfQueue, total - offset);
    size_t room = core.ring.room(rate, core.queueSeconds);
    if (room < need && core.session == id && core.takesFrames()) {
      ++core.waitingWriters;
      core.writerNeeds = std::min(core.writerNeeds, need);
      core.writerRate = rate;
      core.room.wait(lock, [&] {
        room = core.ring.room(rate, core.queueSeconds);
        return core.session != id || !core.takesFrames() || room >= need;
      });
      if (--core.waitingWriters == 0) core.writerNeeds = SIZE_MAX;
    }
    if (core.session != id || !core.takesFrames()) break;
    size_t n = std::min(room, total - offset);
    core.ring.push(rate, channels, offset, n);
    core.state = State::Playing;
    offset += n;
    if (core.outputWaiters > 0 && core.ring.frames() >= core.outputWants) {
      // Notified without the lock, so the output thread does not wake only
      // to block on it.
      lock.unlock();
      core.work.notify_all();
      lock.lock();
    }
  }
  if (--core.writers == 0 && core.state == State::Closed) core.room.notify_all();
}

void orplayer_play_done(orplayer_t player) {
  if (!player) return;
  PlayerCore& core = *player->core;
  double tellIn = -1;  // seconds until the play-out ends; negative: the output thread tells
  {
    std::lock_guard lock(core.mutex);
    if (!core.isOpen()) return;
    if (core.state == State::Playing) core.state = State::Draining;
    if (core.state == State::Started) core.state = State::Drained;  // nothing to play out
    const auto now = std::chrono::steady_clock::now();
    if (core.directOutput || !core.isPlaying(now)) {
      // A direct output has played out at directPlayedOutAt (isPlaying
      // notes it); a threaded one is drained by its thread, which tells.
      tellIn = core.isPlaying(now) ? std::chrono::duration<double>(core.directPlayedOutAt - now).count() : 0.0;
    } else {
      core.work.notify_one();
    }
  }
  if (tellIn >= 0) core.tellDrained(tellIn);
}

int orplayer_is_playing(orplayer_t player) {
  if (!player) return 0;
  PlayerCore& core = *player->core;
  std::lock_guard lock(core.mutex);
  return core.isPlaying(std::chrono::steady_clock::now());
}

int orplayer_wait_written(orplayer_t player, uint64_t frames, int32_t timeout_ms) {
  if (!player) return 0;
  return player->core->waitWritten(frames, std::chrono::steady_clock::now() +
                                               std::chrono::milliseconds(std::max<int32_t>(0, timeout_ms)));
}

int orplayer_wait_drained(orplayer_t player, int32_t timeout_ms) {
  if (!player) return 1;
  return player->core->waitDrained(std::chrono::steady_clock::now() +
                                   std::chrono::milliseconds(std::max<int32_t>(0, timeout_ms)));
}

void orplayer_set_drained_listener(orplayer_t player, void (*listener)(double seconds, void* context), void* context) {
  if (player) player->core->setDrainedListener(listener, context);
}

void orplayer_stop(orplayer_t player) {
  if (!player) return;
  std::lock_guard control(player->control);
  stopLocked(player);
}

void orplayer_set_gain(orplayer_t player, float gain) {
  // Not-a-number or infinite gains would turn the audio into noise.
  if (!player || !std::isfinite(gain)) return;
  std::lock_guard lock(player->core->mutex);
  player->core->ramp.cancel();
  player->core->gain.store(gain);
}

void orplayer_ramp_gain(orplayer_t player, float gain, double seconds) {
  if (!player || !std::isfinite(gain) || !(seconds >= 0)) return;
  std::lock_guard lock(player->core->mutex);
  player->core->ramp.start(gain, seconds);
}

float orplayer_get_gain_target(orplayer_t player) {
  if (!player) return 0.0f;
  std::lock_guard lock(player->core->mutex);
  return player->core->ramp.isActive() ? player->core->ramp.target() : player->core->gain.load();
}

float orplayer_get_gain(orplayer_t player) { return player ? player->core->gain.load() : 0.0f; }

void orplayer_destroy(orplayer_t player) {
  if (!player) return;
  player->core->setDeviceListener(nullptr, nullptr);
  player->core->setDrainedListener(nullptr, nullptr);
  {
    std::lock_guard control(player->control);
    stopLocked(player);
  }
  PlayerCore& core = *player->core;
  {
    std::unique_lock lock(core.mutex);
    core.state = State::Closed;
    core.room.notify_all();
    core.room.wait(lock, [&] { return core.writers == 0; });
  }
  delete player;
}

const char* orplayer_output_name(orplayer_t player) { return player ? player->core->outputName.load() : "none"; }

int orplayer_is_real_time(orplayer_t player) { return player ? player->core->realTime.load() : 0; }

uint64_t orplayer_underruns(orplayer_t player) { return player ? player->core->underruns.load() : 0; }

uint64_t orplayer_frames_written(orplayer_t player) { return player ? player->core->framesWritten.load() : 0; }

int orplayer_output_failure(orplayer_t player, char* reason, size_t size) {
  if (!player) return ORPLAYER_ERROR_INVALID;
  std::lock_guard lock(player->core->mutex);
  if (reason && size > 0) snprintf(reason, size, "%s", player->core->failureReason.c_str());
  return player->core->failure;
}

const char* orplayer_failure_reason(orplayer_t player) {
  if (!player) return "";
  std::lock_guard control(player->control);
  return player->failureReason.c_str();
}

const char* orplayer_error_string(int code) {
  switch (code) {
    case 0:
      return "No error.";
    case ORPLAYER_ERROR_NO_OUTPUT:
      return "No audio output is available.";
    case ORPLAYER_ERROR_BAD_SPEC:
      return "The audio output setting is not understood (use auto, pulse[:SINK], alsa[:DEVICE], null, null:fast or wav:PATH).";
    case ORPLAYER_ERROR_WAV_FILE:
      return "The recording file cannot be opened for writing.";
    case ORPLAYER_ERROR_PULSE:
      return "The sound server (PulseAudio or PipeWire) cannot be reached.";
    case ORPLAYER_ERROR_ALSA:
      return "The sound card cannot be opened.";
    case ORPLAYER_ERROR_THREAD:
      return "The audio output cannot start.";
    case ORPLAYER_ERROR_INVALID:
      return "There is no audio player.";
    default:
      return "The audio output failed.";
  }
}

}  // extern "C"
