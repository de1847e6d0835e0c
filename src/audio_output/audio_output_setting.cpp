// BVAudioOutputSetting: the one list of output names, parsing and printing,
// and the one place $BELVANE_AUDIO_OUTPUT is read.
#include <belvane/BVAudioOutputSetting.h>

#include <cstdlib>

namespace {

using Kind = BVAudioOutputSetting::Kind;

enum class Device { None, Optional, Required };

struct Name {
  const char* text;
  Kind kind;
  Device device;  // after "text:"
};

// Every output, by the name its setting starts with.
constexpr Name kNames[] = {
    {"auto", Kind::Auto, Device::None},      {"pulse", Kind::Pulse, Device::Optional},
    {"alsa", Kind::Alsa, Device::Optional},  {"null", Kind::Null, Device::None},
    {"null:fast", Kind::NullFast, Device::None}, {"wav", Kind::Wav, Device::Required},
};

constexpr const char* kChoices = "auto, pulse[:SINK], alsa[:DEVICE], null, null:fast or wav:PATH";

}  // namespace

std::optional<BVAudioOutputSetting> BVAudioOutputSetting::fromString(std::string_view text, std::string* reason) {
  if (text.empty() || text == "default") return BVAudioOutputSetting{};
  for (const Name& name : kNames) {
    std::string_view prefix = name.text;
    if (text == prefix && name.device != Device::Required) return BVAudioOutputSetting{name.kind, {}};
    if (name.device != Device::None && text.size() > prefix.size() + 1 && text.starts_with(prefix) &&
        text[prefix.size()] == ':')
      return BVAudioOutputSetting{name.kind, std::string(text.substr(prefix.size() + 1))};
  }
  if (reason) *reason = "\"" + std::string(text) + "\" is no audio output (use " + kChoices + ")";
  return std::nullopt;
}

std::string BVAudioOutputSetting::text() const {
  if (kind == Kind::Default) return "";
  for (const Name& name : kNames)
    if (name.kind == kind) return device.empty() ? name.text : std::string(name.text) + ":" + device;
  return "";
}

std::optional<BVAudioOutputSetting> BVAudioOutputSetting::resolved(std::string* reason) const {
  if (kind != Kind::Default) return *this;
  // The only place the variable is read.
  const char* text = std::getenv("BELVANE_AUDIO_OUTPUT");
  std::string why;
  auto setting = fromString(text ? text : "", &why);
  if (!setting) {
    if (reason) *reason = "$BELVANE_AUDIO_OUTPUT: " + why;
    return std::nullopt;
  }
  if (setting->kind == Kind::Default) setting->kind = Kind::Auto;
  return setting;
}
