// TimeShift: the hand-over of the decoder and the feeder that plays the ring.
#include "streaming/time_shift.h"

#include "foundation/thread_name.h"
#include "streaming/QLDebug.h"
#include "streaming/shoutstreamer_buffer.h"
#include "streaming/station_tap.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace belvane::detail {

namespace {
// Frames decoded before the one a skip lands on and then dropped: layer III
// frames borrow bits from up to a few frames before them (the bit
// reservoir), and the synthesis filters carry the last frame's tail, so the
// frame landed on decodes exactly as in an unbroken run.
constexpr uint64_t kWarmUpFrames = 4;
// How often the feeder looks for new frames at the live edge.
constexpr auto kLiveEdgePoll = std::chrono::milliseconds(10);
}  // namespace

TimeShift::TimeShift(std::shared_ptr<StationTap> tap, OutputHooks hooks)
    : tap_(std::move(tap)), hooks_(std::move(hooks)) {}

TimeShift::~TimeShift() { detach(); }

void TimeShift::attach(StreamBuffer* buffer, std::function<void(const MpegDecoder::Format&)> onFormat) {
  MutexLock lock(mutex_);
  buffer_ = buffer;
  onFormat_ = std::move(onFormat);
}

void TimeShift::detach() {
  std::thread feeder;
  {
    MutexLock lock(mutex_);
    stop_ = true;
    feeder = std::move(feeder_);
  }
  wake_.notify_all();
  if (feeder.joinable()) feeder.join();
  MutexLock lock(mutex_);
  buffer_ = nullptr;
}

bool TimeShift::isShifted() const { return hasDecoder(); }

void TimeShift::requestShift() {
  MutexLock lock(mutex_);
  if (!buffer_ || stop_ || hasDecoder() || wantsDecoder()) return;
  wantsDecoder_.store(true, std::memory_order_release);
  // A reading thread blocked on a full buffer (the output is held) lets go
  // and carries what it decodes until it hands over.
  buffer_->setWriterReleased(true);
}

double TimeShift::behindLocked() const {
  if (!hasDecoder() || !buffer_) return 0.0;
  const uint64_t from = seekTo_.value_or(nextOut_);
  double seconds = 0;
  tap_->withRing([&](const StationRing& ring) { seconds = ring.secondsFrom(from); });
  if (seekTo_) return seconds;
  seconds += buffer_->secondsHeld();
  for (const auto& carried : carried_)
    if (carried.sampleRate > 0) seconds += double(carried.audio.size() / 2) / double(carried.sampleRate);
  return seconds;
}

double TimeShift::secondsBehindLive() const {
  MutexLock lock(mutex_);
  return behindLocked();
}

void TimeShift::seekByLocked(double seconds) {
  const double wanted = behindLocked() - seconds;
  tap_->withRing([&](const StationRing& ring) REQUIRES(mutex_) {
    seekTo_ = ring.frameSecondsBeforeEnd(std::clamp(wanted, 0.0, ring.secondsHeld()));
  });
  buffer_->setWriterReleased(true);
  wake_.notify_all();
}

// Before the first pause the stream is handed over first (the output goes
// on), and the skip is made from where the hand-over finds it.
bool TimeShift::skipBy(double seconds) {
  MutexLock lock(mutex_);
  if (!buffer_ || stop_) return false;
  if (!hasDecoder()) {
    pendingSkip_ = pendingSkip_.value_or(0.0) + seconds;
    lock.unlock();
    requestShift();
    return true;
  }
  seekByLocked(seconds);
  return true;
}

bool TimeShift::goLive() {
  MutexLock lock(mutex_);
  if (!buffer_ || stop_) return false;
  if (!hasDecoder()) {
    pendingSkip_.reset();  // what plays is live already
    return true;
  }
  tap_->withRing([&](const StationRing& ring) REQUIRES(mutex_) { seekTo_ = ring.endFrame(); });
  buffer_->setWriterReleased(true);
  wake_.notify_all();
  return true;
}

// ---- reading thread --------------------------------------------------------------

void TimeShift::carryAudio(const float* interleaved, size_t frames, long sampleRate) {
  MutexLock lock(mutex_);
  Carried carried;
  carried.audio.assign(interleaved, interleaved + 2 * frames);
  carried.sampleRate = sampleRate;
  carried_.push_back(std::move(carried));
}

void TimeShift::carryTitle(StreamTitle title) {
  MutexLock lock(mutex_);
  Carried carried;
  carried.title = std::move(title);
  carried_.push_back(std::move(carried));
}

void TimeShift::handOver(std::unique_ptr<MpegDecoder> decoder, uint64_t bytesFed, std::deque<PendingTitle> titles,
                         const MpegDecoder::Format& format) {
  // The frame the bytes fed so far end in: the decoder goes on with the rest
  // of it, then the ring's next frames, so its input is unbroken.
  auto partial = tap_->partialFrame();
  MutexLock lock(mutex_);
  if (stop_ || hasDecoder()) return;
  if (decoder && partial && bytesFed >= partial->second) {
    decoder_ = std::move(decoder);
    format_ = format;
    cursor_ = partial->first;
    cursorSkip_ = partial->second;
    decoderFed_ = bytesFed;
    const uint64_t frameStart = bytesFed - partial->second;
    marks_.push_back({frameStart, cursor_});
    // Titles of later frames come from the ring, at their frames.
    for (auto& title : titles)
      if (title.offset < frameStart) titles_.push_back(std::move(title));
    discardBefore_ = cursor_;
    nextOut_ = cursor_;
  } else {
    // Not in step with the frames: a fresh decoder warms up on the frames
    // before the next one.
    uint64_t next = partial ? partial->first : 0;
    if (!partial) tap_->withRing([&](const StationRing& ring) { next = ring.endFrame(); });
    decoder_ = std::make_unique<MpegDecoder>();
    discardBefore_ = next;
    nextOut_ = next;
    tap_->withRing([&](const StationRing& ring) REQUIRES(mutex_) {
      cursor_ = std::max(ring.firstFrame(), next > kWarmUpFrames ? next - kWarmUpFrames : 0);
    });
  }
  handedOver_.store(true, std::memory_order_release);
  wantsDecoder_.store(false, std::memory_order_release);
  if (buffer_) buffer_->setWriterReleased(false);
  if (pendingSkip_ && buffer_) seekByLocked(*std::exchange(pendingSkip_, std::nullopt));
  QLDebugLog(QL_LOG_INFO, "time-shift: playing from the ring at frame %llu", (unsigned long long)cursor_);
  feeder_ = std::thread(&TimeShift::feederMain, this);
}

void TimeShift::inputEnded(int32_t error) {
  {
    MutexLock lock(mutex_);
    inputEnded_ = true;
    endError_ = error;
  }
  wake_.notify_all();
}

void TimeShift::flushReached() {
  if (hooks_.flushed) hooks_.flushed();
}

// ---- feeder thread ---------------------------------------------------------------

void TimeShift::startOver(uint64_t target) {
  // The output drops writes before the flush, and takes them again when the
  // flush reaches it: never the other way round.
  if (hooks_.dropHeldWrite) hooks_.dropHeldWrite();
  buffer_->flush();
  carried_.clear();
  // A fresh decoder: libmpg123 announces the format again only to a new one.
  decoder_ = std::make_unique<MpegDecoder>();
  format_ = {};
  decoderFed_ = 0;
  cursorSkip_ = 0;
  marks_.clear();
  titles_.clear();
  discardBefore_ = target;
  nextOut_ = target;
  titleOfFrame_ = target;
  finished_ = false;
  tap_->withRing([&](const StationRing& ring) REQUIRES(mutex_) {
    cursor_ = std::max(ring.firstFrame(), target > kWarmUpFrames ? target - kWarmUpFrames : 0);
  });
}

void TimeShift::feederMain() {
  nameThisThread("bv-stream-shift");
  MutexLock lock(mutex_);
  while (!stop_) {
    if (seekTo_) {
      startOver(*std::exchange(seekTo_, std::nullopt));
      continue;
    }
    if (!carried_.empty()) {
      Carried carried = std::move(carried_.front());
      carried_.pop_front();
      // buffer_ stays until detach() has joined this thread.
      StreamBuffer* const buffer = buffer_;
      lock.unlock();
      if (carried.title)
        buffer->appendTitle(std::move(*carried.title));
      else
        buffer->appendAudio(carried.audio.data(), carried.audio.size() / 2, carried.sampleRate);
      lock.lock();
      continue;
    }
    MpegDecoder::Frame frame;
    MpegDecoder::Status status = decoder_->next(frame);
    if (status == MpegDecoder::Status::Frame) {
      while (marks_.size() > 1 && marks_[1].offset <= frame.inputOffset) marks_.pop_front();
      const bool known = !marks_.empty() && marks_.front().offset <= frame.inputOffset;
      const bool warmUp = known && marks_.front().frame < discardBefore_;
      std::deque<StreamTitle> due;
      while (!titles_.empty() && titles_.front().offset <= frame.inputOffset) {
        due.push_back(std::move(titles_.front().title));
        titles_.pop_front();
      }
      if (warmUp) continue;
      const bool newFormat = decoder_->format() != format_;
      if (newFormat) format_ = decoder_->format();
      const MpegDecoder::Format format = format_;
      // While the append waits for room the frame counts as not yet buffered.
      if (known) nextOut_ = std::max(nextOut_, marks_.front().frame);
      const uint64_t number = known ? marks_.front().frame : 0;
      StreamBuffer* const buffer = buffer_;
      std::function<void(const MpegDecoder::Format&)> onFormat;
      if (newFormat) onFormat = onFormat_;
      // The samples stay valid until the decoder's next call, which is this
      // thread's alone.
      lock.unlock();
      for (auto& title : due) buffer->appendTitle(std::move(title));
      if (onFormat) onFormat(format);
      buffer->appendAudio(frame.samples, frame.frames, frame.sampleRate);
      lock.lock();
      if (known && !seekTo_) nextOut_ = std::max(nextOut_, number + 1);
      // A closed buffer takes nothing more: wait for the end.
      if (buffer_->closed())
        while (!stop_) lock.wait(wake_);
      continue;
    }
    if (status == MpegDecoder::Status::Error) {
      // Start over at the cursor, as the connection's decoder does at the
      // next chain of frames.
      QLDebugLog(QL_LOG_INFO, "time-shift: decoder error at frame %llu", (unsigned long long)cursor_);
      decoder_ = std::make_unique<MpegDecoder>();
      decoderFed_ = 0;
      cursorSkip_ = 0;
      marks_.clear();
      continue;
    }
    if (!feedNextFrame()) {
      if (inputEnded_ && !finished_) {
        finished_ = true;
        buffer_->finish(endError_);
      }
      lock.waitFor(wake_, kLiveEdgePoll);
    }
  }
}

// Under mutex_: feeds the decoder the cursor's frame, with the titles that
// start there; false at the live edge.
bool TimeShift::feedNextFrame() {
  bool have = false;
  std::vector<StreamTitle> starting;
  tap_->withRing([&](const StationRing& ring) REQUIRES(mutex_) {
    if (cursor_ < ring.firstFrame()) {
      // The ring moved on past the cursor (a pause longer than it holds):
      // go on from its oldest frame.
      cursor_ = ring.firstFrame();
      cursorSkip_ = 0;
      decoder_ = std::make_unique<MpegDecoder>();
      decoderFed_ = 0;
      marks_.clear();
      titleOfFrame_ = cursor_;
      discardBefore_ = cursor_;
      nextOut_ = cursor_;
    }
    if (!ring.readFrame(cursor_, frameBytes_)) return;
    have = true;
    if (titleOfFrame_ && *titleOfFrame_ == cursor_) {
      if (auto title = ring.titleAt(cursor_)) starting.push_back(title->title);
      titleOfFrame_.reset();
    } else if (cursor_ >= discardBefore_) {
      for (const auto& title : ring.titles())
        if (title.frame == cursor_) starting.push_back(title.title);
    }
  });
  if (!have) return false;
  const uint64_t start = decoderFed_ - cursorSkip_;
  if (marks_.empty() || marks_.back().frame != cursor_) marks_.push_back({start, cursor_});
  for (auto& title : starting) titles_.push_back({start, std::move(title)});
  const size_t skip = std::min(cursorSkip_, frameBytes_.size());
  decoder_->feed(std::span<const uint8_t>(frameBytes_).subspan(skip));
  decoderFed_ += frameBytes_.size() - skip;
  cursorSkip_ = 0;
  ++cursor_;
  return true;
}

}  // namespace belvane::detail
