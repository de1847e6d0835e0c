// OutputPlayback: what one playback (one playLink of the host's player,
// across the engines that take it over) keeps of its outputs, so that the
// output session lasts as long as the playback: a WAV file begun in it is
// continued by the next engine's output, not rewritten from zero.
//
// Made by the player at playLink and handed, unchanged, to every engine's
// output (AudioDelivery::setPlayback, setOutputPlayback); any thread.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "audio_output/orplayer.h"

namespace belvane::detail {

class OutputPlayback {
 public:
  // Where a WAV recording of the setting "wav:PATH" stands: the file it was
  // last writing (PATH, or a ".N" file beside it), that file's number and
  // its rate. Noted when the file is completed.
  struct WavFile {
    std::string path;
    int segment = 1;
    unsigned rate = 0;
  };
  std::optional<WavFile> wavFile(const std::string& settingPath) const;
  void noteWavFile(const std::string& settingPath, const WavFile& file);

 private:
  mutable std::mutex mutex_;
  std::map<std::string, WavFile> wavFiles_;
};

// The playback the player's next start (and a change of output while it
// plays) belongs to; null: a playback of its own each start.
void setOutputPlayback(orplayer_t player, std::shared_ptr<OutputPlayback> playback);

}  // namespace belvane::detail
