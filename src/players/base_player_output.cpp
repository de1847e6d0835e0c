// BVBasePlayer: the audio output, reconnection, request and loudness
// settings every player keeps and hands on.
#include <belvane/BVBasePlayer.h>

#include "audio_output/output_playback.h"
#include "players/base_player_impl.h"

#include <cmath>

int BVBasePlayer::setAudioOutput(const std::string& text) {
  auto setting = BVAudioOutputSetting::fromString(text);
  if (!setting) return BVAudioOutputErrorSetting;
  setAudioOutputSetting(*setting);
  return 0;
}

std::shared_ptr<belvane::detail::OutputPlayback> BVBasePlayer::Impl::outputPlayback() const {
  belvane::detail::MutexLock lock(linkMutex);
  return outputPlayback_;
}

void BVBasePlayer::setReconnectPatience(double seconds) {
  if (std::isnan(seconds) || seconds < 0) return;
  reconnectPatience_ = seconds;
}

void BVBasePlayer::setRequestSettings(BVRequestSettingsRef settings) {
  requestSettings_ = settings ? std::move(settings) : BVRequestSettings::defaultSettings();
}

void BVBasePlayer::setLoudnessNormalization(bool normalizes) { loudnessNormalization_ = normalizes; }

void BVBasePlayer::setLoudnessTarget(double lufs) {
  if (!(lufs >= -70.0 && lufs <= 0.0)) return;
  loudnessTarget_ = lufs;
}
