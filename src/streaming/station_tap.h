// StationTap: where a live station's compressed audio goes on its way to
// the decoder, for one playback. The connection's reader hands it the audio
// bytes after the ICY split and each title at its place among them; it cuts
// them into codec frames (AudioFrameSplitter), keeps the last minutes in a
// StationRing with each title's first frame, and feeds a recording when one
// runs (StationRecorder).
//
// Threads: audio(), title(), connectionStarted() and streamEnded() come from
// the thread that reads the station (one at a time; a fallback engine's
// reader may follow another's); the recording calls and the readings come
// from any thread. A mutex guards everything. The handlers are called on the
// reading thread (or the caller's, for stopRecording), under that mutex:
// they must only hand the news on (a player posts it to its run loop).
#pragma once

#include "foundation/thread_annotations.h"
#include "streaming/audio_frame_splitter.h"
#include "streaming/station_recorder.h"
#include "streaming/station_ring.h"
#include "streaming/stream_title.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>

namespace belvane::detail {

class StationTap {
 public:
  using FileHandler = std::function<void(const RecordedFile&)>;
  // The recording ended by itself: problem None when the station ended,
  // else the problem and its wording.
  using EndHandler = std::function<void(RecordingProblem, const std::string&)>;

  explicit StationTap(StationRingSettings settings = {});
  void setHandlers(FileHandler onFile, EndHandler onEnd);

  // The reading thread. A connection's reply came: titles arrive as sent
  // and are read in titleEncoding (empty: detected).
  void connectionStarted(std::string titleEncoding = {});
  void audio(std::span<const uint8_t> bytes);
  // A title as sent (its bytes), placed before the next audio byte.
  void title(const StreamTitle& rawTitle);
  // The station ended or could not be read any more: a recording ends.
  void streamEnded();

  // Any thread. Starts recording into folder from the next frame; with
  // fromTitleStart, from the first frame of the title that plays (taken
  // from the ring), replacing the open file of a running recording.
  // RecordingProblem::None when it runs, else why not (*why worded).
  RecordingProblem startRecording(const std::string& folder, bool fromTitleStart, std::string* why);
  void stopRecording();
  bool isRecording() const;

  struct Reading {
    double secondsHeld = 0;
    uint64_t bytesHeld = 0;
    uint64_t bytesInMemory = 0;
    uint64_t memoryUsed = 0;
    uint64_t firstFrame = 0;
    uint64_t endFrame = 0;
    std::optional<RingTitle> currentTitle;  // the last title and its first frame
    AudioSyncKind kind = AudioSyncKind::None;
  };
  Reading reading() const;
  // Calls fn with the ring under the tap's lock (time-shift reads frames so).
  void withRing(const std::function<void(const StationRing&)>& fn) const;
  // The reading thread, between two audio() calls: the number of the frame
  // that the bytes fed so far end in (the next one the ring will hold) and
  // how many of its bytes were fed; nullopt while the splitter is not in
  // step with the frames.
  std::optional<std::pair<uint64_t, size_t>> partialFrame() const;

 private:
  void frame(const AudioFrame& frame) REQUIRES(mutex_);
  void recordingFailed() REQUIRES(mutex_);
  void tellRecorderTheChain() REQUIRES(mutex_);

  mutable Mutex mutex_;
  StationRing ring_ GUARDED_BY(mutex_);
  AudioFrameSplitter splitter_ GUARDED_BY(mutex_);
  std::string titleEncoding_ GUARDED_BY(mutex_);
  struct PendingTitle {
    uint64_t offset;
    StreamTitle title;
  };
  std::deque<PendingTitle> pendingTitles_ GUARDED_BY(mutex_);
  std::optional<StreamTitle> currentTitle_ GUARDED_BY(mutex_);
  bool discontinuity_ GUARDED_BY(mutex_) = false;
  int connections_ GUARDED_BY(mutex_) = 0;
  std::unique_ptr<StationRecorder> recorder_ GUARDED_BY(mutex_);
  FileHandler onFile_ GUARDED_BY(mutex_);
  EndHandler onEnd_ GUARDED_BY(mutex_);
};

}  // namespace belvane::detail
