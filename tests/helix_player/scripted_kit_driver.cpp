// Installs the scripted kit in a temporary application bundle, loads it
// through the Helix engine and finds its driving functions.
#include "helix_player/scripted_kit_driver.h"

#include <belvane/BVPlayerEngines.h>
#include <belvane/BVRunLoop.h>

#include "support/scoped_env.h"
#include "support/temp_dir.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

namespace belvane::test {

namespace {

const char* const kInfoPlist = R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict><key>CFBundleIdentifier</key><string>com.RealNetworks.RealPlayer</string></dict></plist>)";

template <class F>
void bind(void* kit, const char* name, F& fn) {
  fn = reinterpret_cast<F>(dlsym(kit, name));
  if (!fn) ADD_FAILURE() << "the scripted kit lacks " << name;
}

ScriptedKit load() {
  // The bundle and the environment stay for the whole process: the engine
  // loads its kit once.
  static TempDir data;
  static ScopedXDGDataHome xdg(data.path());
  data.write("belvane/applications/RealPlayer.app/Info.plist", kInfoPlist);
  std::filesystem::path kitFolder =
      std::filesystem::path(data.path()) / "belvane/applications/RealPlayer.app/PrivateFrameworks/HXClientKit.framework";
  std::filesystem::create_directories(kitFolder);
  std::filesystem::copy_file(SCRIPTED_HXKIT, kitFolder / "HXClientKit.so");

  auto engine = BVHelixPlayerEngine::sharedEngine();
  engine->recheckAvailablity();
  ScriptedKit kit{};
  if (!engine->isAvailable()) {
    ADD_FAILURE() << "the Helix engine did not load the scripted kit";
    return kit;
  }
  // The kit as the engine loaded it (it may have been copied first).
  Dl_info info{};
  void* handle = nullptr;
  if (dladdr(engine->clientPlayerClass(), &info) && info.dli_fname)
    handle = dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD);
  if (!handle) {
    ADD_FAILURE() << "the loaded kit cannot be found";
    return kit;
  }
  bind(handle, "scripted_kit_reset", kit.reset);
  bind(handle, "scripted_kit_fail", kit.fail);
  bind(handle, "scripted_kit_set_position", kit.setPosition);
  bind(handle, "scripted_kit_set_length", kit.setLength);
  bind(handle, "scripted_kit_set_live", kit.setLive);
  bind(handle, "scripted_kit_set_start_seeking_result", kit.setStartSeekingResult);
  bind(handle, "scripted_kit_report_on_release", kit.reportOnRelease);
  bind(handle, "scripted_kit_set_statistic", kit.setStatistic);
  bind(handle, "scripted_kit_calls", kit.callsText);
  bind(handle, "scripted_kit_live_objects", kit.liveObjects);
  bind(handle, "scripted_kit_pending_reports", kit.pendingReports);
  bind(handle, "scripted_kit_emit_content_state", kit.emitContentState);
  bind(handle, "scripted_kit_emit_concluded", kit.emitConcluded);
  bind(handle, "scripted_kit_emit_error", kit.emitError);
  bind(handle, "scripted_kit_emit_length", kit.emitLength);
  bind(handle, "scripted_kit_emit_statistic", kit.emitStatistic);
  return kit;
}

}  // namespace

ScriptedKit& ScriptedKit::shared() {
  static ScriptedKit kit = load();
  return kit;
}

std::vector<std::string> ScriptedKit::calls() const {
  std::vector<std::string> out;
  std::istringstream in(callsText());
  for (std::string line; std::getline(in, line);) out.push_back(line);
  return out;
}

std::shared_ptr<BVHelixPlayer> ScriptedKit::makePlayer() const {
  return std::dynamic_pointer_cast<BVHelixPlayer>(BVHelixPlayerEngine::sharedEngine()->createPlayer());
}

void deliverReports() {
  BVRunLoop::main().runUntil([] { return ScriptedKit::shared().pendingReports() == 0; }, 5.0);
}

}  // namespace belvane::test
