// Parsing output settings and opening the chosen output.
#include "audio_output/output_setting.h"

#include "audio_output/orplayer.h"
#include "audio_output/output_log.h"

namespace belvane::detail {

std::optional<OutputSpec> parseOutputSpec(std::string_view text) {
  using Kind = OutputSpec::Kind;
  if (text.empty() || text == "auto") return OutputSpec{Kind::Auto, {}};
  if (text == "pulse") return OutputSpec{Kind::Pulse, {}};
  if (text == "alsa") return OutputSpec{Kind::Alsa, {}};
  if (text.starts_with("pulse:") && text.size() > 6) return OutputSpec{Kind::Pulse, std::string(text.substr(6))};
  if (text.starts_with("alsa:") && text.size() > 5) return OutputSpec{Kind::Alsa, std::string(text.substr(5))};
  if (text == "null") return OutputSpec{Kind::Null, {}};
  if (text == "null:fast") return OutputSpec{Kind::NullFast, {}};
  if (text.starts_with("wav:") && text.size() > 4) return OutputSpec{Kind::Wav, std::string(text.substr(4))};
  return std::nullopt;
}

namespace {

OpenedOutput tryOpen(std::unique_ptr<OutputBackend> backend, unsigned rate) {
  OpenedOutput opened;
  opened.error = backend->open(rate);
  if (opened.error == 0)
    opened.backend = std::move(backend);
  else
    opened.reason = backend->failureReason();
  return opened;
}

}  // namespace

OpenedOutput openOutput(const OutputSpec& setting, unsigned rate, double deviceSeconds,
                        const std::shared_ptr<OutputSession>& session,
                        const std::shared_ptr<OutputPlayback>& playback) {
  using Kind = OutputSpec::Kind;
  switch (setting.kind) {
    case Kind::Pulse:
      return tryOpen(makePulseOutput(deviceSeconds, setting.path), rate);
    case Kind::Alsa:
      return tryOpen(makeAlsaOutput(deviceSeconds, setting.path), rate);
    case Kind::Null:
      return tryOpen(makeNullOutput(true, deviceSeconds, session), rate);
    case Kind::NullFast:
      return tryOpen(makeNullOutput(false, deviceSeconds, session), rate);
    case Kind::Wav:
      return tryOpen(makeWavOutput(setting.path, playback), rate);
    case Kind::Auto:
      break;
  }
  OpenedOutput opened = tryOpen(makePulseOutput(deviceSeconds, {}), rate);
  if (!opened.backend) {
    if (alsaCardPresent())
      opened = tryOpen(makeAlsaOutput(deviceSeconds, {}), rate);
    else
      outputLog(QL_LOG_INFO, "no ALSA sound card");
  }
  if (!opened.backend) opened = tryOpen(makeNullOutput(true, deviceSeconds, session), rate);
  if (opened.backend)
    outputLog(QL_LOG_INFO, "automatic choice took \"%s\"", opened.backend->name());
  else {
    opened.error = ORPLAYER_ERROR_NO_OUTPUT;
    opened.reason = "no sound server, sound card or silent output could be opened";
  }
  return opened;
}

}  // namespace belvane::detail
