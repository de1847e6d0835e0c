// StationTap: frames, ring and recording of one playback's station.
#include "streaming/station_tap.h"

#include "foundation/text_encoding.h"
#include "foundation/title_encoding.h"

#include <utility>

namespace belvane::detail {

namespace {
// Titles kept waiting for their frame: a station that sends titles and no
// audio does not grow the queue.
constexpr size_t kMaxPendingTitles = 32;
}  // namespace

StationTap::StationTap(StationRingSettings settings) : ring_(std::move(settings)) {}

void StationTap::setHandlers(FileHandler onFile, EndHandler onEnd) {
  MutexLock lock(mutex_);
  onFile_ = std::move(onFile);
  onEnd_ = std::move(onEnd);
}

void StationTap::connectionStarted(std::string titleEncoding) {
  MutexLock lock(mutex_);
  titleEncoding_ = std::move(titleEncoding);
  // A frame cut short by the break goes; the next connection joins the
  // stream elsewhere.
  splitter_.restart();
  discontinuity_ = connections_++ > 0;
}

void StationTap::title(const StreamTitle& rawTitle) {
  std::string encoding;
  {
    MutexLock lock(mutex_);
    encoding = titleEncoding_;
  }
  // Read outside the lock: the readings and the recording calls need not wait for it.
  StreamTitle title{stationTitleToUTF8(bytesOf(rawTitle.title), encoding),
                    stationTitleToUTF8(bytesOf(rawTitle.url), encoding)};
  MutexLock lock(mutex_);
  if (pendingTitles_.size() == kMaxPendingTitles) pendingTitles_.pop_front();
  pendingTitles_.push_back({splitter_.bytesFed(), std::move(title)});
}

void StationTap::audio(std::span<const uint8_t> bytes) {
  MutexLock lock(mutex_);
  splitter_.feed(bytes, [this](const AudioFrame& frame) REQUIRES(mutex_) { this->frame(frame); });
}

// A title belongs to the first frame that starts at or after its place.
// Only a change of title counts: stations that repeat theirs in every
// metadata block do not cut a recording.
void StationTap::frame(const AudioFrame& frame) {
  const uint64_t number = ring_.endFrame();
  if (frame.chainStart) {
    // A new Ogg chain is a new song: its own title, from its comment header.
    const OggPageSplitter& ogg = splitter_.ogg();
    if (recorder_) recorder_->oggChain(ogg.chainHeaders(), ogg.extension(), ogg.chainTitle());
    if (!ogg.chainTitle().empty()) {
      StreamTitle title{ogg.chainTitle(), {}};
      currentTitle_ = title;
      ring_.addTitle(number, title);
      if (recorder_) recorder_->titleStarts(title);
    }
  }
  while (!pendingTitles_.empty() && pendingTitles_.front().offset <= frame.streamOffset) {
    StreamTitle title = std::move(pendingTitles_.front().title);
    pendingTitles_.pop_front();
    if (currentTitle_ && currentTitle_->title == title.title) continue;
    currentTitle_ = title;
    ring_.addTitle(number, title);
    if (recorder_) recorder_->titleStarts(title);
  }
  ring_.appendFrame(frame.bytes, frame.samples, frame.sampleRate, std::exchange(discontinuity_, false));
  if (recorder_ && !recorder_->frame(frame.bytes, splitter_.kind())) recordingFailed();
}

void StationTap::tellRecorderTheChain() {
  if (splitter_.kind() != AudioSyncKind::Ogg) return;
  const OggPageSplitter& ogg = splitter_.ogg();
  recorder_->oggChain(ogg.chainHeaders(), ogg.extension(), ogg.chainTitle());
}

void StationTap::recordingFailed() {
  RecordingProblem problem = recorder_->problem();
  std::string text = recorder_->problemText();
  recorder_.reset();
  if (onEnd_) onEnd_(problem, text);
}

void StationTap::streamEnded() {
  MutexLock lock(mutex_);
  if (!recorder_) return;
  recorder_.reset();  // the open file is cut off: incomplete
  if (onEnd_) onEnd_(RecordingProblem::None, "The station ended.");
}

RecordingProblem StationTap::startRecording(const std::string& folder, bool fromTitleStart, std::string* why) {
  std::string problem = StationRecorder::checkFolder(folder);
  MutexLock lock(mutex_);
  if (!problem.empty()) {
    if (why) *why = problem;
    return RecordingProblem::Folder;
  }
  if (!fromTitleStart) {
    if (recorder_) return RecordingProblem::None;  // already recording; the folder stays
    recorder_ = std::make_unique<StationRecorder>(folder, currentTitle_.value_or(StreamTitle{}), false, onFile_);
    tellRecorderTheChain();
    return RecordingProblem::None;
  }
  if (ring_.endFrame() == ring_.firstFrame()) {
    if (why)
      *why = ring_.endFrame() == 0 ? "Nothing of the station has been heard yet to record."
                                   : "The title's start cannot be recorded: time-shift is off, so nothing of the "
                                     "station is kept.";
    return ring_.endFrame() == 0 ? RecordingProblem::NoAudio : RecordingProblem::NoTitleStart;
  }
  std::optional<RingTitle> title = ring_.titleAt(ring_.endFrame() - 1);
  uint64_t from = ring_.firstFrame();
  bool whole = false;
  if (title && title->frame >= from) {
    from = title->frame;
    whole = true;
  }
  if (recorder_) recorder_->discardOpenFile();
  recorder_ = std::make_unique<StationRecorder>(folder, title ? title->title : StreamTitle{}, whole, onFile_);
  tellRecorderTheChain();
  const AudioSyncKind kind = splitter_.kind();
  bool written = ring_.readFrames(from, [&](std::span<const uint8_t> bytes, uint64_t) REQUIRES(mutex_) {
    if (recorder_) recorder_->frame(bytes, kind);
  });
  if (!written || recorder_->problem() != RecordingProblem::None) {
    RecordingProblem failed = written ? recorder_->problem() : RecordingProblem::Write;
    if (why) *why = written ? recorder_->problemText() : "The title's start could not be read back from the disk.";
    recorder_.reset();
    return failed;
  }
  return RecordingProblem::None;
}

void StationTap::stopRecording() {
  MutexLock lock(mutex_);
  recorder_.reset();
}

bool StationTap::isRecording() const {
  MutexLock lock(mutex_);
  return recorder_ != nullptr;
}

StationTap::Reading StationTap::reading() const {
  MutexLock lock(mutex_);
  Reading r;
  r.secondsHeld = ring_.secondsHeld();
  r.bytesHeld = ring_.bytesHeld();
  r.bytesInMemory = ring_.bytesInMemory();
  r.memoryUsed = ring_.memoryUsed();
  r.firstFrame = ring_.firstFrame();
  r.endFrame = ring_.endFrame();
  if (!ring_.titles().empty()) r.currentTitle = ring_.titles().back();
  r.kind = splitter_.kind();
  return r;
}

std::optional<std::pair<uint64_t, size_t>> StationTap::partialFrame() const {
  MutexLock lock(mutex_);
  auto bytes = splitter_.partialFrameBytes();
  if (!bytes) return std::nullopt;
  return std::make_pair(ring_.endFrame(), *bytes);
}

void StationTap::withRing(const std::function<void(const StationRing&)>& fn) const {
  MutexLock lock(mutex_);
  fn(ring_);
}

}  // namespace belvane::detail
