// The output thread of a started player.
#include <algorithm>
#include <chrono>
#include <vector>

#include "audio_output/orplayer.h"
#include "audio_output/output_log.h"
#include "audio_output/player_core.h"
#include "foundation/thread_name.h"

using namespace std::chrono_literals;

namespace belvane::detail {
namespace {

// A paced output writes this much at a time (a fortieth of a second).
constexpr unsigned kChunksPerSecond = 40;

}  // namespace

void recoverBackend(std::unique_ptr<OutputBackend>& backend, PlayerCore& core, double deviceSeconds,
                    const std::shared_ptr<OutputSession>& session) {
  if (backend->recover()) {
    outputLog(QL_LOG_WARNING, "\"%s\" reopened after a failure", backend->name());
    return;
  }
  unsigned rate = backend->rate();
  bool paced = backend->paced();
  const bool ends = backend->failureEndsPlayback();
  if (ends) {
    outputLog(QL_LOG_ERROR, "\"%s\" failed: %s", backend->name(), backend->failureReason().c_str());
    bool wasDraining;
    {
      std::lock_guard lock(core.mutex);
      core.failure = ORPLAYER_ERROR_WAV_FILE;
      core.failureReason = backend->failureReason();
      core.ring.clear();
      wasDraining = core.state == PlayerCore::State::Draining;
      if (core.takesFrames()) core.state = PlayerCore::State::Failed;
      core.room.notify_all();
      core.progress.notify_all();
    }
    if (wasDraining) core.tellDrained(0);  // nothing plays any more
    paced = false;
  } else {
    outputLog(QL_LOG_ERROR, "\"%s\" failed; going on without sound", backend->name());
  }
  backend = makeNullOutput(paced, deviceSeconds, session);
  backend->open(rate);
  core.outputName = backend->name();
  core.realTime = backend->paced();
  core.noteDevice(backend->device(), !ends);  // an ended playback has no output to tell of
}

void runOutput(std::shared_ptr<PlayerCore> corePtr, std::shared_ptr<OutputSession> session, uint64_t id,
               std::unique_ptr<OutputBackend> backend, double deviceSeconds) {
  nameThisThread("bv-audio-out");
  PlayerCore& core = *corePtr;
  std::vector<float> chunk;
  std::unique_lock lock(core.mutex);
  auto current = [&] { return core.session == id; };
  // Unpaced outputs let half a queue gather so that writer and thread do not
  // take turns for every block, but keep frames back for 25 ms at most; once
  // nothing has come for that long the thread sleeps until the next frame.
  bool idle = false;
  auto deadline = std::chrono::steady_clock::now() + 25ms;
  uint64_t targetSeen = core.targetGeneration;
  for (;;) {
    if (core.targetGeneration != targetSeen && current()) {
      // The host chose another output while this one plays.
      targetSeen = core.targetGeneration;
      BVAudioOutputSetting target = core.target;
      lock.unlock();
      switchBackend(backend, corePtr, target, deviceSeconds, session);
      lock.lock();
      continue;
    }
    const bool paced = backend->paced();
    const size_t wants =
        paced ? 1 : std::max<size_t>(1, static_cast<size_t>(core.lastRate * core.queueSeconds / 2));
    auto ready = [&] {
      return !current() || core.ring.frames() >= wants || core.targetGeneration != targetSeen ||
             core.state == PlayerCore::State::Draining;
    };
    while (!ready()) {
      ++core.outputWaiters;
      if (paced || idle) {
        // Writers notify only once the ring holds outputWants frames.
        core.outputWants = 1;
        core.work.wait(lock);
        if (!paced && core.ring.frames() > 0) {
          idle = false;
          deadline = std::chrono::steady_clock::now() + 25ms;
        }
      } else {
        core.outputWants = wants;
        if (core.work.wait_until(lock, deadline) == std::cv_status::timeout) {
          if (core.ring.frames() > 0) {
            --core.outputWaiters;
            break;  // take what has gathered
          }
          idle = true;
        }
      }
      --core.outputWaiters;
    }
    if (!current()) break;
    if (core.targetGeneration != targetSeen) continue;

    if (core.ring.frames() == 0) {
      // play_done with the queue empty: wait until the device has played out.
      lock.unlock();
      backend->drain();
      lock.lock();
      if (current() && core.state == PlayerCore::State::Draining && core.ring.frames() == 0) {
        core.finishDrain();
        lock.unlock();
        core.tellDrained(0);
        lock.lock();
      }
      continue;
    }

    unsigned rate = core.ring.frontRate();
    if (rate != backend->rate()) {
      // The old rate's frames are all handed over: let them play, then switch.
      lock.unlock();
      backend->drain();
      if (!session->stopRequested()) {
        outputLog(QL_LOG_INFO, "sample rate changes from %u to %u Hz", backend->rate(), rate);
        if (backend->changeRate(rate) != 0) recoverBackend(backend, core, deviceSeconds, session);
      }
      lock.lock();
      continue;
    }

    size_t want = backend->paced() ? std::max(1u, rate / kChunksPerSecond) : core.ring.frames();
    if (chunk.size() < want * FrameRing::kChannels) chunk.resize(want * FrameRing::kChannels);
    const float gain = core.gain.load(std::memory_order_relaxed);
    size_t n = core.ring.pop(chunk.data(), want, core.ramp.isActive() ? 1.0f : gain);
    if (core.ramp.isActive()) core.gain.store(core.ramp.apply(chunk.data(), n, rate, gain));
    bool wakeWriter =
        core.waitingWriters > 0 && core.ring.room(core.writerRate, core.queueSeconds) >= core.writerNeeds;
    lock.unlock();
    if (wakeWriter) core.room.notify_all();
    if (backend->write(chunk.data(), n)) {
      core.framesWritten.fetch_add(n, std::memory_order_relaxed);
    } else if (!session->stopRequested()) {
      recoverBackend(backend, core, deviceSeconds, session);
    }
    lock.lock();
    core.noteWritten();
    if (!paced) {
      idle = false;
      deadline = std::chrono::steady_clock::now() + 25ms;
    }
  }
  lock.unlock();
  backend->discard();
  backend.reset();  // closes; completes a file
  session->markExited();
}

}  // namespace belvane::detail
