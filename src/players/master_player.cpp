// BVMasterPlayer: forwards to its sub-player, relays the sub-player's
// callbacks with itself as the player, and switches engines once when the
// MP3 stream player fails on a stream that had fallback streams.
#include <belvane/BVMP3StreamPlayer.h>
#include <belvane/BVMasterPlayer.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVPlayerEngineCenter.h>
#include <belvane/BVPlayerEngines.h>
#include <belvane/BVRunLoop.h>

#include <algorithm>

std::shared_ptr<BVMasterPlayer> BVMasterPlayer::create() {
  return std::shared_ptr<BVMasterPlayer>(new BVMasterPlayer());
}

BVMasterPlayer::BVMasterPlayer() : _subPlayer(BVMP3StreamPlayer::create()) { _subPlayer->setOwner(this); }

BVMasterPlayer::~BVMasterPlayer() {
  _subPlayer->setOwner(nullptr);
  _subPlayer.reset();
}

void BVMasterPlayer::playLink(const std::shared_ptr<BVMediaLink>& link) {
  BVBasePlayer::playLink(link);
  auto sub = _subPlayer;  // playing may replace the sub-player
  sub->playLink(link);
}

BVPlayerState BVMasterPlayer::state() const { return _subPlayer->state(); }
bool BVMasterPlayer::hasPosition() const { return _subPlayer->hasPosition(); }
float BVMasterPlayer::position() const { return _subPlayer->position(); }
void BVMasterPlayer::setPosition(float position) { _subPlayer->setPosition(position); }
float BVMasterPlayer::volume() const { return _subPlayer->volume(); }
void BVMasterPlayer::setVolume(float volume) { _subPlayer->setVolume(volume); }
bool BVMasterPlayer::isMuted() const { return _subPlayer->isMuted(); }
void BVMasterPlayer::setMuted(bool muted) { _subPlayer->setMuted(muted); }
float BVMasterPlayer::elapsedTime() const { return _subPlayer->elapsedTime(); }
BVDictionary BVMasterPlayer::attributes() const { return _subPlayer->attributes(); }

void BVMasterPlayer::playerStateChanged(BVBasePlayer& player, BVPlayerState from, BVPlayerState to,
                                        const BVErrorRef& error) {
  auto self = shared_from_this();
  auto* mp3 = dynamic_cast<BVMP3StreamPlayer*>(&player);
  auto link = this->link();
  if (error && mp3 && !mp3->fallbackStreams().empty() && link && link->format()) {
    auto candidates = BVPlayerEngineCenter::sharedCenter()->preferedEnginesForFormat(*link->format());
    std::shared_ptr<BVBasePlayerEngine> mp3Engine = BVMP3StreamPlayerEngine::sharedEngine();
    candidates.erase(std::remove(candidates.begin(), candidates.end(), mp3Engine), candidates.end());
    std::shared_ptr<BVBasePlayer> next;
    if (!candidates.empty()) {
      if (auto engine = link->defaultEngineFromEngines(candidates)) next = engine->createPlayer();
    }
    if (next) {
      next->setVolume(volume());
      next->setMuted(isMuted());
      next->setPosition(position());
      // The failing player may be the caller: keep it until it returns.
      auto old = std::move(_subPlayer);
      _subPlayer = next;
      _subPlayer->setOwner(this);
      _subPlayer->playLink(link);
      BVRunLoop::current().perform([old] {});
      return;
    }
  }
  if (auto* o = owner()) o->playerStateChanged(*this, from, to, error);
}

void BVMasterPlayer::playerPositionChanged(BVBasePlayer&, float position) {
  auto self = shared_from_this();
  if (auto* o = owner()) o->playerPositionChanged(*this, position);
}

void BVMasterPlayer::playerAttributeChanged(BVBasePlayer&, const BVDictionary& attributes) {
  auto self = shared_from_this();
  if (auto* o = owner()) o->playerAttributeChanged(*this, attributes);
}
