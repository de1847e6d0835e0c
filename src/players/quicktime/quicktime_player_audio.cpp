// BVQuickTimePlayer: the movie's audio through our own output (the path the
// MP3 streamer's audio takes too), stream titles in time with it, and the
// output setting, volume and mute that act on it.
#include <belvane/BVConstants.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVQuickTimePlayer.h>

#include "players/base_player_impl.h"
#include "players/quicktime/quicktime_player_impl.h"

namespace belvane::detail {
// Hands due titles to the player on the run loop, while it lives.
class QuickTimeTitleClient final : public AudioDeliveryClient {
 public:
  explicit QuickTimeTitleClient(std::weak_ptr<BVQuickTimePlayer> player) : player_(std::move(player)) {}
  void audioDeliveryTitleDue(const std::shared_ptr<const StreamTitle>& title) override {
    if (auto player = player_.lock()) BVQuickTimePlayer::Impl::of(*player).streamTitleDue(title);
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
  if (!impl_->audio) {
    impl_->audio = AudioDelivery::create();
    impl_->titleClient = std::make_shared<belvane::detail::QuickTimeTitleClient>(sharedAs<BVQuickTimePlayer>());
    impl_->audio->setClient(impl_->titleClient.get());
    impl_->audio->setOutput(audioOutputSetting());
    impl_->audio->setVolume(_volume);
    impl_->audio->setMuted(_muted);
    impl_->audio->setStopsAtNextTitle(stopsAfterTitle_);
    impl_->audio->loudness().setEnabled(loudnessNormalization());
    impl_->audio->loudness().setTarget(loudnessTarget());
    impl_->receptionWatch = std::make_unique<belvane::detail::ReceptionWatch>(
        impl_->audio,
        [this] {
          const auto& movie = impl_->movie;
          auto connection = movie ? movie->connectionProgress() : belvane::detail::StreamReaderProgress{};
          return belvane::detail::ReceptionWatch::Readings{connection.reconnectAttempts, connection.broken, -1.0f,
                                                           paused_};
        },
        [this](const BVPlayerReception& reception) { changedReception(reception); });
  }
  impl_->audio->useCurrentRunLoop();
  impl_->audio->setPlayback(baseImpl().outputPlayback());
  auto link = this->link();
  impl_->audio->loudness().setStation(link ? link->url().absoluteString() : std::string());
  int code = impl_->audio->start();
  if (code == 0) impl_->movieAudio = std::make_shared<MovieAudioAdapter>(impl_->audio);
  return code;
}

// The audio of the movie being released stops at once; nothing its
// streaming threads still deliver reaches the output.
void BVQuickTimePlayer::stopMovieAudio() {
  if (impl_->movieAudio) impl_->movieAudio->detach();
  impl_->movieAudio.reset();
  impl_->streamTitle.reset();
}

void BVQuickTimePlayer::Impl::streamTitleDue(const std::shared_ptr<const belvane::detail::StreamTitle>& title) {
  // Files (local, or served with their length, whose duration may not be
  // known yet) keep their metadata keys: their titles are track titles.
  if (!title || !movie || movie->isFiniteResource()) return;
  if (streamTitle && *streamTitle == *title) return;
  streamTitle = title;
  auto self = player.shared_from_this();
  player.changedAttribute(player.attributes());
}

void BVQuickTimePlayer::fadeVolumeTo(float volume, double seconds) {
  if (volume < 0) return;
  _volume = volume;
  if (_subPlayer)
    _subPlayer->fadeVolumeTo(volume, seconds);
  else if (impl_->audio)
    impl_->audio->fadeVolumeTo(volume, seconds);
}

void BVQuickTimePlayer::setStopsAfterCurrentTitle(bool stops) {
  stopsAfterTitle_ = stops;
  if (_subPlayer) _subPlayer->setStopsAfterCurrentTitle(stops);
  if (impl_->audio) impl_->audio->setStopsAtNextTitle(stops);
}

void BVQuickTimePlayer::setLoudnessNormalization(bool normalizes) {
  BVBasePlayer::setLoudnessNormalization(normalizes);
  if (_subPlayer) _subPlayer->setLoudnessNormalization(normalizes);
  if (impl_->audio) impl_->audio->loudness().setEnabled(normalizes);
}

void BVQuickTimePlayer::setLoudnessTarget(double lufs) {
  BVBasePlayer::setLoudnessTarget(lufs);
  if (_subPlayer) _subPlayer->setLoudnessTarget(lufs);
  if (impl_->audio) impl_->audio->loudness().setTarget(loudnessTarget());
}

bool BVQuickTimePlayer::stopsAfterCurrentTitle() const {
  if (_subPlayer) return _subPlayer->stopsAfterCurrentTitle();
  return impl_->audio ? impl_->audio->stopsAtNextTitle() : stopsAfterTitle_;
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
  return impl_->receptionWatch ? impl_->receptionWatch->reception() : BVPlayerReception{};
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
  return impl_->audio ? impl_->audio->outputDevice() : std::string();
}

void BVQuickTimePlayer::setAudioOutputSetting(const BVAudioOutputSetting& setting) {
  BVBasePlayer::setAudioOutputSetting(setting);
  if (impl_->audio) impl_->audio->setOutput(setting);
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
  return impl_->audio ? impl_->audio->outputName() : "none";
}

uint64_t BVQuickTimePlayer::outputFramesWritten() const {
  if (_subPlayer) return _subPlayer->outputFramesWritten();
  return impl_->audio ? impl_->audio->framesWritten() : 0;
}
