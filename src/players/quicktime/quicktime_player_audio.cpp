// BVQuickTimePlayer: the movie's audio through our own output (the path the
// MP3 streamer's audio takes too), stream titles in time with it, and the
// output setting, volume and mute that act on it.
#include <belvane/BVConstants.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVQuickTimePlayer.h>

#include "movie/QTMovie.h"
#include "players/audio_delivery.h"
#include "players/quicktime/movie_audio_adapter.h"
#include "players/reception_watch.h"

namespace belvane::detail {
// Hands due titles to the player on the run loop, while it lives.
class QuickTimeTitleClient final : public AudioDeliveryClient {
 public:
  explicit QuickTimeTitleClient(std::weak_ptr<BVQuickTimePlayer> player) : player_(std::move(player)) {}
  void audioDeliveryTitleDue(const std::shared_ptr<const StreamTitle>& title) override {
    if (auto player = player_.lock()) player->streamTitleDue(title);
  }
  void audioDeliveryStoppedAtTitle() override {
    if (auto player = player_.lock()) player->stoppedAtTitle();
  }
  void audioDeliveryOutputChanged(const std::string& device) override {
    if (auto player = player_.lock()) player->outputDeviceChanged(device);
  }
  void audioDeliveryOutputFailed(const BVErrorRef& error) override {
    if (auto player = player_.lock()) player->outputFailed(error);
  }

 private:
  std::weak_ptr<BVQuickTimePlayer> player_;
};
}  // namespace belvane::detail

using belvane::detail::AudioDelivery;
using belvane::detail::MovieAudioAdapter;

int BVQuickTimePlayer::startMovieAudio() {
  if (!audio_) {
    audio_ = AudioDelivery::create();
    titleClient_ = std::make_shared<belvane::detail::QuickTimeTitleClient>(sharedAs<BVQuickTimePlayer>());
    audio_->setClient(titleClient_.get());
    audio_->setOutput(audioOutputSetting());
    audio_->setVolume(_volume);
    audio_->setMuted(_muted);
    audio_->setStopsAtNextTitle(stopsAfterTitle_);
    audio_->loudness().setEnabled(loudnessNormalization());
    audio_->loudness().setTarget(loudnessTarget());
    receptionWatch_ = std::make_unique<belvane::detail::ReceptionWatch>(
        audio_,
        [this] {
          auto connection = _movie ? _movie->connectionProgress() : belvane::detail::StreamReaderProgress{};
          return belvane::detail::ReceptionWatch::Readings{connection.reconnectAttempts, connection.broken, -1.0f,
                                                           paused_};
        },
        [this](const BVPlayerReception& reception) { changedReception(reception); });
  }
  audio_->useCurrentRunLoop();
  audio_->setPlayback(outputPlayback());
  auto link = this->link();
  audio_->loudness().setStation(link ? link->url().absoluteString() : std::string());
  int code = audio_->start();
  if (code == 0) movieAudio_ = std::make_shared<MovieAudioAdapter>(audio_);
  return code;
}

// The audio of the movie being released stops at once; nothing its
// streaming threads still deliver reaches the output.
void BVQuickTimePlayer::stopMovieAudio() {
  if (movieAudio_) movieAudio_->detach();
  movieAudio_.reset();
  streamTitle_.reset();
}

void BVQuickTimePlayer::streamTitleDue(const std::shared_ptr<const belvane::detail::StreamTitle>& title) {
  // Files (local, or served with their length, whose duration may not be
  // known yet) keep their metadata keys: their titles are track titles.
  if (!title || !_movie || _movie->isFiniteResource()) return;
  if (streamTitle_ && *streamTitle_ == *title) return;
  streamTitle_ = title;
  auto self = shared_from_this();
  changedAttribute(attributes());
}

void BVQuickTimePlayer::fadeVolumeTo(float volume, double seconds) {
  if (volume < 0) return;
  _volume = volume;
  if (_subPlayer)
    _subPlayer->fadeVolumeTo(volume, seconds);
  else if (audio_)
    audio_->fadeVolumeTo(volume, seconds);
}

void BVQuickTimePlayer::setStopsAfterCurrentTitle(bool stops) {
  stopsAfterTitle_ = stops;
  if (_subPlayer) _subPlayer->setStopsAfterCurrentTitle(stops);
  if (audio_) audio_->setStopsAtNextTitle(stops);
}

void BVQuickTimePlayer::setLoudnessNormalization(bool normalizes) {
  BVBasePlayer::setLoudnessNormalization(normalizes);
  if (_subPlayer) _subPlayer->setLoudnessNormalization(normalizes);
  if (audio_) audio_->loudness().setEnabled(normalizes);
}

void BVQuickTimePlayer::setLoudnessTarget(double lufs) {
  BVBasePlayer::setLoudnessTarget(lufs);
  if (_subPlayer) _subPlayer->setLoudnessTarget(lufs);
  if (audio_) audio_->loudness().setTarget(loudnessTarget());
}

bool BVQuickTimePlayer::stopsAfterCurrentTitle() const {
  if (_subPlayer) return _subPlayer->stopsAfterCurrentTitle();
  return audio_ ? audio_->stopsAtNextTitle() : stopsAfterTitle_;
}

void BVQuickTimePlayer::stoppedAtTitle() {
  if (state() != BVPlayerStatePlaying) return;
  auto self = shared_from_this();
  stopsAfterTitle_ = false;
  _releaseMovie();
  changeStateTo(BVPlayerStateStopped);
}

BVPlayerReception BVQuickTimePlayer::reception() const {
  if (_subPlayer) return _subPlayer->reception();
  return receptionWatch_ ? receptionWatch_->reception() : BVPlayerReception{};
}

void BVQuickTimePlayer::playerReceptionChanged(BVBasePlayer&, const BVPlayerReception& reception) {
  auto self = shared_from_this();
  changedReception(reception);
}

void BVQuickTimePlayer::outputFailed(const BVErrorRef& error) {
  if (state() != BVPlayerStatePlaying && state() != BVPlayerStateConnecting) return;
  auto self = shared_from_this();
  _releaseMovie();
  changeStateTo(BVPlayerStateError, error);
}

void BVQuickTimePlayer::playerOutputChanged(BVBasePlayer&, const std::string& output) {
  auto self = shared_from_this();
  changedOutput(output);
}

std::string BVQuickTimePlayer::audioOutputDevice() const {
  if (_subPlayer) return _subPlayer->audioOutputDevice();
  return audio_ ? audio_->outputDevice() : std::string();
}

void BVQuickTimePlayer::setAudioOutputSetting(const BVAudioOutputSetting& setting) {
  BVBasePlayer::setAudioOutputSetting(setting);
  if (audio_) audio_->setOutput(setting);
  if (_subPlayer) _subPlayer->setAudioOutputSetting(setting);
}

void BVQuickTimePlayer::setReconnectPatience(double seconds) {
  BVBasePlayer::setReconnectPatience(seconds);
  if (_subPlayer) _subPlayer->setReconnectPatience(reconnectPatience());
}

void BVQuickTimePlayer::setRequestSettings(BVRequestSettingsRef settings) {
  BVBasePlayer::setRequestSettings(std::move(settings));
  if (_subPlayer) _subPlayer->setRequestSettings(requestSettings());
}

std::string BVQuickTimePlayer::audioOutputName() const {
  if (_subPlayer) return _subPlayer->audioOutputName();
  return audio_ ? audio_->outputName() : "none";
}

uint64_t BVQuickTimePlayer::outputFramesWritten() const {
  if (_subPlayer) return _subPlayer->outputFramesWritten();
  return audio_ ? audio_->framesWritten() : 0;
}
