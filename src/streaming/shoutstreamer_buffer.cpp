// StreamBuffer: the decoded-audio ring and the events around it.
#include "streaming/shoutstreamer_buffer.h"

#include <algorithm>
#include <utility>

#if defined(__SSE__)
#include <xmmintrin.h>
#endif

namespace belvane::detail {

namespace {
constexpr long kAssumedRate = 44100;  // for the prebuffer before any audio

// Splits interleaved stereo into two planes, four frames at a time where
// SSE is there (compilers do not vectorise this at -O2).
void deinterleave(const float* __restrict in, size_t frames, float* __restrict left, float* __restrict right) {
  size_t i = 0;
#if defined(__SSE__)
  for (; i + 4 <= frames; i += 4) {
    __m128 a = _mm_loadu_ps(in + 2 * i);      // l0 r0 l1 r1
    __m128 b = _mm_loadu_ps(in + 2 * i + 4);  // l2 r2 l3 r3
    _mm_storeu_ps(left + i, _mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0)));
    _mm_storeu_ps(right + i, _mm_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1)));
  }
#endif
  for (; i < frames; ++i) {
    left[i] = in[2 * i];
    right[i] = in[2 * i + 1];
  }
}
}  // namespace

StreamBuffer::StreamBuffer(size_t capacityFrames, double prebufferSeconds, size_t maxChunkFrames)
    : capacity_(std::max<size_t>(capacityFrames, 4608)),
      prebufferSeconds_(prebufferSeconds),
      maxChunk_(std::max<size_t>(maxChunkFrames, 1)),
      left_(capacity_),
      right_(capacity_) {}

bool StreamBuffer::appendAudio(const float* interleaved, size_t frames, long sampleRate) {
  while (frames > 0) {
    size_t n = std::min(frames, capacity_ / 2);
    MutexLock lock(mutex_);
    if (!closed_ && capacity_ - availableLocked() < n) {
      // Wait for a good share of the ring, not just for this block, so the
      // reader frees a few chunks before it has to wake this thread.
      writerNeeds_ = std::max(n, capacity_ / 4);
      while (!closed_ && !writerReleased_ && capacity_ - availableLocked() < n) lock.wait(room_);
      writerNeeds_ = 0;
    }
    if (closed_) return false;
    if (std::exchange(writerReleased_, false)) return false;
    if (rates_.empty() || rates_.back().rate != sampleRate) rates_.push_back({written_, sampleRate});
    size_t at = size_t(written_ % capacity_);
    lock.unlock();
    // The free part of the ring is the writer's alone until written_ moves.
    size_t first = std::min(n, capacity_ - at);
    deinterleave(interleaved, first, left_.data() + at, right_.data() + at);
    deinterleave(interleaved + 2 * first, n - first, left_.data(), right_.data());
    lock.lock();
    written_ += n;
    bool wake = readerWaiting_ && availableLocked() >= prebufferLocked();
    lock.unlock();
    if (wake) work_.notify_one();
    interleaved += 2 * n;
    frames -= n;
  }
  return true;
}

void StreamBuffer::appendTitle(StreamTitle title) {
  {
    MutexLock lock(mutex_);
    titles_.push_back({written_, std::move(title)});
  }
  work_.notify_one();
}

void StreamBuffer::setConnected() {
  {
    MutexLock lock(mutex_);
    connected_ = true;
  }
  work_.notify_one();
}

void StreamBuffer::finish(int32_t error) {
  {
    MutexLock lock(mutex_);
    if (finished_) return;
    finished_ = true;
    error_ = error;
  }
  work_.notify_one();
}

uint64_t StreamBuffer::framesAppended() const {
  MutexLock lock(mutex_);
  return written_;
}

size_t StreamBuffer::prebufferFrames() const {
  MutexLock lock(mutex_);
  return prebufferLocked();
}

float StreamBuffer::prebufferFill() const {
  MutexLock lock(mutex_);
  size_t target = prebufferLocked();
  return target == 0 ? 1.0f : std::min(1.0f, float(availableLocked()) / float(target));
}

size_t StreamBuffer::prebufferLocked() const {
  long rate = rates_.empty() ? kAssumedRate : rates_.back().rate;
  auto frames = size_t(double(rate) * prebufferSeconds_);
  return std::clamp<size_t>(frames, 1, capacity_ / 2);
}

double StreamBuffer::secondsHeld() const {
  MutexLock lock(mutex_);
  if (written_ <= std::max(read_, discardTo_)) return 0.0;
  long rate = rates_.empty() ? kAssumedRate : rates_.back().rate;
  return double(written_ - std::max(read_, discardTo_)) / double(rate > 0 ? rate : kAssumedRate);
}

void StreamBuffer::setWriterReleased(bool released) {
  {
    MutexLock lock(mutex_);
    writerReleased_ = released;
  }
  room_.notify_all();
}

void StreamBuffer::flush() {
  {
    MutexLock lock(mutex_);
    discardTo_ = written_;
    titles_.clear();
    flushed_ = true;
    writerReleased_ = false;
    finished_ = false;
    error_ = 0;
  }
  work_.notify_one();
}

long StreamBuffer::rateAtLocked(uint64_t position, uint64_t* stretchEnd) const {
  *stretchEnd = UINT64_MAX;
  long rate = rates_.empty() ? kAssumedRate : rates_.front().rate;
  for (size_t i = 1; i < rates_.size(); ++i) {
    if (rates_[i].position > position) {
      *stretchEnd = rates_[i].position;
      break;
    }
    rate = rates_[i].rate;
  }
  return rate;
}

StreamBuffer::Event StreamBuffer::next(Phase phase) { return next(phase, std::chrono::steady_clock::time_point::max()); }

StreamBuffer::Event StreamBuffer::next(Phase phase, std::chrono::steady_clock::time_point deadline) {
  MutexLock lock(mutex_);
  while (true) {
    Event event{};
    if (closed_) {
      event.kind = Event::Closed;
      return event;
    }
    if (flushed_) {
      flushed_ = false;
      event.kind = Event::Flushed;
      return event;
    }
    if (read_ < discardTo_) {
      read_ = discardTo_;
      while (rates_.size() > 1 && rates_[1].position <= read_) rates_.pop_front();
      room_.notify_all();
    }
    if (!titles_.empty()) {
      event.kind = Event::Title;
      event.title = std::move(titles_.front().title);
      event.framesBeforeTitle = int32_t(titles_.front().position - read_);
      titles_.pop_front();
      return event;
    }
    if (phase == Phase::Connecting && connected_) {
      event.kind = Event::Connected;
      return event;
    }
    size_t available = availableLocked();
    if (phase != Phase::Playing) {
      if (available > 0 && (available >= prebufferLocked() || finished_)) {
        event.kind = Event::StartPlaying;
        return event;
      }
    } else if (available > 0) {
      uint64_t stretchEnd = 0;
      event.kind = Event::Audio;
      event.sampleRate = rateAtLocked(read_, &stretchEnd);
      size_t at = size_t(read_ % capacity_);
      event.frames = std::min({available, maxChunk_, capacity_ - at});
      if (stretchEnd != UINT64_MAX) event.frames = std::min<size_t>(event.frames, size_t(stretchEnd - read_));
      event.channels[0] = left_.data() + at;
      event.channels[1] = right_.data() + at;
      return event;
    } else if (!finished_) {
      event.kind = Event::Underrun;
      return event;
    }
    if (available == 0 && finished_) {
      event.kind = Event::Finished;
      event.error = error_;
      return event;
    }
    // Only audio enough to start (or a title, the answer, the end) is worth
    // waking for; appendAudio checks that before it notifies.
    readerWaiting_ = true;
    bool timedOut = deadline == std::chrono::steady_clock::time_point::max()
                        ? (lock.wait(work_), false)
                        : lock.waitUntil(work_, deadline) == std::cv_status::timeout;
    readerWaiting_ = false;
    if (timedOut) {
      event.kind = Event::TimedOut;
      return event;
    }
  }
}

void StreamBuffer::consumed(size_t frames) {
  bool wake;
  {
    MutexLock lock(mutex_);
    read_ += std::min<uint64_t>(frames, written_ - read_);
    read_ = std::max(read_, discardTo_);  // a flush during the delivery
    while (rates_.size() > 1 && rates_[1].position <= read_) rates_.pop_front();
    wake = writerNeeds_ > 0 && capacity_ - availableLocked() >= writerNeeds_;
  }
  if (wake) room_.notify_one();
}

void StreamBuffer::close() {
  {
    MutexLock lock(mutex_);
    closed_ = true;
  }
  room_.notify_all();
  work_.notify_all();
}

bool StreamBuffer::closed() const {
  MutexLock lock(mutex_);
  return closed_;
}

}  // namespace belvane::detail
