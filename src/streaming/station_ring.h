// StationRing: the last minutes of one live station as it was sent, frame
// by frame: the codec frames' bytes, an index of them (where each starts
// and how many samples it holds) and the frames where titles start. It is
// what a recording takes "the current title from its start" from, and what
// a time-shifted playback reads behind the live edge.
//
// Frames are numbered from 0 for the first frame of the playback, and keep
// their numbers while the ring moves on; the oldest chunk goes once the
// rest still covers the ring's minutes. The bytes are held in chunks of
// whole frames (kChunkBytes); the index keeps 4 bytes per frame. Chunks in
// memory beyond the memory bound are moved to a file in the user's cache
// folder (unlinked at once, so nothing is left behind), which is reused
// slot by slot as chunks go.
//
// Not thread-safe: StationTap guards it with its own mutex.
#pragma once

#include "streaming/stream_title.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace belvane::detail {

struct StationRingSettings {
  double minutes = 10.0;                     // how much audio is kept; 0: nothing
  size_t memoryBytes = 8 * 1024 * 1024;      // chunks held in memory; older ones go to disk
  std::string diskFolder;                    // empty: the user's cache folder
};

struct RingTitle {
  uint64_t frame = 0;  // the first frame the title belongs to
  StreamTitle title;
};

class StationRing {
 public:
  static constexpr size_t kChunkBytes = 32 * 1024;

  explicit StationRing(StationRingSettings settings);
  ~StationRing();
  StationRing(const StationRing&) = delete;
  StationRing& operator=(const StationRing&) = delete;

  // Appends one frame (at most kChunkBytes); discontinuity: the first frame
  // after the station broke off. Returns the frame's number.
  uint64_t appendFrame(std::span<const uint8_t> bytes, uint32_t samples, uint32_t sampleRate, bool discontinuity);
  // A title that starts at frame (the next frame appended, at the latest).
  void addTitle(uint64_t frame, StreamTitle title);

  // The frames held: [firstFrame(), endFrame()).
  uint64_t firstFrame() const;
  uint64_t endFrame() const { return nextFrame_; }
  // The title that the frame belongs to, if the ring still knows where it
  // started: its entry (whose frame may be before firstFrame() when the
  // ring has moved past the title's start).
  std::optional<RingTitle> titleAt(uint64_t frame) const;
  const std::deque<RingTitle>& titles() const { return titles_; }
  // Hands the frames from `from` to endFrame() in order; false when a
  // frame kept on disk could not be read back.
  bool readFrames(uint64_t from, const std::function<void(std::span<const uint8_t>, uint64_t frame)>& onFrame) const;

  // One frame's bytes into out; false when the ring no longer (or not yet)
  // holds it, or it could not be read back from the disk.
  bool readFrame(uint64_t frame, std::vector<uint8_t>& out) const;
  // The seconds of audio from the start of frame to endFrame() (0 past it;
  // all held before firstFrame()).
  double secondsFrom(uint64_t frame) const;
  // The frame whose start lies closest to `seconds` before endFrame(),
  // within what is held.
  uint64_t frameSecondsBeforeEnd(double seconds) const;

  double secondsHeld() const;
  // The seconds of audio appended since the ring began, and the running
  // time at which a held frame (or endFrame()) starts.
  double secondsAppended() const { return appended_; }
  double secondsAt(uint64_t frame) const { return appended_ - secondsFrom(frame); }
  uint64_t bytesHeld() const { return bytesHeld_; }
  uint64_t bytesInMemory() const { return bytesInMemory_; }
  // What the ring's memory holds in all: chunk buffers and index.
  uint64_t memoryUsed() const;
  // Why the disk could not take a chunk (it is dropped instead); empty if it could.
  const std::string& diskProblem() const { return diskProblem_; }

 private:
  struct Chunk {
    uint64_t firstFrame = 0;
    uint32_t sampleRate = 0;
    uint32_t bytes = 0;
    uint64_t samples = 0;
    bool discontinuity = false;
    std::unique_ptr<uint8_t[]> data;  // null once on disk
    int64_t diskSlot = -1;
    std::vector<uint16_t> frameBytes;
    std::vector<uint16_t> frameSamples;
  };
  void trim();
  void spill();
  bool openDisk();
  bool moveToDisk(Chunk& chunk);
  void release(Chunk& chunk);

  StationRingSettings settings_;
  std::deque<Chunk> chunks_;
  std::deque<RingTitle> titles_;
  uint64_t nextFrame_ = 0;
  uint64_t bytesHeld_ = 0;
  uint64_t bytesInMemory_ = 0;
  size_t chunksInMemory_ = 0;
  double seconds_ = 0;
  double appended_ = 0;
  int diskFd_ = -1;
  std::vector<int64_t> freeSlots_;
  int64_t slots_ = 0;
  std::string diskProblem_;
};

// The folder rings keep their overflow in: "com.brambleside.ettd/rings" in
// the user's cache folder ($XDG_CACHE_HOME, else ~/.cache).
std::string stationRingCacheFolder();

}  // namespace belvane::detail
