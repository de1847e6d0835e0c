// BVHelixPlayer: set-up and tear-down of the kit objects, playback
// controls, position and attributes, and the idle tick.
#include <belvane/BVHelixError.h>
#include <belvane/BVHelixPlayer.h>
#include <belvane/BVMediaFormat.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVTimerForwarder.h>

#include "players/helix/helix_observer.h"

#include <cstdlib>
#include <limits>

namespace {

// The kit's volume scale (0 to 100) for a volume of 0.0 to 1.0, truncated.
uint16_t kitVolume(float volume) {
  float scaled = volume * 100.0f;
  if (!(scaled > 0.0f)) return 0;
  if (scaled >= float(std::numeric_limits<uint16_t>::max())) return std::numeric_limits<uint16_t>::max();
  return uint16_t(scaled);
}

// Milliseconds for a fraction of the length; negative targets seek to 0.
uint32_t seekTarget(uint32_t length, float fraction) {
  float target = float(length) * fraction;
  if (!(target > 0.0f)) return 0;
  if (target >= 4294967295.0f) return std::numeric_limits<uint32_t>::max();
  return uint32_t(target);
}

}  // namespace

std::shared_ptr<BVHelixPlayer> BVHelixPlayer::create(const HXClientPlayerClass* playerClass,
                                                     const HXClientViewClass* viewClass) {
  return std::shared_ptr<BVHelixPlayer>(new BVHelixPlayer(playerClass, viewClass));
}

BVHelixPlayer::BVHelixPlayer(const HXClientPlayerClass* playerClass, const HXClientViewClass* viewClass)
    : kitPlayerClass_(playerClass), kitViewClass_(viewClass), observer_(belvane::detail::helixObserverFor(this)) {}

BVHelixPlayer::~BVHelixPlayer() {
  // The kit may report while its player goes away; those reports find
  // weak_from_this() expired and change nothing. After release the kit
  // sends nothing more.
  _releasePlayer();
}

void BVHelixPlayer::playLink(const std::shared_ptr<BVMediaLink>& link) {
  auto self = shared_from_this();  // the owner may drop us during a callback
  BVBasePlayer::playLink(link);
  _releasePlayer();
  changeStateTo(BVPlayerStateConnecting);

  if (kitViewClass_) _view = kitViewClass_->initWithFrame(0, 0, 0, 0);
  if (!_view) {
    changeStateTo(BVPlayerStateError, BVHelixError(10101, "HXClientView could not be created"));
    return;
  }
  if (kitPlayerClass_) _player = kitPlayerClass_->initInView(_view, &observer_);
  if (!_player) {
    changeStateTo(BVPlayerStateError, BVHelixError(10102, "HXClientPlayer could not be created"));
    return;
  }
  for (const std::string& name : _observedHelixStatisticKeys())
    kitPlayerClass_->addObserver(_player, &observer_, name.c_str(), nullptr);
  tellKitTheAudioOutput();

  _idleTimer = timerWithNonretainedTarget(this, &BVHelixPlayer::onIdle, 1.0);

  std::string url = link ? link->url().absoluteString() : std::string();
  std::optional<std::string> mimeType;
  if (link && link->format()) mimeType = link->format()->mimeType();
  if (!kitPlayerClass_->openWithURL(_player, url.c_str(), mimeType ? mimeType->c_str() : nullptr)) {
    changeStateTo(BVPlayerStateError, BVHelixError(10201, "Failed to not start playback of URL: '%s'", url.c_str()));
    return;
  }
  // Mute is not reapplied here: a new kit player starts unmuted.
  applyKitVolume();
  if (_player) kitPlayerClass_->play(_player);
}

// The kit plays where the host chose, the setting handed on as it is; a kit
// whose table ends before the slot chooses itself.
void BVHelixPlayer::tellKitTheAudioOutput() {
  static_assert(int32_t(BVAudioOutputSetting::Kind::Pulse) == HXAudioOutputPulse &&
                int32_t(BVAudioOutputSetting::Kind::Wav) == HXAudioOutputWav);
  constexpr size_t slot = offsetof(HXClientPlayerClass, setAudioOutput);
  if (kitPlayerClass_->size < slot + sizeof(kitPlayerClass_->setAudioOutput) || !kitPlayerClass_->setAudioOutput)
    return;
  auto setting = audioOutputSetting().resolved();
  if (!setting) return;
  HXClientAudioOutput output{static_cast<int32_t>(setting->kind), setting->device.c_str()};
  kitPlayerClass_->setAudioOutput(_player, &output);
}

void BVHelixPlayer::_releasePlayer() {
  if (_idleTimer) {
    _idleTimer->invalidate();
    _idleTimer.reset();
  }
  if (_player) {
    for (const std::string& name : _observedHelixStatisticKeys())
      kitPlayerClass_->removeObserver(_player, &observer_, name.c_str(), nullptr);
    // Releasing the kit player ends its playback; it is not stopped first.
    HXClientPlayerRef player = _player;
    _player = nullptr;
    kitPlayerClass_->release(player);
  }
  if (_view) {
    HXClientViewRef view = _view;
    _view = nullptr;
    kitViewClass_->release(view);
  }
}

bool BVHelixPlayer::hasPosition() const { return _player && !kitPlayerClass_->isLive(_player); }

float BVHelixPlayer::position() const {
  if (!hasPosition()) return -1.0f;
  // A zero length is the kit's to avoid; the result is then not a number.
  return float(kitPlayerClass_->position(_player)) / float(kitPlayerClass_->length(_player));
}

void BVHelixPlayer::setPosition(float position) {
  if (!hasPosition()) return;
  if (!kitPlayerClass_->startSeeking(_player)) return;
  kitPlayerClass_->setPosition(_player, seekTarget(kitPlayerClass_->length(_player), position));
  kitPlayerClass_->stopSeeking(_player);
}

float BVHelixPlayer::elapsedTime() const {
  if (!_player) return -1.0f;
  return float(kitPlayerClass_->position(_player) / 1000.0);
}

void BVHelixPlayer::setVolume(float volume) {
  _volume = volume;
  applyKitVolume();
}

void BVHelixPlayer::applyKitVolume() {
  if (_player) kitPlayerClass_->setVolume(_player, kitVolume(_volume));
}

void BVHelixPlayer::setMuted(bool muted) {
  _muted = muted;
  if (_player) kitPlayerClass_->mute(_player, muted);
}

BVDictionary BVHelixPlayer::attributes() const {
  BVDictionary attributes;
  if (!_player) return attributes;
  for (const std::string& name : _observedHelixStatisticKeys()) {
    char* value = kitPlayerClass_->copyStatisticsFor(_player, name.c_str());
    if (!value) continue;
    if (auto key = _helixStatisticKeyToNativeKey(name)) attributes[*key] = BVValue(value);
    std::free(value);
  }
  return attributes;
}

void BVHelixPlayer::onIdle(BVTimer&) {
  auto self = weak_from_this().lock();  // none while the player is destroyed
  if (!self || !hasPosition()) return;
  double wholeSeconds = double(kitPlayerClass_->position(_player) / 1000);
  // Strictly more than a second: reports come about every two seconds of
  // playback, and not at all after a backward seek until playback passes
  // the last reported time again.
  if (wholeSeconds - _lastIdleTimestamp > 1.0) {
    _lastIdleTimestamp = wholeSeconds;
    changedPosition(position());
  }
}
