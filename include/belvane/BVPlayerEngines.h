// The four playback engines, each a process-wide singleton:
//   BVMP3StreamPlayerEngine     the built-in MP3/Shoutcast streamer
//   BVHelixPlayerEngine         RealMedia through a Helix client kit loaded at run time
//   BVWindowsMediaPlayerEngine  Windows Media, played by the general media engine
//   BVQuicktimePlayerEngine     the general media engine (GStreamer)
// Each names its formats file, identifier, icon, player class, install page
// and description, and says whether its back-end is usable here.
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVBasePlayerEngine.h>
#include <belvane/BVError.h>
#include <belvane/HXClientKitABI.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

// The built-in MP3/Shoutcast streamer: always available; never plays local
// files; takes a bare "http" link that carries no other clue.
class BV_EXPORT BVMP3StreamPlayerEngine final : public BVBasePlayerEngine {
 public:
  static constexpr const char* kEngineID = "com.brambleside.shoutcast";
  static constexpr const char* kFormatsFileName = "Formats-Shoutcast";
  static std::shared_ptr<BVMP3StreamPlayerEngine> sharedEngine();

  bool isAvailable() override { return true; }
  std::optional<std::string> engineID() const override { return kEngineID; }
  std::shared_ptr<BVImage> icon() const override;
  std::string formatsFileName() const override { return kFormatsFileName; }
  std::optional<BVURL> installerDownloadURL() const override { return std::nullopt; }
  std::optional<std::string> displayableEngineDescription() override;
  bool canPlayFormat(const BVMediaFormat& format) override;
  std::optional<std::string> playerClass() const override { return "BVMP3StreamPlayer"; }
  std::string className() const override { return "BVMP3StreamPlayerEngine"; }

  BVMP3StreamPlayerEngine() = default;

 protected:
  std::shared_ptr<BVBasePlayer> _makePlayer() override;
};

// RealMedia through the Helix client kit of the application bundle
// "com.RealNetworks.RealPlayer". The kit is loaded on the first availability
// question and stays loaded; recheckAvailablity() lets an unavailable engine
// try again (after the user installed the application).
class BV_EXPORT BVHelixPlayerEngine final : public BVBasePlayerEngine {
 public:
  static constexpr const char* kEngineID = "com.realnetworks.helix";
  static constexpr const char* kFormatsFileName = "Formats-Helix";
  static constexpr const char* kApplicationIdentifier = "com.RealNetworks.RealPlayer";
  static std::shared_ptr<BVHelixPlayerEngine> sharedEngine();

  bool isAvailable() override;
  void recheckAvailablity() override;
  std::optional<std::string> engineID() const override { return kEngineID; }
  std::shared_ptr<BVImage> icon() const override;
  std::string formatsFileName() const override { return kFormatsFileName; }
  std::optional<BVURL> installerDownloadURL() const override;
  std::optional<std::string> displayableEngineDescription() override;
  std::optional<std::string> playerClass() const override { return "BVHelixPlayer"; }
  std::string className() const override { return "BVHelixPlayerEngine"; }

  // The loading error (nothing on success), loading at most once.
  BVErrorRef _loadHXClientKitIfNeeded();
  // Finds the application, loads its kit and checks it; the error or nothing.
  BVErrorRef _loadHXClientKit();
  // Whether the loaded kit's classes offer every operation the player uses.
  bool _checkHXClientKitCompatibility() const;

  // The result of the last load attempt, without loading.
  bool didAttemptLoad() const { return didAttemptLoad_; }
  const BVErrorRef& loadingError() const { return loadingError_; }
  // The loaded kit's class tables; null until the engine is available.
  const HXClientPlayerClass* clientPlayerClass() const { return isLoaded() ? playerClass_ : nullptr; }
  const HXClientViewClass* clientViewClass() const { return isLoaded() ? viewClass_ : nullptr; }

  BVHelixPlayerEngine() = default;

 protected:
  std::shared_ptr<BVBasePlayer> _makePlayer() override;

 private:
  bool isLoaded() const { return didAttemptLoad_ && !loadingError_; }

  bool didAttemptLoad_ = false;
  BVErrorRef loadingError_;
  const HXClientPlayerClass* playerClass_ = nullptr;
  const HXClientViewClass* viewClass_ = nullptr;
};

// Windows Media, played by the general media engine's player; available when
// the installed GStreamer can demux and decode "wmv".
class BV_EXPORT BVWindowsMediaPlayerEngine final : public BVBasePlayerEngine {
 public:
  static constexpr const char* kEngineID = "com.microsoft.windowsmediaplayer";
  static constexpr const char* kFormatsFileName = "Formats-Flip4Mac";
  static std::shared_ptr<BVWindowsMediaPlayerEngine> sharedEngine();

  bool isAvailable() override;
  std::optional<std::string> engineID() const override { return kEngineID; }
  std::shared_ptr<BVImage> icon() const override;
  std::string formatsFileName() const override { return kFormatsFileName; }
  std::optional<BVURL> installerDownloadURL() const override;
  std::optional<std::string> displayableEngineDescription() override;
  std::optional<std::string> playerClass() const override { return "BVQuickTimePlayer"; }
  std::string className() const override { return "BVWindowsMediaPlayerEngine"; }

  BVWindowsMediaPlayerEngine() = default;

 protected:
  std::shared_ptr<BVBasePlayer> _makePlayer() override;
};

// The general media engine, on GStreamer: always available; refuses PDF;
// takes any link whose URL a GStreamer source can open.
class BV_EXPORT BVQuicktimePlayerEngine : public BVBasePlayerEngine {
 public:
  static constexpr const char* kEngineID = "com.apple.quicktime";
  static constexpr const char* kFormatsFileName = "Formats-QuickTime";
  static std::shared_ptr<BVQuicktimePlayerEngine> sharedEngine();

  // File extensions (lower case, sorted) of every type the installed GStreamer
  // can both recognise and demux or decode. Worked out once per process.
  static const std::vector<std::string>& movieFileTypes();
  // Whether a GStreamer source handles the URL's scheme and, for a local
  // file, whether type finding recognises the file.
  static bool canInitWithURL(const BVURL& url);

  bool isAvailable() override { return true; }
  std::optional<std::string> engineID() const override { return kEngineID; }
  std::shared_ptr<BVImage> icon() const override;
  std::string formatsFileName() const override { return kFormatsFileName; }
  std::optional<BVURL> installerDownloadURL() const override { return std::nullopt; }
  std::optional<std::string> displayableEngineDescription() override;
  bool canPlayFormat(const BVMediaFormat& format) override;
  bool canPlayLink(const BVMediaLink& link) override;
  std::optional<std::string> playerClass() const override { return "BVQuickTimePlayer"; }
  std::string className() const override { return "BVQuicktimePlayerEngine"; }

  BVQuicktimePlayerEngine() = default;

 protected:
  std::shared_ptr<BVBasePlayer> _makePlayer() override;
  // Opens a movie on the URL and answers whether that worked.
  virtual bool _canOpenMovieWithURL(const BVURL& url);
};
