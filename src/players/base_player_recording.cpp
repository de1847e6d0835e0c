// BVBasePlayer: the station tap of each playback, its ring and recording,
// and the owner's news of recorded files (posted from the reading thread
// to the player's run loop).
#include <belvane/BVBasePlayer.h>
#include <belvane/BVConstants.h>
#include <belvane/BVRunLoop.h>

#include "players/base_player_impl.h"
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

std::shared_ptr<StationTap> BVBasePlayer::Impl::stationTap() const {
  belvane::detail::MutexLock lock(tapMutex);
  return stationTap_;
}

void BVBasePlayer::Impl::share(const BVBasePlayer& from, BVBasePlayer& to) {
  auto tap = from.impl_->stationTap();
  auto playback = from.impl_->outputPlayback();
  Impl& into = *to.impl_;
  {
    belvane::detail::MutexLock lock(into.tapMutex);
    into.stationTap_ = std::move(tap);
    into.tapShared = into.stationTap_ != nullptr;
  }
  belvane::detail::MutexLock lock(into.linkMutex);
  into.outputPlayback_ = std::move(playback);
  into.outputPlaybackShared = into.outputPlayback_ != nullptr;
}

// A playback of its own starts a fresh tap: the last one's recording ends
// (its last file is announced) and its ring goes.
void BVBasePlayer::startStationTap() {
  std::shared_ptr<StationTap> old;
  {
    belvane::detail::MutexLock lock(impl_->tapMutex);
    if (impl_->tapShared) return;
    old = std::move(impl_->stationTap_);
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
          auto self = std::static_pointer_cast<BVBasePlayer>(weak.lock());
          if (self && self->owner()) self->owner()->playerRecordedFile(*self, file.path, file.title, file.complete);
        });
      },
      [loop, weak](RecordingProblem problem, const std::string& text) {
        loop.perform(weak, [weak, problem, text] {
          auto self = std::static_pointer_cast<BVBasePlayer>(weak.lock());
          if (self && self->owner()) self->owner()->playerRecordingStopped(*self, recordingError(problem, text));
        });
      });
  belvane::detail::MutexLock lock(impl_->tapMutex);
  impl_->stationTap_ = std::move(tap);
}

double BVBasePlayer::timeShiftSecondsHeld() const {
  auto tap = impl_->stationTap();
  return tap ? tap->reading().secondsHeld : 0.0;
}

BVErrorRef BVBasePlayer::startRecording(const std::string& folder) {
  auto tap = impl_->stationTap();
  if (!tap) return recordingError(RecordingProblem::NoAudio, "No live station plays to record.");
  std::string why;
  return recordingError(tap->startRecording(folder, false, &why), why);
}

BVErrorRef BVBasePlayer::recordCurrentTitleFromItsStart(const std::string& folder) {
  auto tap = impl_->stationTap();
  if (!tap) return recordingError(RecordingProblem::NoAudio, "No live station plays to record.");
  std::string why;
  return recordingError(tap->startRecording(folder, true, &why), why);
}

void BVBasePlayer::stopRecording() {
  if (auto tap = impl_->stationTap()) tap->stopRecording();
}

bool BVBasePlayer::isRecording() const {
  auto tap = impl_->stationTap();
  return tap && tap->isRecording();
}
