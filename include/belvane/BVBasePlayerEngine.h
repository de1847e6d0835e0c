// BVBasePlayerEngine: the factory and capability record of one playback
// back-end. It loads the engine's formats file, matches media formats and
// links against it, and creates the engine's player. Concrete engines
// (BVPlayerEngines.h) name their formats file, identifier, icon, player and
// availability.
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVMediaFormatsFile.h>
#include <belvane/BVObject.h>
#include <belvane/BVURL.h>

#include <memory>
#include <optional>
#include <string>

class BVBasePlayer;
class BVImage;
class BVMediaFormat;
class BVMediaLink;

class BV_EXPORT BVBasePlayerEngine : public BVObject {
 public:
  // Whether the back-end is usable on this machine (default: no).
  virtual bool isAvailable();
  // Forgets a cached "unavailable" verdict (default: nothing to forget).
  virtual void recheckAvailablity();

  // The engine's identifier ("com.apple.quicktime"); nothing for the base.
  virtual std::optional<std::string> engineID() const;

  // The image "Icon-Generic" from the icon center.
  static std::shared_ptr<BVImage> genericIcon();
  virtual std::shared_ptr<BVImage> icon() const;

  // The formats file's resource name (without ".plist").
  virtual std::string formatsFileName() const = 0;
  // Loaded on first call; a failed load is tried again at the next call.
  BVMediaFormatsFileRef formatsFile();
  std::optional<std::string> displayableFormatName();
  std::optional<std::string> displayableBrandingName();
  // The page from which the missing back-end can be installed, if any.
  virtual std::optional<BVURL> installerDownloadURL() const = 0;
  // Text the host shows for the engine (default: the format name).
  virtual std::optional<std::string> displayableEngineDescription();

  // An explicit engine identifier equal to ours (ignoring case) wins;
  // otherwise the formats file decides (no file: no).
  virtual bool canPlayFormat(const BVMediaFormat& format);
  virtual bool canPlayLink(const BVMediaLink& link);

  // The name of the player class this engine creates; nothing for the base.
  virtual std::optional<std::string> playerClass() const;
  // A new player when the engine is available, else nothing. The caller
  // sets its owner.
  std::shared_ptr<BVBasePlayer> createPlayer();

  std::string className() const override { return "BVBasePlayerEngine"; }

 protected:
  BVBasePlayerEngine() = default;
  // Makes a new instance of playerClass(). Engines return nothing until
  // their player classes are part of the library.
  virtual std::shared_ptr<BVBasePlayer> _makePlayer();

 private:
  BVMediaFormatsFileRef formatsFile_;
};

using BVPlayerEngineRef = std::shared_ptr<BVBasePlayerEngine>;
