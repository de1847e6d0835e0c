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

void switchBackend(std::unique_ptr<OutputBackend>& backend, const std::shared_ptr<PlayerCore>& core,
                   const BVAudioOutputSetting& target, double deviceSeconds, const std::shared_ptr<OutputSession>& session) {
  const std::string text = target.text();
  if (backend->moveTo(target)) {
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
