// BVBasePlayer: the audio output setting every player keeps and hands on.
#include <belvane/BVBasePlayer.h>

#include "audio_output/orplayer.h"
#include "audio_output/output_setting.h"

int BVBasePlayer::setAudioOutput(const std::string& setting) {
  if (!belvane::detail::parseOutputSpec(setting)) return ORPLAYER_ERROR_BAD_SPEC;
  audioOutput_ = setting;
  return 0;
}

std::string BVBasePlayer::audioOutput() const { return audioOutput_; }
