// OutputSpec: which output a player opens, as written in orplayer_set_output
// or $BELVANE_AUDIO_OUTPUT ("auto", "pulse", "pulse:SINK", "alsa",
// "alsa:DEVICE", "null", "null:fast", "wav:PATH"), and openOutput, which
// opens it ("auto": PulseAudio, then ALSA, then null). Any thread.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "audio_output/output_backend.h"

namespace belvane::detail {

struct OutputSpec {
  enum class Kind { Auto, Pulse, Alsa, Null, NullFast, Wav };
  Kind kind = Kind::Auto;
  std::string path;  // for Wav; for Pulse and Alsa the device ("" the default)
  // Whether play_wait writes to it itself (no output thread; see orplayer.cpp).
  bool isDirect() const { return kind == Kind::Null || kind == Kind::NullFast || kind == Kind::Wav; }
};

// Nothing for text that names no output (an empty text means "auto").
std::optional<OutputSpec> parseOutputSpec(std::string_view text);

struct OpenedOutput {
  std::unique_ptr<OutputBackend> backend;  // open, or empty on failure
  int error = 0;
  std::string reason;  // why it failed, for a listener
};

// playback: the playback the output belongs to (see OutputPlayback); may be null.
OpenedOutput openOutput(const OutputSpec& setting, unsigned rate, double deviceSeconds,
                        const std::shared_ptr<OutputSession>& session,
                        const std::shared_ptr<OutputPlayback>& playback = nullptr);

}  // namespace belvane::detail
