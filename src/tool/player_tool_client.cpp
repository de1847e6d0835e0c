// BVPlayerToolClient: player operations forwarded to the tool.
#include <belvane/BVBasePlayer.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVPlayerToolClient.h>

const BVRemoteInterface& BVPlayerToolClient::playerToolInterface() {
  // The client only needs the signatures; the tool fills in what runs.
  static const BVRemoteInterface table({
      {"loadPatchLibrary:principalClass:", "@@", '@', nullptr},
      {"playMediaLink:", "@", 'v', nullptr},
      {"setVolume:", "f", 'v', nullptr},
      {"volume", "", 'f', nullptr},
      {"setMuted:", "c", 'v', nullptr},
      {"isMuted", "", 'c', nullptr},
      {"elapsedTime", "", 'f', nullptr},
      {"attributes", "", '@', nullptr},
      {"lastError", "", '@', nullptr},
      {"state", "", 'i', nullptr},
      {"setAudioOutput:", "@", 'i', nullptr},
      {"audioOutputName", "", '@', nullptr},
      {"outputFramesWritten", "", 'd', nullptr},
  });
  return table;
}

BVPlayerToolClient::BVPlayerToolClient() : connection_(std::make_unique<BVToolConnection>()) {
  connection_->setVendedObject(this);
}

BVPlayerToolClient::~BVPlayerToolClient() { connection_.reset(); }

BVValue BVPlayerToolClient::loadPatchLibrary(const BVValue& library, const BVValue& principalClass) {
  return send().forwardInvocation("loadPatchLibrary:principalClass:", {library, principalClass});
}

void BVPlayerToolClient::playMediaLink(const std::shared_ptr<BVMediaLink>& link) {
  send().forwardInvocation("playMediaLink:", {BVValue(link)});
}

void BVPlayerToolClient::setVolume(float volume) { send().forwardInvocation("setVolume:", {BVValue(volume)}); }
float BVPlayerToolClient::volume() { return float(send().forwardInvocation("volume", {}).doubleValue()); }
void BVPlayerToolClient::setMuted(bool muted) { send().forwardInvocation("setMuted:", {BVValue(muted)}); }
bool BVPlayerToolClient::isMuted() { return send().forwardInvocation("isMuted", {}).integerValue() != 0; }
float BVPlayerToolClient::elapsedTime() { return float(send().forwardInvocation("elapsedTime", {}).doubleValue()); }

BVDictionary BVPlayerToolClient::attributes() {
  BVValue v = send().forwardInvocation("attributes", {});
  return v.dictionary() ? *v.dictionary() : BVDictionary{};
}

BVErrorRef BVPlayerToolClient::lastError() {
  BVErrorRef error = send().forwardInvocation("lastError", {}).objectAs<const BVError>();
  if (!isConnected() && connection_->terminationError()) return connection_->terminationError();
  return error;
}

int BVPlayerToolClient::state() {
  int state = int(send().forwardInvocation("state", {}).integerValue());
  // A tool that went without being asked to is the player's failure.
  if (!isConnected() && connection_->terminationError()) return BVPlayerStateError;
  return state;
}

int BVPlayerToolClient::setAudioOutput(const std::string& setting) {
  return int(send().forwardInvocation("setAudioOutput:", {BVValue(setting)}).integerValue());
}

std::string BVPlayerToolClient::audioOutputName() {
  return send().forwardInvocation("audioOutputName", {}).stringOr("none");
}

uint64_t BVPlayerToolClient::outputFramesWritten() {
  return uint64_t(send().forwardInvocation("outputFramesWritten", {}).doubleValue());
}
