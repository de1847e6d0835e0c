// openOutput: opens the output a setting names ("auto": PulseAudio, then
// ALSA, then null); and the setting a player was given, as orplayer keeps
// it. Any thread.
#pragma once

#include <belvane/BVAudioOutputSetting.h>

#include <memory>
#include <string>

#include "audio_output/orplayer.h"
#include "audio_output/output_backend.h"

namespace belvane::detail {

struct OpenedOutput {
  std::unique_ptr<OutputBackend> backend;  // open, or empty on failure
  int error = 0;
  std::string reason;  // why it failed, for a listener
};

// playback: the playback the output belongs to (see OutputPlayback); may be null.
// setting: a resolved one (not Default).
OpenedOutput openOutput(const BVAudioOutputSetting& setting, unsigned rate, double deviceSeconds,
                        const std::shared_ptr<OutputSession>& session,
                        const std::shared_ptr<OutputPlayback>& playback = nullptr);

// The output a player opens at its next start, and moves to at once when
// started (see orplayer_set_output, which parses its text into this).
void setOutputSetting(orplayer_t player, const BVAudioOutputSetting& setting);

}  // namespace belvane::detail
