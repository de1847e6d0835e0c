// StreamBuffer: what the network thread hands to the delivery thread.
//
// A bounded ring of decoded two-channel float audio (planar, so the audio
// callback gets pointers into it without a copy), the sample rate of each
// stretch, the titles (with their StreamUrl) at their positions in the
// decoded audio, and the connection's progress. Positions count frames from
// the start of the stream, across reconnections. The writer blocks while the
// ring is full; the reader blocks until there is something to do. close()
// releases both.
#pragma once

#include "foundation/thread_annotations.h"
#include "streaming/stream_title.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

namespace belvane::detail {

class StreamBuffer {
 public:
  StreamBuffer(size_t capacityFrames, double prebufferSeconds, size_t maxChunkFrames);

  // Writer side (network thread).
  // Copies interleaved stereo frames in, waiting for room; false once closed,
  // or when setWriterReleased() ended the wait (a call of at most half the
  // capacity then appended nothing).
  bool appendAudio(const float* interleaved, size_t frames, long sampleRate);
  // A title (with its StreamUrl) placed at the current end of the decoded audio.
  void appendTitle(StreamTitle title);
  // The server has answered.
  void setConnected();
  // No more audio will come: error 0 for an end, otherwise the failure.
  void finish(int32_t error);
  uint64_t framesAppended() const;
  // Frames buffered before playing starts, at the current sample rate.
  size_t prebufferFrames() const;
  // Any thread: how much of that the buffer holds now, 0.0 to 1.0.
  float prebufferFill() const;
  // Any thread: the seconds of audio held that the reader has not yet
  // finished delivering.
  double secondsHeld() const;
  // Any thread: the writer's current or next wait for room ends at once
  // (false takes that back).
  void setWriterReleased(bool released);
  // Writer side: everything not yet delivered goes (the chunk the reader is
  // delivering is still its own until consumed), titles too, and an end
  // reported with finish() is taken back, as is a release of the writer;
  // the reader's next event is Flushed.
  void flush();

  // Reader side (delivery thread).
  enum class Phase { Connecting, Buffering, Playing };
  struct Event {
    enum Kind { Title, Connected, StartPlaying, Audio, Underrun, Finished, Closed, TimedOut, Flushed } kind;
    StreamTitle title;
    int32_t framesBeforeTitle = 0;  // frames to deliver before the title's audio
    float* channels[2] = {nullptr, nullptr};
    size_t frames = 0;
    long sampleRate = 0;
    int32_t error = 0;
  };
  // Waits for the next thing to do in this phase: a title; the answer
  // (while connecting); enough audio to start (unless playing); a chunk of
  // audio, an underrun or the end (while playing); the end when the buffer
  // is empty; closing. With a deadline, TimedOut once it has passed.
  Event next(Phase phase);
  Event next(Phase phase, std::chrono::steady_clock::time_point deadline);
  // The chunk of the last Audio event has been delivered.
  void consumed(size_t frames);

  // Either side: wakes and releases every wait for good.
  void close();
  bool closed() const;

 private:
  size_t availableLocked() const REQUIRES(mutex_) { return size_t(written_ - read_); }
  long rateAtLocked(uint64_t position, uint64_t* stretchEnd) const REQUIRES(mutex_);
  size_t prebufferLocked() const REQUIRES(mutex_);

  const size_t capacity_;
  const double prebufferSeconds_;
  const size_t maxChunk_;
  // The ring's samples: the free part is the writer's and the part between
  // read_ and written_ the reader's, so they are copied without the lock.
  std::vector<float> left_, right_;

  mutable Mutex mutex_;
  std::condition_variable room_;
  std::condition_variable work_;
  uint64_t written_ GUARDED_BY(mutex_) = 0;  // frames appended
  uint64_t read_ GUARDED_BY(mutex_) = 0;     // frames delivered
  struct RateChange {
    uint64_t position;
    long rate;
  };
  std::deque<RateChange> rates_ GUARDED_BY(mutex_);  // the first covers read_
  struct Title {
    uint64_t position;
    StreamTitle title;
  };
  std::deque<Title> titles_ GUARDED_BY(mutex_);
  bool connected_ GUARDED_BY(mutex_) = false;
  bool finished_ GUARDED_BY(mutex_) = false;
  int32_t error_ GUARDED_BY(mutex_) = 0;
  bool closed_ GUARDED_BY(mutex_) = false;
  bool writerReleased_ GUARDED_BY(mutex_) = false;
  bool flushed_ GUARDED_BY(mutex_) = false;    // the reader has not yet heard of the last flush
  uint64_t discardTo_ GUARDED_BY(mutex_) = 0;  // audio before this was flushed
  // Who is waiting, and for how much, so that each side wakes the other
  // only when the wait can end.
  size_t writerNeeds_ GUARDED_BY(mutex_) = 0;  // free frames the blocked writer waits for; 0: not waiting
  bool readerWaiting_ GUARDED_BY(mutex_) = false;
};

}  // namespace belvane::detail
