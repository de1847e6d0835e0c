// BVMP3StreamPlayer: tuning, the acceptance of candidates, the streaming
// handle's life and the mapping of library states to player states.
#include <belvane/BVConstants.h>
#include <belvane/BVMP3StreamPlayer.h>
#include <belvane/BVMediaLink.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <set>

#include "foundation/text_encoding.h"
#include "players/file_tags.h"
#include "players/base_player_impl.h"
#include "players/mp3_stream/mp3_stream_player_impl.h"
#include "players/mp3_stream/shoutstreamer_delegate.h"
#include "playlists/playlist_entry.h"
#include "streaming/QLStreamTuner.h"
#include "streaming/shoutstreamer.h"
#include "streaming/shoutstreamer_tuning.h"
#include "streaming/stream_reader.h"
#include "players/reconnect_wording.h"

using belvane::detail::asciiLower;

namespace {

// Codes with which a stream that broke off ends once reconnecting failed
// (the last try's answer); not those of a stream that is no MP3 at all.
bool isNetworkBreak(int32_t code) {
  switch (code) {
    case SHOUTSTREAMER_ERROR_AAC:
    case SHOUTSTREAMER_ERROR_NOT_MPEG:
    case SHOUTSTREAMER_ERROR_LOST_SYNC:
    case SHOUTSTREAMER_ERROR_WEB_PAGE:
    case SHOUTSTREAMER_ERROR_BAD_URL:
    case SHOUTSTREAMER_ERROR_INTERNAL: return false;
    default: return true;
  }
}
const std::set<std::string>& playableURLSchemes() {
  static const std::set<std::string> s{"http", "https", "icy", "file", "shttp"};
  return s;
}
const std::set<std::string>& playableMediaTypes() {
  static const std::set<std::string> s{"audio/mp3",    "audio/x-mp3",    "audio/mpeg", "audio/x-mpeg",
                                       "audio/mpeg3", "audio/x-mpeg3", "text/html"};
  return s;
}
const std::set<std::string>& playablePathExtensions() {
  static const std::set<std::string> s{"amc", "m1a", "m1s", "m2a", "mp2", "mp3", "mpa", "mpeg", "mpg", "mpm", "swa"};
  return s;
}
constexpr int32_t kAACCode = SHOUTSTREAMER_ERROR_AAC;  // 'Eaac'

std::string pathExtension(const BVURL& url) {
  std::string path = url.path();
  auto slash = path.rfind('/');
  auto dot = path.rfind('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return {};
  return path.substr(dot + 1);
}
}  // namespace

// The tuner's delegate calls go to the player's operations of the same name.
struct BVMP3StreamPlayer::TunerDelegate : QLStreamTunerDelegate {
  explicit TunerDelegate(BVMP3StreamPlayer* p) : player(p) {}
  BVMP3StreamPlayer* player;
  bool streamTunerShouldTuneStream(QLStreamTuner& t, const BVURL& url, const std::string* mime) override {
    return player->streamTunerShouldTuneStream(t, url, mime);
  }
  void streamTunerDidFindStreamURL(QLStreamTuner& t, const BVURL& url, const std::string* mime) override {
    auto keep = player->shared_from_this();
    player->streamTunerDidFindStreamURL(t, url, mime);
  }
  void streamTunerDidFailWithError(QLStreamTuner& t, const BVErrorRef& error) override {
    auto keep = player->shared_from_this();
    player->streamTunerDidFailWithError(t, error);
  }
  void streamTunerDidComplete(QLStreamTuner& t) override {
    auto keep = player->shared_from_this();
    player->streamTunerDidComplete(t);
  }
};

std::shared_ptr<BVMP3StreamPlayer> BVMP3StreamPlayer::create() {
  std::shared_ptr<BVMP3StreamPlayer> player(new BVMP3StreamPlayer());
  player->_shoutstreamerDelegate->setOwner(player);
  auto* p = player.get();
  player->impl_->receptionWatch = std::make_unique<belvane::detail::ReceptionWatch>(
      player->_shoutstreamerDelegate->audio(),
      [p] {
        auto connection = belvane::detail::shoutstreamerReception(p->_shoutstreamer);
        return belvane::detail::ReceptionWatch::Readings{connection.reconnectAttempts, connection.connectionBroken,
                                                         connection.prebufferFill, p->paused_};
      },
      [p](const BVPlayerReception& reception) { p->changedReception(reception); });
  return player;
}

BVMP3StreamPlayer::BVMP3StreamPlayer() : impl_(std::make_unique<Impl>()) {
  _shoutstreamer = shoutstreamer_create();
  _shoutstreamerDelegate = BVShoutstreamerDelegate::create();
  _fallbackStreams.emplace();
  tunerDelegate_ = std::make_unique<TunerDelegate>(this);
  _streamTuner = QLStreamTuner::create(tunerDelegate_.get());
}

BVMP3StreamPlayer::~BVMP3StreamPlayer() {
  impl_->receptionWatch.reset();
  // No callback may reach this object from here on: the delegate's weak
  // reference to us has expired, then the stream stops (waiting for a
  // callback in progress), and only then does the output go with the delegate.
  shoutstreamer_destroy(_shoutstreamer);
  _shoutstreamer = nullptr;
  _shoutstreamerDelegate.reset();
  _streamTuner->setDelegate(nullptr);
  _streamTuner->stop();
  // We may be inside one of the tuner's own delegate calls: let it go once
  // that call has returned.
  BVRunLoop::current().perform([tuner = std::move(_streamTuner)] {});
}

void BVMP3StreamPlayer::playLink(const std::shared_ptr<BVMediaLink>& link) {
  BVBasePlayer::playLink(link);
  readFileTags();
  _shoutstreamerDelegate->setRunLoop(BVRunLoop::current());
  _shoutstreamerDelegate->audio()->setPlayback(baseImpl().outputPlayback());
  _shoutstreamerDelegate->audio()->loudness().setStation(link ? link->url().absoluteString() : std::string());
  int code = _shoutstreamerDelegate->startAudioPlayer();
  if (code != 0) {
    setError(_shoutstreamerDelegate->audio()->startError(code));
    changeStateTo(BVPlayerStateError, _error);
    return;
  }
  auto self = shared_from_this();
  changeStateTo(BVPlayerStateConnecting);
  impl_->receptionWatch->start();
  if (!fileAttributes_.empty()) changedAttribute(attributes());
  if (link) _streamTuner->setSourceURL(link->url());
  _streamTuner->setRequestSettings(requestSettings());
  _streamTuner->start();
  _timeOfPlay = std::chrono::steady_clock::now();
}

// A local file's tags and length, before anything plays: the host has the
// whole set with Connecting.
void BVMP3StreamPlayer::readFileTags() {
  fileAttributes_.clear();
  fileDuration_ = 0;
  fileSampleRate_ = 0;
  fileStreamURL_.clear();
  fileStartFrame_ = 0;
  fileRestarted_ = false;
  paused_ = false;
  impl_->timeShift.reset();
  _shoutstreamerDelegate->audio()->setHeld(false);
  auto link = this->link();
  if (!link || !link->url().isFileURL()) return;
  if (auto tags = belvane::detail::readFileTags(link->url().fileSystemPath())) {
    fileAttributes_ = std::move(tags->attributes);
    fileDuration_ = tags->duration;
    fileSampleRate_ = tags->sampleRate;
  }
}

float BVMP3StreamPlayer::volume() const { return _shoutstreamerDelegate->volume(); }
void BVMP3StreamPlayer::setVolume(float volume) { _shoutstreamerDelegate->setVolume(volume); }
bool BVMP3StreamPlayer::isMuted() const { return _shoutstreamerDelegate->isMuted(); }
void BVMP3StreamPlayer::setMuted(bool muted) { _shoutstreamerDelegate->setMuted(muted); }
void BVMP3StreamPlayer::fadeVolumeTo(float volume, double seconds) {
  _shoutstreamerDelegate->audio()->fadeVolumeTo(volume, seconds);
}
void BVMP3StreamPlayer::setStopsAfterCurrentTitle(bool stops) {
  _shoutstreamerDelegate->audio()->setStopsAtNextTitle(stops);
}
bool BVMP3StreamPlayer::stopsAfterCurrentTitle() const {
  return _shoutstreamerDelegate->audio()->stopsAtNextTitle();
}
void BVMP3StreamPlayer::setLoudnessNormalization(bool normalizes) {
  BVBasePlayer::setLoudnessNormalization(normalizes);
  _shoutstreamerDelegate->audio()->loudness().setEnabled(loudnessNormalization());
}
void BVMP3StreamPlayer::setLoudnessTarget(double lufs) {
  BVBasePlayer::setLoudnessTarget(lufs);
  _shoutstreamerDelegate->audio()->loudness().setTarget(loudnessTarget());
}

float BVMP3StreamPlayer::elapsedTime() const {
  if (hasPosition()) return float(filePlayedSeconds());
  if (!_timeOfPlay) return 0.0f;
  return std::chrono::duration<float>(std::chrono::steady_clock::now() - *_timeOfPlay).count();
}

BVDictionary BVMP3StreamPlayer::attributes() const {
  BVDictionary result = BVBasePlayer::attributes();
  for (const auto& [key, value] : fileAttributes_) result[key] = value;
  for (const auto& [key, value] : stationFacts_) result[key] = value;
  for (const auto& [key, value] : playlistEntry_) result[key] = value;
  if (const auto& title = impl_->currentTitle) {
    result[BVPlayerAttributeStreamTitleKey] = BVValue(title->title);
    if (!title->url.empty()) result[BVPlayerAttributeStreamURLKey] = BVValue(title->url);
  }
  return result;
}

// ---- a local file: position, seeking and pausing ---------------------------------

bool BVMP3StreamPlayer::hasPosition() const { return fileDuration_ > 0 && fileSampleRate_ > 0; }

double BVMP3StreamPlayer::filePlayedSeconds() const {
  int rate = _shoutstreamerDelegate->sampleRate();
  if (rate <= 0) rate = fileSampleRate_;
  double seconds = double(fileStartFrame_ + _shoutstreamerDelegate->framesDelivered()) / rate;
  return std::min(seconds, fileDuration_);
}

float BVMP3StreamPlayer::position() const {
  if (!hasPosition()) return -1.0f;
  return float(filePlayedSeconds() / fileDuration_);
}

void BVMP3StreamPlayer::setPosition(float position) {
  if (!hasPosition() || fileStreamURL_.empty() || state() != BVPlayerStatePlaying) return;
  // As the general engine does: a request for the very end lands just before it.
  double fraction = std::clamp(double(position), 0.0, 0.9999);
  int rate = _shoutstreamerDelegate->sampleRate();
  if (rate <= 0) rate = fileSampleRate_;
  uint64_t frame = uint64_t(fraction * fileDuration_ * rate);
  auto self = shared_from_this();
  stopFileStream();
  if (paused_) {
    fileStartFrame_ = frame;  // resume() starts there
    _shoutstreamerDelegate->startOver(0);
  } else {
    startFileAt(frame);
  }
  changedPosition(this->position());
}

bool BVMP3StreamPlayer::pause() {
  if (paused_) return true;
  if (canTimeShift()) {
    // The output is held at once; the connection goes on into the ring and
    // the stream plays from there from now on.
    _shoutstreamerDelegate->audio()->setHeld(true);
    impl_->timeShift->requestShift();
    paused_ = true;
    return true;
  }
  if (!hasPosition() || fileStreamURL_.empty() || state() != BVPlayerStatePlaying) return false;
  uint64_t frame = fileStartFrame_ + _shoutstreamerDelegate->framesDelivered();
  stopFileStream();
  fileStartFrame_ = frame;
  _shoutstreamerDelegate->startOver(0);
  paused_ = true;
  return true;
}

void BVMP3StreamPlayer::resume() {
  if (!paused_) return;
  paused_ = false;
  if (impl_->timeShift) {
    _shoutstreamerDelegate->audio()->setHeld(false);
    return;
  }
  startFileAt(fileStartFrame_);
}

// ---- a live station: time-shift -------------------------------------------------

bool BVMP3StreamPlayer::canTimeShift() const {
  return impl_->timeShift && state() == BVPlayerStatePlaying && timeShiftMinutes() > 0;
}

bool BVMP3StreamPlayer::skipBy(double seconds) {
  return canTimeShift() && !std::isnan(seconds) && impl_->timeShift->skipBy(seconds);
}

bool BVMP3StreamPlayer::goLive() { return canTimeShift() && impl_->timeShift->goLive(); }

double BVMP3StreamPlayer::secondsBehindLive() const {
  return impl_->timeShift ? impl_->timeShift->secondsBehindLive() : 0.0;
}

void BVMP3StreamPlayer::stopFileStream() {
  // Destroying the stream stops the output (its interrupt callback), and a
  // drain in progress is forgotten: the file goes on from elsewhere.
  shoutstreamer_destroy(_shoutstreamer);
  _shoutstreamer = shoutstreamer_create();
  shoutstreamerStarted_ = false;
  fileRestarted_ = true;
  _shoutstreamerDelegate->stopAudioPlayerNow();
  _shoutstreamerDelegate->audio()->forgetPendingTitles();
}

void BVMP3StreamPlayer::startFileAt(uint64_t frame) {
  fileStartFrame_ = frame;
  _shoutstreamerDelegate->startOver(frame);
  int code = _shoutstreamerDelegate->startAudioPlayer();
  if (code == 0) code = startShoutstreamer(fileStreamURL_);
  if (code != 0) {
    setError(errorWithBVShoutstreamerCode(code));
    _shoutstreamerDelegate->askAudioPlayerToStop();
  }
}

std::vector<BVURL> BVMP3StreamPlayer::fallbackStreams() const {
  return _fallbackStreams ? *_fallbackStreams : std::vector<BVURL>{};
}

void BVMP3StreamPlayer::setAudioOutputSetting(const BVAudioOutputSetting& setting) {
  BVBasePlayer::setAudioOutputSetting(setting);
  _shoutstreamerDelegate->audio()->setOutput(setting);
}
uint64_t BVMP3StreamPlayer::outputFramesWritten() const { return _shoutstreamerDelegate->audio()->framesWritten(); }
std::string BVMP3StreamPlayer::audioOutputName() const { return _shoutstreamerDelegate->audio()->outputName(); }
std::string BVMP3StreamPlayer::audioOutputDevice() const { return _shoutstreamerDelegate->audio()->outputDevice(); }

std::vector<std::string> BVMP3StreamPlayer::fallbackStreamTypes() const {
  return _fallbackStreams ? fallbackTypes_ : std::vector<std::string>{};
}

// ---- tuner delegate ------------------------------------------------------------

bool BVMP3StreamPlayer::streamTunerShouldTuneStream(QLStreamTuner&, const BVURL& url, const std::string* mimeType) {
  // The station's own address answered with its type: the link's format
  // keeps it, so that an error account or an engine choice need not ask.
  if (auto link = this->link(); link && link->format() && mimeType) link->format()->noteServedMimeType(url, *mimeType);
  std::string scheme = asciiLower(url.scheme());
  if (scheme.empty()) return false;
  if (playableURLSchemes().count(scheme)) {
    if (!mimeType) return true;
    if (playableMediaTypes().count(QLStreamTuner::trimParametersFromMimeType(*mimeType))) return true;
    if (playablePathExtensions().count(asciiLower(pathExtension(url)))) return true;
  }
  if (_fallbackStreams) {
    _fallbackStreams->push_back(url);
    fallbackTypes_.push_back(mimeType ? QLStreamTuner::trimParametersFromMimeType(*mimeType) : std::string());
  }
  return false;
}

void BVMP3StreamPlayer::streamTunerDidFindStreamURL(QLStreamTuner&, const BVURL& url, const std::string* mimeType) {
  std::string text = url.absoluteString();
  if (text.empty()) {
    std::string message = "Internal Error. The stream tuner found an invalid URL with mime type " +
                          (mimeType ? *mimeType : std::string("(null)")) + ":\n" + text;
    setError(BVError::create(BVBelvaneErrorDomain, 67003, {{BVLocalizedDescriptionKey, BVValue(message)}}));
    _shoutstreamerDelegate->askAudioPlayerToStop();
    return;
  }
  // A handle plays one stream; a later candidate (after the previous one
  // ended) gets a fresh handle.
  if (shoutstreamerStarted_) {
    shoutstreamer_destroy(_shoutstreamer);
    _shoutstreamer = shoutstreamer_create();
  }
  int result = startShoutstreamer(text);
  if (result != 0) {
    setError(errorWithBVShoutstreamerCode(result));
    _shoutstreamerDelegate->askAudioPlayerToStop();
    return;
  }
  _fallbackStreams.reset();
  fallbackTypes_.clear();
  if (url.isFileURL()) fileStreamURL_ = text;
  // The playlist entry it came from, announced with the station's facts,
  // which this stream's own replace once it plays.
  playlistEntry_ = belvane::detail::playlistEntryAttributes(_streamTuner->tunedPlaylistEntry());
  stationFacts_.clear();
}

void BVMP3StreamPlayer::streamTunerDidFailWithError(QLStreamTuner&, const BVErrorRef& error) {
  BVErrorRef e = error;
  if (e && !e->hasUserInfo())
    e = BVError::create(e->domain(), e->code(), {{BVBasePlayerErrorKey, BVValue(basePlayerErrorDescription())}});
  setError(e);
  _shoutstreamerDelegate->askAudioPlayerToStop();
}

void BVMP3StreamPlayer::streamTunerDidComplete(QLStreamTuner&) {
  if (fileRestarted_) return;  // the file's own stream ends the playback now
  _shoutstreamerDelegate->askAudioPlayerToStop();
}

// ---- from the shoutstreamer delegate -------------------------------------------

void BVMP3StreamPlayer::shoutstreamerChangedState(const BVDictionary& change) {
  auto number = [&](const char* key) {
    auto it = change.find(key);
    return it == change.end() ? int64_t(0) : it->second.integerValue();
  };
  _shoutstreamerChangedState(int(number("oldState")), int(number("newState")), int32_t(number("errorCode")));
}

void BVMP3StreamPlayer::_shoutstreamerChangedState(int /*oldState*/, int newState, int32_t errorCode) {
  if (_error) return;
  if (newState == 1 || newState == 2) return;
  auto self = shared_from_this();
  if (newState == 3) {
    if (state() != BVPlayerStatePlaying) changeStateTo(BVPlayerStatePlaying);
    // What the station's server announced of it and what it decodes as,
    // once it plays.
    if (refreshStationFacts()) changedAttribute(attributes());
    return;
  }
  if (errorCode != 0) {
    BVErrorRef error = errorWithBVShoutstreamerCode(errorCode);
    // A live station that played and broke off was tried again first.
    if (state() == BVPlayerStatePlaying && link() && !link()->url().isFileURL() && isNetworkBreak(errorCode))
      error = belvane::detail::withReconnectionAccount(error, reconnectPatience());
    setError(error);
    _shoutstreamerDelegate->askAudioPlayerToStop();
    return;
  }
  // A file started again for a seek has nothing after it: the tuner moved
  // on from it long ago.
  if (fileRestarted_) {
    _shoutstreamerDelegate->askAudioPlayerToStop();
    return;
  }
  BVRunLoop::current().performAfterDelay(0.0, weak_from_this(), [this] { _streamTuner->tuneNextStream(); });
}

void BVMP3StreamPlayer::Impl::titleDue(BVMP3StreamPlayer& player,
                                       const std::shared_ptr<const belvane::detail::StreamTitle>& title) {
  Impl& impl = *player.impl_;
  if (!title || title == impl.currentTitle) return;
  impl.currentTitle = title;
  player.refreshStationFacts();  // a change of format comes with the next title at the latest
  auto self = player.shared_from_this();
  player.changedAttribute(player.attributes());
}

BVPlayerReception BVMP3StreamPlayer::reception() const { return impl_->receptionWatch->reception(); }

bool BVMP3StreamPlayer::refreshStationFacts() {
  BVDictionary facts = belvane::detail::shoutstreamerStationFacts(_shoutstreamer);
  if (facts == stationFacts_) return false;
  stationFacts_ = std::move(facts);
  return true;
}

void BVMP3StreamPlayer::didStopAudioPlayer() {
  if (state() == BVPlayerStateStopped || state() == BVPlayerStateError) return;
  auto self = shared_from_this();
  if (_error)
    changeStateTo(BVPlayerStateError, _error);
  else
    changeStateTo(BVPlayerStateStopped);
  impl_->receptionWatch->stop();
}

void BVMP3StreamPlayer::endStreamForGood() {
  // The stream goes (its queued state changes with it) and the tuner tries
  // no other candidate: the playback is over.
  shoutstreamer_destroy(_shoutstreamer);
  _shoutstreamer = shoutstreamer_create();
  shoutstreamerStarted_ = false;
  _shoutstreamerDelegate->startOver(0);
  _shoutstreamerDelegate->stopAudioPlayerNow();
  _streamTuner->stop();
}

void BVMP3StreamPlayer::didStopAtTitle() {
  if (state() == BVPlayerStateStopped || state() == BVPlayerStateError) return;
  auto self = shared_from_this();
  endStreamForGood();
  changeStateTo(BVPlayerStateStopped);
  impl_->receptionWatch->stop();
}

void BVMP3StreamPlayer::didFailOutput(const BVErrorRef& error) {
  if (state() == BVPlayerStateStopped || state() == BVPlayerStateError) return;
  auto self = shared_from_this();
  endStreamForGood();
  setError(error);
  changeStateTo(BVPlayerStateError, _error);
  impl_->receptionWatch->stop();
}

// ---- private -------------------------------------------------------------------

// Starts the handle on url with the delegate's callbacks; 0 or the library's code.
int BVMP3StreamPlayer::startShoutstreamer(const std::string& url) {
  shoutstreamer_set_interrupt_callback(_shoutstreamer, &BVShoutstreamerDelegate::interruptCallback);
  belvane::detail::ShoutstreamerTuning tuning;
  tuning.reconnectWindow = belvane::detail::reconnectWindowForPatience(reconnectPatience());
  tuning.requestSettings = requestSettings();
  if (auto link = this->link()) tuning.titleEncoding = link->titleEncoding().value_or("");
  // A station from a playlist is reconnected to the playlist's other
  // entries in turn with its own address (mirrors).
  if (url.rfind("file:", 0) != 0)
    for (const BVURL& alternate : _streamTuner->alternateStreamURLs())
      if (!alternate.isFileURL()) tuning.alternates.push_back(alternate.absoluteString());
  tuning.stationTap = baseImpl().stationTap();
  // A live station with a ring can be paused and played from the ring.
  impl_->timeShift.reset();
  if (url.rfind("file:", 0) != 0 && tuning.stationTap && timeShiftMinutes() > 0) {
    auto audio = _shoutstreamerDelegate->audio();
    impl_->timeShift = std::make_shared<belvane::detail::TimeShift>(
        tuning.stationTap, belvane::detail::TimeShift::OutputHooks{[audio] { audio->dropHeldWrite(); },
                                                                   [audio] { audio->flushed(); }});
    tuning.timeShift = impl_->timeShift;
  }
  belvane::detail::shoutstreamerSetTuning(_shoutstreamer, tuning);
  int result = shoutstreamer_start(_shoutstreamer, url.c_str(), _shoutstreamerDelegate.get(),
                                   &BVShoutstreamerDelegate::stateCallback, &BVShoutstreamerDelegate::audioCallback,
                                   nullptr, &BVShoutstreamerDelegate::titleCallback);
  shoutstreamerStarted_ = true;
  return result;
}

std::string BVMP3StreamPlayer::basePlayerErrorDescription() const {
  auto tuned = _streamTuner ? _streamTuner->tunedURL() : std::nullopt;
  return "Tuned URL:\n" + (tuned ? tuned->absoluteString() : std::string("(null)"));
}

BVErrorRef BVMP3StreamPlayer::errorWithBVShoutstreamerCode(int32_t code) const {
  std::string description;
  if (char* text = shoutstreamer_error_as_string(code)) {
    description = text;
    free(text);
  } else {
    description = "Shoutstreamer error with code " + std::to_string(code) + ".";
  }
  BVDictionary info{{BVLocalizedDescriptionKey, BVValue(description)},
                    {BVBasePlayerErrorKey, BVValue(basePlayerErrorDescription())}};
  if (code == kAACCode) info[BVDoNotReportToRadioTimeErrorKey] = BVValue("");
  return BVError::create(BVShoutstreamerErrorDomain, code, std::move(info));
}

void BVMP3StreamPlayer::setError(const BVErrorRef& error) {
  if (!_error) _error = error;
}
