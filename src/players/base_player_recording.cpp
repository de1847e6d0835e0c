// BVBasePlayer: the station tap of each playback, its ring and recording,
// and the owner's news of recorded files (posted from the reading thread
// to the player's run loop).
#include <belvane/BVBasePlayer.h>
#include <belvane/BVConstants.h>
#include <belvane/BVRunLoop.h>

#include "streaming/station_tap.h"

#include <cmath>

using belvane::detail::RecordedFile;
using belvane::detail::RecordingProblem;
using belvane::detail::StationTap;

namespace {

BVErrorRef recordingError(RecordingProblem problem, const std::string& text) {
  int64_t code = BVRecordingErrorWrite;
  switch (problem) {
    case RecordingProblem::None: return nullptr;
    case RecordingProblem::Folder: code = BVRecordingErrorFolder; break;
    case RecordingProblem::DiskFull: code = BVRecordingErrorDiskFull; break;
    case RecordingProblem::Write: code = BVRecordingErrorWrite; break;
    case RecordingProblem::NoAudio: code = BVRecordingErrorNothing; break;
    case RecordingProblem::NoTitleStart: code = BVRecordingErrorNoTitleStart; break;
  }
  return BVError::withDescription(BVBelvaneErrorDomain, code, text);
}

}  // namespace

void BVBasePlayer::setTimeShiftMinutes(double minutes) {
  if (std::isnan(minutes) || minutes < 0) return;
  timeShiftMinutes_ = minutes;
}

std::shared_ptr<StationTap> BVBasePlayer::stationTap() const {
  std::lock_guard lock(tapMutex_);
  return stationTap_;
}

void BVBasePlayer::sharePlayback(const BVBasePlayer& from, BVBasePlayer& to) {
  auto tap = from.stationTap();
  auto playback = from.outputPlayback();
  {
    std::lock_guard lock(to.tapMutex_);
    to.stationTap_ = std::move(tap);
    to.tapShared_ = to.stationTap_ != nullptr;
  }
  std::lock_guard lock(to.linkMutex_);
  to.outputPlayback_ = std::move(playback);
  to.outputPlaybackShared_ = to.outputPlayback_ != nullptr;
}

// A playback of its own starts a fresh tap: the last one's recording ends
// (its last file is announced) and its ring goes.
void BVBasePlayer::startStationTap() {
  std::shared_ptr<StationTap> old;
  {
    std::lock_guard lock(tapMutex_);
    if (tapShared_) return;
    old = std::move(stationTap_);
  }
  if (old) old->stopRecording();
  belvane::detail::StationRingSettings settings;
  settings.minutes = timeShiftMinutes_;
  settings.memoryBytes = size_t(timeShiftMemoryLimit_);
  auto tap = std::make_shared<StationTap>(settings);
  const BVRunLoop loop = BVRunLoop::current();
  const std::weak_ptr<BVObject> weak = weak_from_this();
  tap->setHandlers(
      [loop, weak](const RecordedFile& file) {
        loop.perform(weak, [weak, file] {
          if (auto self = std::static_pointer_cast<BVBasePlayer>(weak.lock())) self->announceRecordedFile(file);
        });
      },
      [loop, weak](RecordingProblem problem, const std::string& text) {
        loop.perform(weak, [weak, problem, text] {
          auto self = std::static_pointer_cast<BVBasePlayer>(weak.lock());
          if (self && self->owner()) self->owner()->playerRecordingStopped(*self, recordingError(problem, text));
        });
      });
  std::lock_guard lock(tapMutex_);
  stationTap_ = std::move(tap);
}

void BVBasePlayer::announceRecordedFile(const RecordedFile& file) {
  if (auto* o = owner()) o->playerRecordedFile(*this, file.path, file.title, file.complete);
}

double BVBasePlayer::timeShiftSecondsHeld() const {
  auto tap = stationTap();
  return tap ? tap->reading().secondsHeld : 0.0;
}

BVErrorRef BVBasePlayer::startRecording(const std::string& folder) {
  auto tap = stationTap();
  if (!tap) return recordingError(RecordingProblem::NoAudio, "No live station plays to record.");
  std::string why;
  return recordingError(tap->startRecording(folder, false, &why), why);
}

BVErrorRef BVBasePlayer::recordCurrentTitleFromItsStart(const std::string& folder) {
  auto tap = stationTap();
  if (!tap) return recordingError(RecordingProblem::NoAudio, "No live station plays to record.");
  std::string why;
  return recordingError(tap->startRecording(folder, true, &why), why);
}

void BVBasePlayer::stopRecording() {
  if (auto tap = stationTap()) tap->stopRecording();
}

bool BVBasePlayer::isRecording() const {
  auto tap = stationTap();
  return tap && tap->isRecording();
}
