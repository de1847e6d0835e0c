// BVBasePlayer: the audio output, reconnection, request and loudness
// settings every player keeps and hands on.
#include <belvane/BVBasePlayer.h>

#include "audio_output/orplayer.h"
#include "audio_output/output_setting.h"

#include <cmath>

int BVBasePlayer::setAudioOutput(const std::string& setting) {
  if (!belvane::detail::parseOutputSpec(setting)) return ORPLAYER_ERROR_BAD_SPEC;
  audioOutput_ = setting;
  return 0;
}

std::string BVBasePlayer::audioOutput() const { return audioOutput_; }

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
