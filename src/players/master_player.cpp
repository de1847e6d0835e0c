// BVMasterPlayer: forwards to its sub-player, relays the sub-player's
// callbacks with itself as the player, and switches engines once when the
// MP3 stream player fails on a stream that had fallback streams.
#include <belvane/BVConstants.h>
#include <belvane/BVMP3StreamPlayer.h>
#include <belvane/BVMasterPlayer.h>
#include <belvane/BVMediaFormat.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVPlayerEngineCenter.h>
#include <belvane/BVPlayerEngines.h>
#include <belvane/BVRunLoop.h>

#include <algorithm>
#include <optional>
#include <utility>

#include "streaming/shoutstreamer.h"

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

namespace {
using EngineList = std::vector<std::shared_ptr<BVBasePlayerEngine>>;

EngineList enginesOtherThanMP3(const BVMediaFormat& format) {
  auto engines = BVPlayerEngineCenter::sharedCenter()->preferedEnginesForFormat(format);
  std::shared_ptr<BVBasePlayerEngine> mp3Engine = BVMP3StreamPlayerEngine::sharedEngine();
  engines.erase(std::remove(engines.begin(), engines.end(), mp3Engine), engines.end());
  return engines;
}

// The type of stream the MP3 player turned down: the MIME type the tuner saw
// on the first declined candidate that had one, or AAC for a stream that
// claimed to be MP3 but turned out to be AAC. Nothing when neither applies.
std::optional<std::string> declinedStreamType(const BVMP3StreamPlayer& player, const BVErrorRef& error) {
  for (const auto& type : player.fallbackStreamTypes())
    if (!type.empty()) return type;
  if (error->domain() == BVShoutstreamerErrorDomain && error->code() == SHOUTSTREAMER_ERROR_AAC) return "audio/aac";
  return std::nullopt;
}
}  // namespace

// The player of another engine for the link the MP3 player declined, with the
// link it should play; nothing when no other engine takes it.
std::pair<std::shared_ptr<BVBasePlayer>, std::shared_ptr<BVMediaLink>> BVMasterPlayer::fallbackPlayer(
    const BVMP3StreamPlayer& failed, const BVErrorRef& error) {
  auto link = this->link();
  if (!link || !link->format()) return {};
  if (!failed.fallbackStreams().empty()) {
    auto candidates = enginesOtherThanMP3(*link->format());
    if (!candidates.empty()) {
      auto engine = link->defaultEngineFromEngines(candidates);
      return {engine ? engine->createPlayer() : nullptr, link};
    }
  }
  // No other engine claims the link's own format (a bare station URL whose
  // server calls it a web page, say): the type the stream itself was served
  // with chooses, and the next player is given the link with that type, so
  // that it makes the same choice.
  auto type = declinedStreamType(failed, error);
  if (!type) return {};
  auto format = link->format()->mutableCopy();
  format->setMimeType(*type);
  for (const auto& engine : enginesOtherThanMP3(*format)) {
    if (!engine->isAvailable()) continue;
    auto retyped = link->mutableCopy();
    retyped->setFormat(format->copy());
    return {engine->createPlayer(), retyped->copy()};
  }
  return {};
}

void BVMasterPlayer::playerStateChanged(BVBasePlayer& player, BVPlayerState from, BVPlayerState to,
                                        const BVErrorRef& error) {
  auto self = shared_from_this();
  auto* mp3 = dynamic_cast<BVMP3StreamPlayer*>(&player);
  if (error && mp3 && &player == _subPlayer.get()) {
    auto [next, link] = fallbackPlayer(*mp3, error);
    if (next) {
      next->setAudioOutput(audioOutput());
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

int BVMasterPlayer::setAudioOutput(const std::string& setting) {
  int result = BVBasePlayer::setAudioOutput(setting);
  if (result == 0) _subPlayer->setAudioOutput(setting);
  return result;
}

std::string BVMasterPlayer::audioOutputName() const { return _subPlayer->audioOutputName(); }
uint64_t BVMasterPlayer::outputFramesWritten() const { return _subPlayer->outputFramesWritten(); }

void BVMasterPlayer::playerPositionChanged(BVBasePlayer&, float position) {
  auto self = shared_from_this();
  if (auto* o = owner()) o->playerPositionChanged(*this, position);
}

void BVMasterPlayer::playerAttributeChanged(BVBasePlayer&, const BVDictionary& attributes) {
  auto self = shared_from_this();
  if (auto* o = owner()) o->playerAttributeChanged(*this, attributes);
}
