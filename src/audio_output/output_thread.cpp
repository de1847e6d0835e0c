// The output thread of a started player.
#include <algorithm>
#include <chrono>
#include <vector>

#include "audio_output/output_log.h"
#include "audio_output/player_core.h"

using namespace std::chrono_literals;

namespace belvane::detail {
namespace {

// A paced output writes this much at a time (a fortieth of a second).
constexpr unsigned kChunksPerSecond = 40;

// Replaces a failed backend: first by reopening it, then by a null output
// paced like it, so that the stream keeps its flow control.
void recoverBackend(std::unique_ptr<OutputBackend>& backend, PlayerCore& core, double deviceSeconds,
                    const std::shared_ptr<OutputSession>& session) {
  if (backend->recover()) {
    outputLog(QL_LOG_WARNING, "\"%s\" reopened after a failure", backend->name());
    return;
  }
  unsigned rate = backend->rate();
  bool paced = backend->paced();
  outputLog(QL_LOG_ERROR, "\"%s\" failed; going on without sound", backend->name());
  backend = makeNullOutput(paced, deviceSeconds, session);
  backend->open(rate);
  core.outputName = backend->name();
}

}  // namespace

void runOutput(std::shared_ptr<PlayerCore> corePtr, std::shared_ptr<OutputSession> session, uint64_t id,
               std::unique_ptr<OutputBackend> backend, double deviceSeconds) {
  PlayerCore& core = *corePtr;
  std::vector<float> chunk;
  std::unique_lock lock(core.mutex);
  auto current = [&] { return core.session == id; };
  for (;;) {
    if (backend->paced()) {
      core.work.wait(lock, [&] { return !current() || core.ring.frames() > 0 || (core.done && core.audible); });
    } else {
      // Unpaced: let frames gather so that writer and thread do not take
      // turns for every block, but never keep them back for long.
      core.work.wait(lock, [&] { return !current() || core.ring.frames() > 0 || (core.done && core.audible); });
      core.work.wait_for(lock, 25ms, [&] {
        return !current() || core.done || core.ring.seconds() >= core.queueSeconds / 2;
      });
    }
    if (!current()) break;

    if (core.ring.frames() == 0) {
      // play_done with the queue empty: wait until the device has played out.
      lock.unlock();
      backend->drain();
      lock.lock();
      if (current() && core.done && core.ring.frames() == 0) core.audible = false;
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
    size_t n = core.ring.pop(chunk.data(), want, core.gain.load(std::memory_order_relaxed));
    core.room.notify_all();
    lock.unlock();
    if (backend->write(chunk.data(), n)) {
      core.framesWritten.fetch_add(n, std::memory_order_relaxed);
    } else if (!session->stopRequested()) {
      recoverBackend(backend, core, deviceSeconds, session);
    }
    lock.lock();
  }
  lock.unlock();
  backend->discard();
  backend.reset();  // closes; completes a file
  session->markExited();
}

}  // namespace belvane::detail
