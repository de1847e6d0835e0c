// OutputPlayback (see output_playback.h).
#include "audio_output/output_playback.h"

namespace belvane::detail {

std::optional<OutputPlayback::WavFile> OutputPlayback::wavFile(const std::string& settingPath) const {
  std::lock_guard lock(mutex_);
  auto it = wavFiles_.find(settingPath);
  if (it == wavFiles_.end()) return std::nullopt;
  return it->second;
}

void OutputPlayback::noteWavFile(const std::string& settingPath, const WavFile& file) {
  std::lock_guard lock(mutex_);
  wavFiles_[settingPath] = file;
}

}  // namespace belvane::detail
