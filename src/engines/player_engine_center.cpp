// BVPlayerEngineCenter: the engines in their order of preference.
#include <belvane/BVMediaFormat.h>
#include <belvane/BVPlayerEngineCenter.h>
#include <belvane/BVPlayerEngines.h>

BVPlayerEngineCenter::BVPlayerEngineCenter(std::vector<BVPlayerEngineRef> engines) : engines_(std::move(engines)) {}

std::shared_ptr<BVPlayerEngineCenter> BVPlayerEngineCenter::sharedCenter() {
  static auto center = std::make_shared<BVPlayerEngineCenter>(std::vector<BVPlayerEngineRef>{
      BVMP3StreamPlayerEngine::sharedEngine(),
      BVHelixPlayerEngine::sharedEngine(),
      BVWindowsMediaPlayerEngine::sharedEngine(),
      BVQuicktimePlayerEngine::sharedEngine(),
  });
  return center;
}

BVPlayerEngineRef BVPlayerEngineCenter::engineWithEngineID(std::string_view engineID) const {
  for (const BVPlayerEngineRef& engine : engines_) {
    auto id = engine->engineID();
    if (id && *id == engineID) return engine;
  }
  return nullptr;
}

std::vector<BVPlayerEngineRef> BVPlayerEngineCenter::preferedEnginesForFormat(const BVMediaFormat& format) const {
  std::vector<BVPlayerEngineRef> candidates;
  for (const BVPlayerEngineRef& engine : engines_) {
    if (engine->canPlayFormat(format)) candidates.push_back(engine);
  }
  return candidates;
}

BVPlayerEngineRef BVPlayerEngineCenter::preferedEngineForFormat(const BVMediaFormat& format) const {
  auto candidates = preferedEnginesForFormat(format);
  return candidates.empty() ? nullptr : candidates.front();
}
