// MovieRingFeed: a live station that a movie plays behind its live edge,
// fed into the movie's appsrc out of the station's ring (StationTap).
//
// Until the first pause or skip the connection's reading thread pushes the
// station's bytes into the appsrc as they come (MovieStreamSource). A pause
// holds the output and asks for the hand-over, made between two pieces of
// the body (by the run loop when the reading thread waits for the network,
// else by the reading thread as it ends its piece), where everything the
// ring has was pushed: from then on the reading thread only fills the ring; this class's feeder
// thread pushes the ring's frames into the appsrc from the frame (and byte
// of it) where the reading thread stopped, so the decoder's input goes on
// unbroken: nothing lost, nothing repeated. The output's hold paces the
// feeder (the appsrc's queue fills and says it has enough).
//
// A skip or a jump to live moves the feeder's cursor: the output drops what
// it is given until the flush reaches it, a flushing seek empties the appsrc
// and everything after it, and the feeder goes on at the frame landed on
// (an Ogg stream with its chain's header pages first when the landing lies
// in another chain). Titles go in-band at the frames where the ring placed
// them, as tags the audio tap announces right before their frame's audio;
// after a skip the title in force where it lands comes first.
//
// Where the listener is: the audio the output has taken since the anchor
// (the first byte of this movie's connection, or a skip's landing) against
// the ring's running time at that anchor.
//
// Threads. The movie's stream source owns it. The reading thread calls
// anchor(), wantsHandOver(), handOver(), isHandedOver(), ringGrew() and
// inputEnded(); the run loop requestShift(), skipBy(), goLive() and the
// readings; the appsrc's callbacks come from the streaming threads; the
// feeder thread is its own, ended by the destructor. One mutex guards the
// shared state; it is never held while a buffer or an event is pushed.
#pragma once

#include "streaming/stream_title.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

typedef struct _GstElement GstElement;

namespace belvane::detail {

class StationTap;

class MovieRingFeed {
 public:
  struct Hooks {
    // Any thread: seconds of audio the output has taken since the last flush.
    std::function<double()> secondsWritten;
    // Feeder thread, right before a flush: the output drops what it is given
    // until the flush reaches it.
    std::function<void()> dropUntilFlushed;
    // Run loop: the reading thread is woken from its wait for room in the
    // appsrc's queue (to see the hand-over asked for).
    std::function<void()> wakeReader;
  };

  MovieRingFeed(GstElement* appsrc, std::shared_ptr<StationTap> tap, Hooks hooks);
  ~MovieRingFeed();
  MovieRingFeed(const MovieRingFeed&) = delete;
  MovieRingFeed& operator=(const MovieRingFeed&) = delete;

  // Run loop. Whether the station can be played from its ring: the ring
  // holds frames of a kind it can cut (MPEG audio, ADTS, Ogg).
  bool canShift() const;
  // Asks the reading thread for the hand-over; the player holds the output.
  void requestShift();
  // Moves by seconds from what is heard next (negative: back), within the
  // ring; before the hand-over it is made once the hand-over is done.
  bool skipBy(double seconds);
  bool goLive();
  // Seconds from what is heard next to the ring's newest frame; 0 before
  // the hand-over.
  double secondsBehindLive() const;

  // Reading thread: held while it handles a piece of the body, so that the
  // hand-over can also be made from the run loop while the reading thread
  // waits for the network (a station that sends nothing for a while).
  std::unique_lock<std::mutex> readingScope() { return std::unique_lock(readingMutex_); }
  void anchor();  // the connection's first audio byte goes to the ring next
  bool wantsHandOver() const { return wanted_.load(std::memory_order_acquire); }
  bool isHandedOver() const { return handedOver_.load(std::memory_order_acquire); }
  // Everything given to the ring has been pushed: the feeder takes over
  // from here. False while the ring is not in step with the frames (asked
  // again at the next piece).
  bool handOver();
  void ringGrew();
  // The station ended or failed for good: once the ring is played out,
  // finish() ends the appsrc's stream (on the feeder thread).
  void inputEnded(std::function<void()> finish);

  // Streaming threads: the appsrc's queue ran low, or is full.
  void needData();
  void enoughData();

 private:
  void feederMain();
  void flushTo(uint64_t target);
  double behindLocked() const;
  std::optional<uint64_t> landingLocked(double seconds) const;
  void pushTitle(const StreamTitle& title);
  bool pushBytes(const uint8_t* data, size_t size, bool discont);

  GstElement* const appsrc_;
  const std::shared_ptr<StationTap> tap_;
  const Hooks hooks_;
  std::atomic<bool> wanted_{false};
  std::atomic<bool> handedOver_{false};

  std::mutex readingMutex_;
  mutable std::mutex mutex_;
  std::condition_variable wake_;
  std::thread feeder_;
  bool stop_ = false;
  bool enough_ = false;
  uint64_t next_ = 0;         // the next ring frame to push
  size_t skipBytes_ = 0;      // bytes of it the appsrc already has
  uint64_t liveEnd_ = 0;      // the ring's end, as the reading thread last saw it
  std::optional<uint64_t> seekTo_;
  std::optional<uint64_t> landing_;  // the jump the feeder is making
  std::optional<double> pendingSkip_;  // asked for before the hand-over
  double anchorTime_ = 0;     // ring time (seconds since its first frame) at the anchor
  bool anchored_ = false;
  std::function<void()> finish_;  // set once the input ended
  bool finished_ = false;
  std::optional<uint64_t> chainStart_;  // Ogg: the first page of the chain in play
  std::vector<uint64_t> pendingHeaders_;  // Ogg header pages to push before next_
  std::optional<StreamTitle> pendingTitle_;  // the title in force where a skip landed
  bool discont_ = false;                  // the next buffer follows a jump
};

}  // namespace belvane::detail
