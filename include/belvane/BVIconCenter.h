// BVIconCenter: the shared cache through which engines and the host get
// images by name, and BVImage, an image that refers to its file lazily.
//
// A name is looked up first among the framework's own resources
// ("<name>.png"), then in the freedesktop "hicolor" icon theme
// (icons/hicolor/<size>/apps/<name>.png under the XDG data folders). Found
// images are cached for the center's life; missing ones are not, so a later
// lookup looks again.
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVObject.h>
#include <belvane/BVValue.h>

#include <map>
#include <memory>
#include <optional>
#include <string>

// The icon names the framework exports for its host.
BV_EXPORT extern const char* const BVIconShoutcastPlayer;     // "Icon-Shoutcast"
BV_EXPORT extern const char* const BVIconShockwavePlayer;     // "Icon-Shockwave"
BV_EXPORT extern const char* const BVIconWindowsMediaPlayer;  // "Icon-Flip4Mac"
BV_EXPORT extern const char* const BVIconHelixPlayer;         // "Icon-Helix"
BV_EXPORT extern const char* const BVIconQuickTimePlayer;     // "Icon-Quicktime"
BV_EXPORT extern const char* const BVIconiTunes;              // "Icon-iTunes"
BV_EXPORT extern const char* const BVIconSafari;              // "Icon-Safari"

class BV_EXPORT BVImage final : public BVObject {
 public:
  // An image of the file at path; the file is not read until data() is asked.
  static std::shared_ptr<BVImage> imageWithContentsOfFile(std::string path, std::string name = {});
  // An image of bytes already in memory (a movie's cover art); it has no path.
  static std::shared_ptr<BVImage> imageWithData(BVData data, std::string name = {});

  const std::string& path() const { return path_; }
  const std::string& name() const { return name_; }
  // The file's bytes, read on first call and kept; nothing when unreadable.
  const std::optional<BVData>& data() const;

  std::string className() const override { return "NSImage"; }
  std::string description() const override;

  BVImage(std::string path, std::string name);

 private:
  std::string path_;
  std::string name_;
  mutable bool loaded_ = false;
  mutable std::optional<BVData> data_;
};

using BVImageRef = std::shared_ptr<BVImage>;

class BV_EXPORT BVIconCenter final : public BVObject {
 public:
  static std::shared_ptr<BVIconCenter> sharedCenter();

  // The image of that name, or nothing (an empty name gives nothing).
  BVImageRef imageNamed(const std::string& name);

  // The framework resource "<name>.png", or nothing.
  BVImageRef _frameworkImageNamed(const std::string& name) const;
  // The icon theme's image of that name (largest size found), or nothing.
  BVImageRef _globalImageNamed(const std::string& name) const;

  std::string className() const override { return "BVIconCenter"; }

  BVIconCenter() = default;

 private:
  std::optional<std::map<std::string, BVImageRef>> iconsByName_;
};
