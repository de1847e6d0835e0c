// BVMasterPlayer: forwards to its sub-player, relays the sub-player's
// callbacks with itself as the player, and switches engines once when the
// MP3 stream player fails on a stream that had fallback streams.
#include <belvane/BVConstants.h>
#include <belvane/BVMP3StreamPlayer.h>
#include <belvane/BVHelixPlayer.h>
#include <belvane/BVMasterPlayer.h>
#include <belvane/BVQuickTimePlayer.h>
#include <belvane/BVMediaFormat.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVPlayerEngineCenter.h>
#include <belvane/BVPlayerEngines.h>
#include <belvane/BVRunLoop.h>

#include <algorithm>
#include <fstream>
#include <optional>
#include <string_view>
#include <utility>

#include "foundation/request_settings_scope.h"
#include "foundation/sleep_inhibitor.h"
#include "players/base_player_impl.h"
#include "streaming/shoutstreamer.h"

std::shared_ptr<BVMasterPlayer> BVMasterPlayer::create() {
  return std::shared_ptr<BVMasterPlayer>(new BVMasterPlayer());
}

// Hidden: the library's own, though its class is exported.
struct __attribute__((visibility("hidden"))) BVMasterPlayer::Impl {
  std::unique_ptr<belvane::detail::SleepInhibitor> sleepInhibitor;  // made when first held
};

BVMasterPlayer::BVMasterPlayer() : _subPlayer(BVMP3StreamPlayer::create()), impl_(std::make_unique<Impl>()) {
  _subPlayer->setOwner(this);
}

BVMasterPlayer::~BVMasterPlayer() {
  _subPlayer->setOwner(nullptr);
  _subPlayer.reset();
}

namespace {
// A new player of the engine whose player `current` is.
std::shared_ptr<BVBasePlayer> freshPlayerLike(const BVBasePlayer& current) {
  if (dynamic_cast<const BVQuickTimePlayer*>(&current)) return BVQuicktimePlayerEngine::sharedEngine()->createPlayer();
  if (dynamic_cast<const BVHelixPlayer*>(&current))
    if (auto player = BVHelixPlayerEngine::sharedEngine()->createPlayer()) return player;
  return BVMP3StreamPlayer::create();
}
}  // namespace

void BVMasterPlayer::playLink(const std::shared_ptr<BVMediaLink>& link) {
  checkThread("BVMasterPlayer::playLink");
  // Requests made while engines are chosen (a link's type asked of its
  // server) go out as the playback's own do.
  belvane::detail::RequestSettingsScope requests(requestSettings());
  BVBasePlayer::playLink(link);
  stopped_ = false;
  _subPlayer->setStopsAfterCurrentTitle(false);
  relayedState_.reset();
  if (subPlayerUsed_) {
    // The sub-player has played before: what it played stops now, and the
    // new link starts afresh on the same engine, with nothing of the last
    // playback left over (its error, fallback streams, drain, title).
    replaceSubPlayer(freshPlayerLike(*_subPlayer));
  }
  auto sub = _subPlayer;  // playing may replace the sub-player
  BVBasePlayer::Impl::share(*this, *sub);
  subPlayerUsed_ = true;
  sub->playLink(link);
  updateSleepInhibitor();
}

void BVMasterPlayer::stop() {
  checkThread("BVMasterPlayer::stop");
  auto from = state();
  if (from == BVPlayerStateIdle || from == BVPlayerStateStopped || from == BVPlayerStateError) return;
  auto self = shared_from_this();
  stopRecording();
  replaceSubPlayer(freshPlayerLike(*_subPlayer));
  stopped_ = true;
  relayedState_ = BVPlayerStateStopped;
  updateSleepInhibitor();
  if (auto* o = owner()) o->playerStateChanged(*this, from, BVPlayerStateStopped, nullptr);
  if (relayedReception_ != BVPlayerReception{}) {
    relayedReception_ = {};
    changedReception({});
  }
}

// The next sub-player takes over the output, volume and mute of the current
// one. The old sub-player hears nothing more from here on; it goes once the
// call that may be running inside it has returned, and its audio stops with it.
void BVMasterPlayer::replaceSubPlayer(std::shared_ptr<BVBasePlayer> next) {
  next->setAudioOutputSetting(audioOutputSetting());
  next->setReconnectPatience(reconnectPatience());
  next->setRequestSettings(requestSettings());
  next->setVolume(volume());
  next->setMuted(isMuted());
  next->setStopsAfterCurrentTitle(stopsAfterCurrentTitle());
  next->setLoudnessNormalization(loudnessNormalization());
  next->setLoudnessTarget(loudnessTarget());
  BVBasePlayer::Impl::share(*this, *next);
  auto old = std::move(_subPlayer);
  old->setOwner(nullptr);
  _subPlayer = std::move(next);
  _subPlayer->setOwner(this);
  subPlayerUsed_ = false;
  BVRunLoop::current().perform([old] {});
}

BVPlayerState BVMasterPlayer::state() const { return stopped_ ? BVPlayerStateStopped : _subPlayer->state(); }
bool BVMasterPlayer::hasPosition() const { return _subPlayer->hasPosition(); }
float BVMasterPlayer::position() const { return _subPlayer->position(); }
void BVMasterPlayer::setPosition(float position) { _subPlayer->setPosition(position); }
float BVMasterPlayer::volume() const { return _subPlayer->volume(); }
void BVMasterPlayer::setVolume(float volume) { _subPlayer->setVolume(volume); }
bool BVMasterPlayer::isMuted() const { return _subPlayer->isMuted(); }
void BVMasterPlayer::setMuted(bool muted) { _subPlayer->setMuted(muted); }
void BVMasterPlayer::fadeVolumeTo(float volume, double seconds) { _subPlayer->fadeVolumeTo(volume, seconds); }
void BVMasterPlayer::setStopsAfterCurrentTitle(bool stops) { _subPlayer->setStopsAfterCurrentTitle(stops); }
void BVMasterPlayer::setLoudnessNormalization(bool normalizes) {
  BVBasePlayer::setLoudnessNormalization(normalizes);
  _subPlayer->setLoudnessNormalization(normalizes);
}
void BVMasterPlayer::setLoudnessTarget(double lufs) {
  BVBasePlayer::setLoudnessTarget(lufs);
  _subPlayer->setLoudnessTarget(lufs);
}
bool BVMasterPlayer::stopsAfterCurrentTitle() const { return !stopped_ && _subPlayer->stopsAfterCurrentTitle(); }
float BVMasterPlayer::elapsedTime() const { return _subPlayer->elapsedTime(); }
BVDictionary BVMasterPlayer::attributes() const { return _subPlayer->attributes(); }
bool BVMasterPlayer::pause() {
  checkThread("BVMasterPlayer::pause");
  bool paused = !stopped_ && _subPlayer->pause();
  updateSleepInhibitor();
  return paused;
}
void BVMasterPlayer::resume() {
  checkThread("BVMasterPlayer::resume");
  _subPlayer->resume();
  updateSleepInhibitor();
}
bool BVMasterPlayer::isPaused() const { return !stopped_ && _subPlayer->isPaused(); }
bool BVMasterPlayer::canTimeShift() const { return !stopped_ && _subPlayer->canTimeShift(); }
bool BVMasterPlayer::skipBy(double seconds) {
  checkThread("BVMasterPlayer::skipBy");
  return !stopped_ && _subPlayer->skipBy(seconds);
}
bool BVMasterPlayer::goLive() {
  checkThread("BVMasterPlayer::goLive");
  return !stopped_ && _subPlayer->goLive();
}
double BVMasterPlayer::secondsBehindLive() const { return stopped_ ? 0.0 : _subPlayer->secondsBehindLive(); }
BVPlayerReception BVMasterPlayer::reception() const {
  return stopped_ ? BVPlayerReception{} : _subPlayer->reception();
}

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

bool startsWithID3Tag(const std::string& path) {
  char head[3] = {};
  std::ifstream file(path, std::ios::binary);
  return file.read(head, sizeof head) && std::string_view(head, sizeof head) == "ID3";
}

// The link retyped with the type its stream was served with. The format is
// built afresh rather than copied: a copy reads the link's MIME type, which
// for a format that has none asks the server again (a HEAD request that an
// ICY or Icecast station does not answer usefully).
std::shared_ptr<BVMediaLink> linkRetyped(const BVMediaLink& link, const std::string& type) {
  const auto& original = *link.format();
  auto format = BVMediaMutableFormat::emptyFormat();
  format->setMimeType(type);
  format->setURLScheme(original.urlScheme());
  format->setFileExtension(original.fileExtension());
  format->setEngineID(original.engineID());
  format->setRadioTimeMediaType(original.radioTimeMediaType());
  auto retyped = link.mutableCopy();
  retyped->setFormat(format->copy());
  return retyped->copy();
}
}  // namespace

// The player of another engine for the link the MP3 player declined, with the
// link it should play; nothing when no other engine takes it.
std::pair<std::shared_ptr<BVBasePlayer>, std::shared_ptr<BVMediaLink>> BVMasterPlayer::fallbackPlayer(
    const BVMP3StreamPlayer& failed, const BVErrorRef& error) {
  auto link = this->link();
  if (!link || !link->format()) return {};
  // The type the stream itself was served with chooses first: it is what the
  // stream is, whatever the link's URL or its server's answer to a HEAD
  // request say (a bare station URL that Icecast calls a web page, say). The
  // next player is given the link with that type, so that it makes the same
  // choice.
  if (auto type = declinedStreamType(failed, error)) {
    auto retyped = linkRetyped(*link, *type);
    for (const auto& engine : enginesOtherThanMP3(*retyped->format()))
      if (engine->isAvailable())
        if (auto player = engine->createPlayer()) return {player, retyped};
  }
  // A local MP3 file whose ID3 tag the streamer could not get past (a cover
  // larger than it searches for the first frame) is for the general engine,
  // which reads the file's structure.
  const bool unreadableFile = link->url().isFileURL() && error->domain() == BVShoutstreamerErrorDomain &&
                              error->code() == SHOUTSTREAMER_ERROR_NOT_MPEG &&
                              startsWithID3Tag(link->url().fileSystemPath());
  if (!failed.fallbackStreams().empty() || unreadableFile) {
    auto candidates = enginesOtherThanMP3(*link->format());
    if (!candidates.empty()) {
      auto engine = link->defaultEngineFromEngines(candidates);
      return {engine ? engine->createPlayer() : nullptr, link};
    }
  }
  return {};
}

void BVMasterPlayer::playerStateChanged(BVBasePlayer& player, BVPlayerState from, BVPlayerState to,
                                        const BVErrorRef& error) {
  checkThread("BVMasterPlayer::playerStateChanged");
  auto self = shared_from_this();
  // The MP3 player that failed: the sub-player itself, or the one a general
  // engine's player handed an MP3-looking link to (after a switch of station).
  auto* mp3 = dynamic_cast<BVMP3StreamPlayer*>(&player);
  if (auto* general = dynamic_cast<BVQuickTimePlayer*>(&player); general && !mp3)
    mp3 = dynamic_cast<BVMP3StreamPlayer*>(general->subPlayer().get());
  // An output that failed (a recording that cannot be written) fails on
  // every engine alike: no fallback.
  const bool outputFailed = error && error->domain() == BVBelvaneErrorDomain &&
                            error->code() >= BVAudioOutputErrorNoOutput && error->code() <= BVAudioOutputErrorThread;
  if (error && mp3 && &player == _subPlayer.get() && !outputFailed) {
    belvane::detail::RequestSettingsScope requests(requestSettings());
    auto [next, link] = fallbackPlayer(*mp3, error);
    if (next) {
      next->setPosition(position());
      replaceSubPlayer(next);
      subPlayerUsed_ = true;
      next->playLink(link);
      updateSleepInhibitor();
      return;
    }
  }
  updateSleepInhibitor();
  // The next engine's player starts from Idle and says Connecting again:
  // the host heard that once for this playback already.
  if (relayedState_ == to) return;
  relayedState_ = to;
  if (auto* o = owner()) o->playerStateChanged(*this, from, to, error);
}

// ---- keeping the machine awake ----------------------------------------------------

void BVMasterPlayer::setInhibitsSleep(bool inhibits) {
  inhibitsSleep_ = inhibits;
  updateSleepInhibitor();
}

void BVMasterPlayer::updateSleepInhibitor() {
  bool plays = inhibitsSleep_ && state() == BVPlayerStatePlaying && !isPaused();
  if (!plays) {
    if (impl_->sleepInhibitor) impl_->sleepInhibitor->release();
    return;
  }
  if (!impl_->sleepInhibitor)
    impl_->sleepInhibitor = std::make_unique<belvane::detail::SleepInhibitor>("Belvane", "Playing audio");
  impl_->sleepInhibitor->hold();
}

void BVMasterPlayer::setReconnectPatience(double seconds) {
  BVBasePlayer::setReconnectPatience(seconds);
  _subPlayer->setReconnectPatience(reconnectPatience());
}

void BVMasterPlayer::setRequestSettings(BVRequestSettingsRef settings) {
  BVBasePlayer::setRequestSettings(std::move(settings));
  _subPlayer->setRequestSettings(requestSettings());
}

void BVMasterPlayer::setAudioOutputSetting(const BVAudioOutputSetting& setting) {
  BVBasePlayer::setAudioOutputSetting(setting);
  _subPlayer->setAudioOutputSetting(setting);
}

std::string BVMasterPlayer::audioOutputName() const { return _subPlayer->audioOutputName(); }
std::string BVMasterPlayer::audioOutputDevice() const { return _subPlayer->audioOutputDevice(); }

void BVMasterPlayer::playerOutputChanged(BVBasePlayer&, const std::string& output) { changedOutput(output); }
uint64_t BVMasterPlayer::outputFramesWritten() const { return _subPlayer->outputFramesWritten(); }

void BVMasterPlayer::playerPositionChanged(BVBasePlayer&, float position) {
  auto self = shared_from_this();
  if (auto* o = owner()) o->playerPositionChanged(*this, position);
}

void BVMasterPlayer::playerAttributeChanged(BVBasePlayer&, const BVDictionary& attributes) {
  auto self = shared_from_this();
  if (auto* o = owner()) o->playerAttributeChanged(*this, attributes);
}

// A fallback's new sub-player starts prebuffering as the last one did: the
// host hears changes only.
void BVMasterPlayer::playerReceptionChanged(BVBasePlayer&, const BVPlayerReception& reception) {
  if (reception == relayedReception_) return;
  relayedReception_ = reception;
  auto self = shared_from_this();
  changedReception(reception);
}
