// BVAudioOutputSetting: where a player's audio goes, as a typed value. Its
// text ("auto", "pulse", "pulse:SINK", "alsa", "alsa:DEVICE", "null",
// "null:fast", "wav:PATH") is parsed once, where the text comes in: the
// command line, the C interface, the player tool's wire and
// $BELVANE_AUDIO_OUTPUT (read in one place: resolved()); the value is then handed
// unchanged to every engine, the RealMedia kit included.
//
// A value type; any thread.
#pragma once

#include <belvane/BVExport.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

struct BV_EXPORT BVAudioOutputSetting {
  enum class Kind : int32_t {
    Default = 0,  // nothing chosen: $BELVANE_AUDIO_OUTPUT, else Auto
    Auto,         // PulseAudio or PipeWire, then ALSA, then silence
    Pulse,        // the sound server: device names a sink ("" its default, followed as it changes)
    Alsa,         // ALSA: device names a PCM ("" "default")
    Null,         // silent, in real time
    NullFast,     // silent, as fast as decoded
    Wav,          // a 32-bit float WAV file: device is its path
  };
  Kind kind = Kind::Default;
  std::string device;

  // The setting a text names ("" and "default" name Default); nothing for a
  // text that names no output, with why in *reason ("\"speakers\" is no
  // audio output (use auto, pulse[:SINK], alsa[:DEVICE], null, null:fast or
  // wav:PATH)").
  static std::optional<BVAudioOutputSetting> fromString(std::string_view text, std::string* reason = nullptr);
  // The text that names it ("" for Default).
  std::string text() const;
  // Default made concrete: the setting $BELVANE_AUDIO_OUTPUT names (Auto
  // when unset; read here, when an output opens without a setting, and
  // nowhere else); other settings as they are. Nothing when the variable
  // names no output, with why in *reason.
  std::optional<BVAudioOutputSetting> resolved(std::string* reason = nullptr) const;
  // Whether the output is written by the decoding thread itself (null, WAV)
  // rather than by an output thread (sound servers and cards).
  bool isWrittenDirectly() const { return kind == Kind::Null || kind == Kind::NullFast || kind == Kind::Wav; }

  bool operator==(const BVAudioOutputSetting&) const = default;
};
