// BVPlayerToolClient: player operations forwarded to the tool.
#include <belvane/BVBasePlayer.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVPlayerToolClient.h>

#include "tool/player_tool_interface.h"
#include "tool/tool_connection.h"

namespace belvane::detail {

const BVRemoteInterface& playerToolInterface() {
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

// The client's side of the connection: it only lends the operation table,
// by which the connection packs arguments and reads results.
class PlayerToolClientSide final : public BVVendable {
 public:
  const BVRemoteInterface& remoteInterface() override { return playerToolInterface(); }
};

}  // namespace belvane::detail

BVPlayerToolClient::BVPlayerToolClient()
    : side_(std::make_unique<belvane::detail::PlayerToolClientSide>()),
      connection_(std::make_unique<BVToolConnection>()) {
  connection_->setVendedObject(side_.get());
}

BVPlayerToolClient::~BVPlayerToolClient() { connection_.reset(); }

void BVPlayerToolClient::setServerToolPath(const std::string& path) { connection_->setServerToolPath(path); }
const std::string& BVPlayerToolClient::serverToolPath() const { return connection_->serverToolPath(); }
BVErrorRef BVPlayerToolClient::connect() { return connection_->connect(); }
void BVPlayerToolClient::disconnect() { connection_->disconnect(); }
int BVPlayerToolClient::serverProcessID() const { return connection_->serverProcessID(); }
void BVPlayerToolClient::setTimeout(double seconds) { connection_->setTimeout(seconds); }
double BVPlayerToolClient::timeout() const { return connection_->timeout(); }
bool BVPlayerToolClient::isConnected() const { return connection_->isConnected(); }
BVToolConnection& BVPlayerToolClient::send() { return connection_->send(); }

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
