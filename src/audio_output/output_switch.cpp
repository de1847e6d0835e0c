// Changing a playing output's device, and telling the player's host which
// device is in use (see PlayerCore::noteDevice and switchBackend).
#include "audio_output/output_log.h"
#include "audio_output/player_core.h"

namespace belvane::detail {

// The listener is called under the device mutex, so that clearing it (the
// player going away) waits for a call in progress.
void PlayerCore::noteDevice(const std::string& device, bool tell) {
  std::lock_guard lock(deviceMutex_);
  if (device == device_) return;
  device_ = device;
  if (tell && deviceListener_) deviceListener_(device.c_str(), deviceListenerContext_);
}

std::string PlayerCore::device() const {
  std::lock_guard lock(deviceMutex_);
  return device_;
}

void PlayerCore::setDeviceListener(void (*listener)(const char*, void*), void* context) {
  std::lock_guard lock(deviceMutex_);
  deviceListener_ = listener;
  deviceListenerContext_ = context;
}

std::function<void(const std::string&)> PlayerCore::deviceListenerFor(const std::shared_ptr<PlayerCore>& core) {
  return [weak = std::weak_ptr<PlayerCore>(core)](const std::string& device) {
    if (auto core = weak.lock()) core->noteDevice(device, true);
  };
}

namespace {

std::string settingText(const OutputSpec& target) {
  using Kind = OutputSpec::Kind;
  switch (target.kind) {
    case Kind::Pulse:
      return target.path.empty() ? "pulse" : "pulse:" + target.path;
    case Kind::Alsa:
      return target.path.empty() ? "alsa" : "alsa:" + target.path;
    case Kind::Null:
      return "null";
    case Kind::NullFast:
      return "null:fast";
    case Kind::Wav:
      return "wav:" + target.path;
    case Kind::Auto:
      break;
  }
  return "auto";
}

}  // namespace

void switchBackend(std::unique_ptr<OutputBackend>& backend, const std::shared_ptr<PlayerCore>& core,
                   const OutputSpec& target, double deviceSeconds, const std::shared_ptr<OutputSession>& session) {
  const std::string text = settingText(target);
  if (target.kind == OutputSpec::Kind::Pulse && backend->moveTo(text)) {
    outputLog(QL_LOG_INFO, "moved to \"%s\"", backend->device().c_str());
  } else {
    std::shared_ptr<OutputPlayback> playback;
    {
      std::lock_guard lock(core->mutex);
      playback = core->playback;
    }
    OpenedOutput opened = openOutput(target, backend->rate(), deviceSeconds, session, playback);
    if (!opened.backend) {
      outputLog(QL_LOG_WARNING, "cannot change to \"%s\" (%s); playing on", text.c_str(), opened.reason.c_str());
      return;
    }
    backend->discard();
    backend = std::move(opened.backend);
    backend->setDeviceListener(PlayerCore::deviceListenerFor(core));
    core->outputName = backend->name();
    core->realTime = backend->paced();
    outputLog(QL_LOG_INFO, "now playing through \"%s\"", backend->device().c_str());
  }
  core->noteDevice(backend->device(), true);
}

}  // namespace belvane::detail
