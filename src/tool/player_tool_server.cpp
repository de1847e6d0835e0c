#include "tool/player_tool_server.h"

#include <belvane/BVKitOwner.h>
#include <belvane/BVMasterPlayer.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVPlayerToolClient.h>

#include <dlfcn.h>

namespace belvane::detail {

PlayerToolServer::PlayerToolServer(BVToolConnection& connection)
    : connection_(connection), player_(BVMasterPlayer::create()) {
  player_->setOwner(this);
  std::map<std::string, std::function<BVValue(const BVArray&)>> run = {
      {"loadPatchLibrary:principalClass:", [this](const BVArray& a) { return loadPatchLibrary(a.at(0), a.at(1)); }},
      {"playMediaLink:",
       [this](const BVArray& a) {
         if (auto link = a.at(0).objectAs<BVMediaLink>()) {
           lastError_ = nullptr;
           player_->playLink(link);
         }
         return BVValue();
       }},
      {"setVolume:", [this](const BVArray& a) { player_->setVolume(float(a.at(0).doubleValue())); return BVValue(); }},
      {"volume", [this](const BVArray&) { return BVValue(player_->volume()); }},
      {"setMuted:", [this](const BVArray& a) { player_->setMuted(a.at(0).integerValue() != 0); return BVValue(); }},
      {"isMuted", [this](const BVArray&) { return BVValue(player_->isMuted()); }},
      {"elapsedTime", [this](const BVArray&) { return BVValue(player_->elapsedTime()); }},
      {"attributes", [this](const BVArray&) { return BVValue(player_->attributes()); }},
      {"lastError", [this](const BVArray&) { return BVValue(lastError_); }},
      {"state", [this](const BVArray&) { return BVValue(int(player_->state())); }},
      {"setAudioOutput:",
       [this](const BVArray& a) {
         const std::string* setting = a.at(0).string();
         return BVValue(setting ? player_->setAudioOutput(*setting) : -1);
       }},
      {"audioOutputName", [this](const BVArray&) { return BVValue(player_->audioOutputName()); }},
      {"outputFramesWritten", [this](const BVArray&) { return BVValue(double(player_->outputFramesWritten())); }},
  };
  for (const auto& op : BVPlayerToolClient::playerToolInterface().operations()) {
    BVRemoteOperation o = op;
    o.invoke = run.at(op.selector);
    interface_.add(std::move(o));
  }
  // The host is going away: reply, then end the process.
  interface_.add({"disconnect", "", 'v', [this](const BVArray&) {
                    connection_.setTerminate(true);
                    return BVValue();
                  }});
}

PlayerToolServer::~PlayerToolServer() {
  if (player_) player_->setOwner(nullptr);
}

void PlayerToolServer::playerStateChanged(BVBasePlayer&, BVPlayerState, BVPlayerState to, const BVErrorRef& error) {
  if (error) lastError_ = error;
}

BVValue PlayerToolServer::loadPatchLibrary(const BVValue& library, const BVValue& principalClass) {
  const std::string* path = library.string();
  const std::string* name = principalClass.string();
  if (!path || !name) return BVValue();
  void* handle = dlopen(path->c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle) {
    BVLog("Player tool: patch library %s could not be loaded: %s", path->c_str(), dlerror());
    return BVValue();
  }
  auto factory = reinterpret_cast<PatchFactory>(dlsym(handle, kPatchFactorySymbol));
  BVObject* object = factory ? factory(name->c_str()) : nullptr;
  if (!object) {
    BVLog("Player tool: patch library %s has no principal class %s", path->c_str(), name->c_str());
    return BVValue();
  }
  // The library stays loaded for the life of the process; so does the instance.
  std::shared_ptr<BVObject> instance(object);
  patches_.push_back(instance);
  return BVValue(instance);
}

}  // namespace belvane::detail
