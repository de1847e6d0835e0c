// Opening the output a setting names.
#include "audio_output/output_setting.h"

#include "audio_output/orplayer.h"
#include "audio_output/output_log.h"

namespace belvane::detail {

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

OpenedOutput openOutput(const BVAudioOutputSetting& setting, unsigned rate, double deviceSeconds,
                        const std::shared_ptr<OutputSession>& session,
                        const std::shared_ptr<OutputPlayback>& playback) {
  using Kind = BVAudioOutputSetting::Kind;
  switch (setting.kind) {
    case Kind::Pulse:
      return tryOpen(makePulseOutput(deviceSeconds, setting.device), rate);
    case Kind::Alsa:
      return tryOpen(makeAlsaOutput(deviceSeconds, setting.device), rate);
    case Kind::Null:
      return tryOpen(makeNullOutput(true, deviceSeconds, session), rate);
    case Kind::NullFast:
      return tryOpen(makeNullOutput(false, deviceSeconds, session), rate);
    case Kind::Wav:
      return tryOpen(makeWavOutput(setting.device, playback), rate);
    case Kind::Auto:
    case Kind::Default:
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
