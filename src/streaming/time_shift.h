// TimeShift: one MP3 stream played behind its live edge, out of the
// station's ring. Until the first pause the connection's decoder feeds the
// decoded-audio buffer as always. A pause asks the reading thread to hand
// its decoder over at the next frame boundary; from then on the connection
// only fills the ring (StationTap), and this class's feeder thread feeds the
// same decoder the ring's frames from a frame cursor, so the audio goes on
// with the very next frame: nothing lost, nothing repeated. A skip or a jump
// to live moves the cursor (the decoder starts over a few frames earlier, so
// the frame landed on decodes whole) and flushes the buffer; the ring's
// titles are placed at their frames, so each title is announced where it
// starts in the audio, also after a skip.
//
// Threads and ownership. The MP3 player makes one per stream handle and
// hands it to the streamer in its tuning; both hold it (shared). The
// player's run loop calls the control and reading calls (requestShift,
// skipBy, goLive, the readings); the streamer's starting thread attach(),
// its destroying thread detach() (which ends the feeder thread); the
// reading thread the hand-over calls; the delivery thread flushReached().
// One mutex guards the shared state; the feeder waits for room in the
// buffer without it.
#pragma once

#include "foundation/thread_annotations.h"
#include "streaming/mpeg_decoder.h"
#include "streaming/stream_title.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace belvane::detail {

class StationTap;
class StreamBuffer;

class TimeShift {
 public:
  struct OutputHooks {
    // Feeder thread, right after a flush: an output write held by a pause
    // is dropped rather than written.
    std::function<void()> dropHeldWrite;
    // Delivery thread, when the flush reaches it: titles still waiting for
    // audio that went with the flush are forgotten.
    std::function<void()> flushed;
  };

  explicit TimeShift(std::shared_ptr<StationTap> tap, OutputHooks hooks = {});
  ~TimeShift();
  TimeShift(const TimeShift&) = delete;
  TimeShift& operator=(const TimeShift&) = delete;

  // Streamer. attach: the stream's buffer (and where the decoder's format
  // goes), before any other call; detach: no buffer any more, the feeder
  // thread has ended when it returns (the buffer must be closed first).
  void attach(StreamBuffer* buffer, std::function<void(const MpegDecoder::Format&)> onFormat);
  void detach();

  // Run loop. Whether the stream plays from the ring (after the first pause).
  bool isShifted() const;
  // Asks for the hand-over; the output is held by the player meanwhile.
  void requestShift();
  // Moves the cursor by seconds (negative: back) from what is heard next,
  // within the ring; past the live edge it lands at live. Before the first
  // pause it asks for the hand-over (the output goes on) and skips once it
  // is done. False once detached.
  bool skipBy(double seconds);
  bool goLive();
  // Seconds from what is heard next to the newest frame of the ring: the
  // ring's frames after the cursor and the decoded audio not yet delivered;
  // 0 while the connection feeds the output directly.
  double secondsBehindLive() const;

  // Reading thread.
  bool wantsDecoder() const { return wantsDecoder_.load(std::memory_order_acquire); }
  bool hasDecoder() const { return handedOver_.load(std::memory_order_acquire); }
  // Decoded audio and titles that come out of the connection's decoder
  // after requestShift, until the hand-over: kept in order for the feeder.
  bool diverting() const { return wantsDecoder() || hasDecoder(); }
  void carryAudio(const float* interleaved, size_t frames, long sampleRate);
  void carryTitle(StreamTitle title);
  // The hand-over, between two audio() calls of the tap: the decoder (null
  // if it was not decoding), the bytes fed to it since its reset, its
  // titles not yet placed (by decoder input offset) and its last format.
  struct PendingTitle {
    uint64_t offset;
    StreamTitle title;
  };
  void handOver(std::unique_ptr<MpegDecoder> decoder, uint64_t bytesFed, std::deque<PendingTitle> titles,
                const MpegDecoder::Format& format);
  // The station ended (error 0) or failed: the feeder plays out the ring
  // and then finishes the buffer with it.
  void inputEnded(int32_t error);

  // Delivery thread: the buffer's Flushed event.
  void flushReached();

 private:
  struct Carried {
    std::vector<float> audio;  // interleaved; empty for a title
    long sampleRate = 0;
    std::optional<StreamTitle> title;
  };
  struct FrameMark {
    uint64_t offset;  // where the ring frame starts in the decoder's input
    uint64_t frame;
  };
  void feederMain();
  // Feeder: one step; false when it must wait for more of the ring.
  bool feedNextFrame() REQUIRES(mutex_);
  void startOver(uint64_t target) REQUIRES(mutex_);
  double behindLocked() const REQUIRES(mutex_);
  void seekByLocked(double seconds) REQUIRES(mutex_);

  const std::shared_ptr<StationTap> tap_;
  const OutputHooks hooks_;
  std::atomic<bool> wantsDecoder_{false};
  std::atomic<bool> handedOver_{false};

  mutable Mutex mutex_;
  std::condition_variable wake_;
  StreamBuffer* buffer_ GUARDED_BY(mutex_) = nullptr;
  std::function<void(const MpegDecoder::Format&)> onFormat_ GUARDED_BY(mutex_);
  std::thread feeder_ GUARDED_BY(mutex_);
  bool stop_ GUARDED_BY(mutex_) = false;
  std::optional<uint64_t> seekTo_ GUARDED_BY(mutex_);       // asked for, not yet done by the feeder
  std::optional<double> pendingSkip_ GUARDED_BY(mutex_);    // asked for before the hand-over
  uint64_t cursor_ GUARDED_BY(mutex_) = 0;                  // the next ring frame the decoder is fed
  uint64_t nextOut_ GUARDED_BY(mutex_) = 0;                 // the next ring frame to go into the buffer
  bool inputEnded_ GUARDED_BY(mutex_) = false;
  int32_t endError_ GUARDED_BY(mutex_) = 0;
  std::deque<Carried> carried_ GUARDED_BY(mutex_);

  // The feeder's own (before the hand-over, the reading thread's).
  std::unique_ptr<MpegDecoder> decoder_;
  MpegDecoder::Format format_;
  size_t cursorSkip_ = 0;     // bytes of the cursor's frame the decoder already has
  uint64_t decoderFed_ = 0;   // bytes fed since the decoder's reset
  uint64_t discardBefore_ = 0;  // frames before it decode only to warm the decoder up
  std::optional<uint64_t> titleOfFrame_;  // announce the title in force at this frame
  std::deque<PendingTitle> titles_;
  std::deque<FrameMark> marks_;
  std::vector<uint8_t> frameBytes_;
  bool finished_ = false;  // the buffer was told the end
};

}  // namespace belvane::detail
