// BVHelixPlayerEngine: RealMedia through a Helix client kit, loaded at run
// time from the RealMedia application bundle.
#include <belvane/BVHelixError.h>
#include <belvane/BVIconCenter.h>
#include <belvane/BVKitOwner.h>
#include <belvane/BVPlayerEngines.h>
#include <belvane/BVResources.h>

#include "engines/application_bundles.h"
#include "engines/download_pages.h"

#include <dlfcn.h>
#include <glib.h>

#include <cstddef>
#include <cstring>
#include <filesystem>

namespace {

constexpr const char* kKitFolder = "HXClientKit.framework";
constexpr const char* kKitLibrary = "HXClientKit.so";

struct Operation {
  const char* name;
  size_t offset;
};

#define HX_PLAYER_OPERATION(selector, slot) Operation{selector, offsetof(HXClientPlayerClass, slot)}

// Every operation the Helix player uses, in the order they are checked.
constexpr Operation kPlayerOperations[] = {
    HX_PLAYER_OPERATION("initInView:withObserver:", initInView),
    HX_PLAYER_OPERATION("openWithURL:mimeType:", openWithURL),
    HX_PLAYER_OPERATION("contentState", contentState),
    HX_PLAYER_OPERATION("play", play),
    HX_PLAYER_OPERATION("pause", pause),
    HX_PLAYER_OPERATION("stop", stop),
    HX_PLAYER_OPERATION("startSeeking", startSeeking),
    HX_PLAYER_OPERATION("stopSeeking", stopSeeking),
    HX_PLAYER_OPERATION("setPosition:", setPosition),
    HX_PLAYER_OPERATION("position", position),
    HX_PLAYER_OPERATION("volume", volume),
    HX_PLAYER_OPERATION("setVolume:", setVolume),
    HX_PLAYER_OPERATION("isMuted", isMuted),
    HX_PLAYER_OPERATION("mute:", mute),
    HX_PLAYER_OPERATION("length", length),
    HX_PLAYER_OPERATION("isLive", isLive),
    HX_PLAYER_OPERATION("copyStatisticsFor:", copyStatisticsFor),
    HX_PLAYER_OPERATION("addObserver:forStatistic:userInfo:", addObserver),
    HX_PLAYER_OPERATION("removeObserver:forStatistic:userInfo:", removeObserver),
};

#undef HX_PLAYER_OPERATION

// Whether the table, built with declaredSize bytes, has a non-null pointer
// in the slot at offset.
bool hasOperation(const void* table, uint32_t declaredSize, size_t offset) {
  using AnyFunction = void (*)();
  if (offset + sizeof(AnyFunction) > declaredSize) return false;
  AnyFunction fn;
  std::memcpy(&fn, static_cast<const char*>(table) + offset, sizeof fn);
  return fn != nullptr;
}

bool isDirectory(const std::string& path) {
  std::error_code ec;
  return std::filesystem::is_directory(path, ec);
}

}  // namespace

std::shared_ptr<BVHelixPlayerEngine> BVHelixPlayerEngine::sharedEngine() {
  static auto engine = std::make_shared<BVHelixPlayerEngine>();
  return engine;
}

std::shared_ptr<BVImage> BVHelixPlayerEngine::icon() const {
  return BVIconCenter::sharedCenter()->imageNamed(BVIconHelixPlayer);
}

std::optional<BVURL> BVHelixPlayerEngine::installerDownloadURL() const {
  return belvane::detail::downloadPageURL("/airloom/versions/realplayer.php");
}

std::optional<std::string> BVHelixPlayerEngine::displayableEngineDescription() {
  return BVResources::localizedString("RealPlayer allows you to listen to streaming RealMedia audio.");
}

// A player on the loaded kit's class tables (createPlayer asks only when
// the engine is available, so the tables are there).
bool BVHelixPlayerEngine::isAvailable() { return !_loadHXClientKitIfNeeded(); }

void BVHelixPlayerEngine::recheckAvailablity() {
  if (isAvailable()) return;
  didAttemptLoad_ = false;
  loadingError_.reset();
}

BVErrorRef BVHelixPlayerEngine::_loadHXClientKitIfNeeded() {
  if (!didAttemptLoad_) {
    loadingError_ = _loadHXClientKit();
    didAttemptLoad_ = true;
  }
  return loadingError_;
}

BVErrorRef BVHelixPlayerEngine::_loadHXClientKit() {
  namespace detail = belvane::detail;
  playerClass_ = nullptr;
  viewClass_ = nullptr;

  auto application = detail::applicationBundlePathForIdentifier(kApplicationIdentifier);
  if (!application) return BVHelixError(-43, "RealPlayer could not be found");

  // An application on a removable medium or a mounted image may go away
  // while its code is in use, so its kit is loaded from a local copy.
  auto volume = detail::volumeInformationForPath(*application);
  bool copyFirst = volume && volume->removable && volume->unmountable;

  if (!isDirectory(*application)) return BVHelixError(-43, "RealPlayer bundle could not be loaded");

  std::string kitPath = *application + "/PrivateFrameworks/" + kKitFolder;
  if (copyFirst) {
    std::string copy = std::string(g_get_tmp_dir()) + "/" + kKitFolder;
    detail::copyFolderUnlessPresent(kitPath, copy);
    kitPath = copy;
  }

  void* kit = nullptr;
  if (isDirectory(kitPath)) {
    kit = dlopen((kitPath + "/" + kKitLibrary).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!kit) BVLog("HXClientKit: %s", dlerror());
  }
  auto* player = kit ? static_cast<const HXClientPlayerClass*>(dlsym(kit, HX_CLIENT_PLAYER_CLASS_SYMBOL)) : nullptr;
  if (!player) {
    if (kit) dlclose(kit);
    return BVHelixError(-43, "HXClientKit bundle could not be loaded");
  }
  // The kit's code stays loaded for the rest of the process.
  playerClass_ = player;
  viewClass_ = static_cast<const HXClientViewClass*>(dlsym(kit, HX_CLIENT_VIEW_CLASS_SYMBOL));

  if (!_checkHXClientKitCompatibility()) return BVHelixError(-4, "HXClientKit version incompatible");
  return nullptr;
}

bool BVHelixPlayerEngine::_checkHXClientKitCompatibility() const {
  const HXClientPlayerClass* player = playerClass_;
  if (!player || player->abiVersion != HX_CLIENT_KIT_ABI_VERSION ||
      !hasOperation(player, player->size, offsetof(HXClientPlayerClass, release))) {
    BVLog("HXClientKit: no usable HXClientPlayer class");
    return false;
  }
  for (const Operation& op : kPlayerOperations) {
    if (!hasOperation(player, player->size, op.offset)) {
      BVLog("HXClientKit: HXClientPlayer lacks %s", op.name);
      return false;
    }
  }

  const HXClientViewClass* view = viewClass_;
  if (!view || view->abiVersion != HX_CLIENT_KIT_ABI_VERSION ||
      view->size < offsetof(HXClientViewClass, isViewClass) + sizeof(bool) || !view->isViewClass ||
      !hasOperation(view, view->size, offsetof(HXClientViewClass, release))) {
    BVLog("HXClientKit: no usable HXClientView class");
    return false;
  }
  if (!hasOperation(view, view->size, offsetof(HXClientViewClass, initWithFrame))) {
    BVLog("HXClientKit: HXClientView lacks initWithFrame:");
    return false;
  }
  return true;
}
