// belvane engines: the engine center's view of a link, or of itself.
#include "commands.h"

#include <belvane/BVIconCenter.h>
#include <belvane/BVMediaFormat.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVPlayerEngineCenter.h>
#include <belvane/BVPlayerEngines.h>
#include <belvane/BVURLAdditions.h>

#include <cstdio>

namespace belvane::tool {

namespace {

std::string orNone(const std::optional<std::string>& s) { return s ? *s : "(none)"; }

nlohmann::ordered_json jsonOr(const std::optional<std::string>& s) {
  return s ? nlohmann::ordered_json(*s) : nlohmann::ordered_json(nullptr);
}

BVErrorRef helixLoadingError(const BVPlayerEngineRef& engine) {
  auto helix = std::dynamic_pointer_cast<BVHelixPlayerEngine>(engine);
  return helix ? helix->_loadHXClientKitIfNeeded() : nullptr;
}

int listEngines(bool json) {
  auto center = BVPlayerEngineCenter::sharedCenter();
  auto out = nlohmann::ordered_json::array();
  for (auto& engine : center->allEngines()) {
    bool available = engine->isAvailable();
    auto url = engine->installerDownloadURL();
    auto icon = engine->icon();
    BVErrorRef loading = helixLoadingError(engine);
    if (json) {
      nlohmann::ordered_json e;
      e["engineID"] = jsonOr(engine->engineID());
      e["available"] = available;
      e["formatsFile"] = engine->formatsFileName();
      e["displayableFormatName"] = jsonOr(engine->displayableFormatName());
      e["displayableBrandingName"] = jsonOr(engine->displayableBrandingName());
      e["displayableEngineDescription"] = jsonOr(engine->displayableEngineDescription());
      e["installerDownloadURL"] = url ? nlohmann::ordered_json(url->absoluteString()) : nlohmann::ordered_json(nullptr);
      e["icon"] = icon ? nlohmann::ordered_json(icon->path()) : nlohmann::ordered_json(nullptr);
      if (std::dynamic_pointer_cast<BVHelixPlayerEngine>(engine)) e["loadingError"] = errorToJSON(loading);
      out.push_back(e);
      continue;
    }
    std::printf("%s\n", orNone(engine->engineID()).c_str());
    std::printf("  available:     %s\n", available ? "yes" : "no");
    std::printf("  formats file:  %s\n", engine->formatsFileName().c_str());
    std::printf("  format name:   %s\n", orNone(engine->displayableFormatName()).c_str());
    std::printf("  branding:      %s\n", orNone(engine->displayableBrandingName()).c_str());
    std::printf("  installer:     %s\n", url ? url->absoluteString().c_str() : "(none)");
    std::printf("  icon:          %s\n", icon ? icon->path().c_str() : "(none)");
    if (loading)
      std::printf("  loading error: %s %lld %s\n", loading->domain().c_str(), static_cast<long long>(loading->code()),
                  loading->localizedDescription().c_str());
    std::printf("  description:   %s\n\n", orNone(engine->displayableEngineDescription()).c_str());
  }
  if (json) std::printf("%s\n", out.dump().c_str());
  return 0;
}

int runEngines(const Arguments& args) {
  bool json = args.flag("json");
  if (args.flag("list")) {
    if (!args.positional().empty()) throw UsageError("--list takes no URL");
    return listEngines(json);
  }
  const std::string& text = args.onePositional("URL");
  auto url = std::optional<BVURL>(requireURL(text));
  auto mime = args.option("mime");
  auto format = mime ? BVMediaMutableFormat::formatByInferringFromURL(*url, *mime)
                     : BVMediaMutableFormat::formatByInferringFromURL(*url);
  if (auto id = args.option("engine-id")) format->setEngineID(*id);
  if (auto rt = args.option("radiotime")) format->setRadioTimeMediaType(*rt);
  auto link = BVMediaLink::create(*url, std::nullopt, format, nullptr);

  auto center = BVPlayerEngineCenter::sharedCenter();
  auto candidates = center->preferedEnginesForFormat(*link->format());
  auto chosen = link->defaultEngine();
  BVErrorRef lastError = chosen ? nullptr : link->lastError();

  if (json) {
    nlohmann::ordered_json out;
    out["candidates"] = nlohmann::ordered_json::array();
    for (auto& e : candidates) out["candidates"].push_back(jsonOr(e->engineID()));
    out["available"] = nlohmann::ordered_json::object();
    for (auto& e : center->allEngines()) out["available"][orNone(e->engineID())] = e->isAvailable();
    out["defaultEngine"] = chosen ? jsonOr(chosen->engineID()) : nlohmann::ordered_json(nullptr);
    out["lastError"] = errorToJSON(lastError);
    std::printf("%s\n", out.dump().c_str());
    return 0;
  }
  std::printf("candidates:\n");
  if (candidates.empty()) std::printf("  (none)\n");
  for (auto& e : candidates)
    std::printf("  %s (%s)\n", orNone(e->engineID()).c_str(), e->isAvailable() ? "available" : "unavailable");
  std::printf("default engine: %s\n", chosen ? orNone(chosen->engineID()).c_str() : "(none)");
  if (lastError)
    std::printf("last error: %s %lld %s\n", lastError->domain().c_str(), static_cast<long long>(lastError->code()),
                lastError->localizedDescription().c_str());
  return 0;
}

}  // namespace

std::vector<Command> engineCommands() {
  return {
      {"engines", "URL [--mime M] [--engine-id ID] [--radiotime T] [--json] | --list [--json]",
       "For URL: the engines that claim the link's format in the center's order, each engine's\n"
       "availability, the link's default engine and, when the choice failed, the link's last error.\n"
       "With --list: every engine with its identifier, availability, formats file, names, description,\n"
       "installer page, icon file and (Helix) loading error.",
       runEngines, {"mime", "engine-id", "radiotime"}, {"json", "list"}},
  };
}

}  // namespace belvane::tool
