// BVPlayerEngineCenter: the process-wide registry of playback engines, in
// their fixed order of preference (MP3 stream, Helix, Windows Media,
// QuickTime), answering which engines can play a given format.
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVBasePlayerEngine.h>
#include <belvane/BVObject.h>

#include <memory>
#include <string_view>
#include <vector>

class BVMediaFormat;

class BV_EXPORT BVPlayerEngineCenter final : public BVObject {
 public:
  // The one center, made with the four shared engines on first call.
  static std::shared_ptr<BVPlayerEngineCenter> sharedCenter();

  const std::vector<BVPlayerEngineRef>& allEngines() const { return engines_; }
  // The first engine whose engineID equals engineID exactly (case-sensitive).
  BVPlayerEngineRef engineWithEngineID(std::string_view engineID) const;
  // Every engine, in order, whose canPlayFormat() is true; availability is
  // not looked at here.
  std::vector<BVPlayerEngineRef> preferedEnginesForFormat(const BVMediaFormat& format) const;
  // The first of those, or nothing.
  BVPlayerEngineRef preferedEngineForFormat(const BVMediaFormat& format) const;

  std::string className() const override { return "BVPlayerEngineCenter"; }

  // A center over the given engines, in that order (the shared center uses
  // the four built-in ones).
  explicit BVPlayerEngineCenter(std::vector<BVPlayerEngineRef> engines);

 private:
  std::vector<BVPlayerEngineRef> engines_;
};
