// BVIconCenter and BVImage: engine and host icons by name.
#include <belvane/BVIconCenter.h>
#include <belvane/BVResources.h>

#include "engines/xdg_data_dirs.h"

#include <glib.h>

#include <cstdlib>
#include <filesystem>

const char* const BVIconShoutcastPlayer = "Icon-Shoutcast";
const char* const BVIconShockwavePlayer = "Icon-Shockwave";
const char* const BVIconWindowsMediaPlayer = "Icon-Flip4Mac";
const char* const BVIconHelixPlayer = "Icon-Helix";
const char* const BVIconQuickTimePlayer = "Icon-Quicktime";
const char* const BVIconiTunes = "Icon-iTunes";
const char* const BVIconSafari = "Icon-Safari";

BVImage::BVImage(std::string path, std::string name) : path_(std::move(path)), name_(std::move(name)) {}

std::shared_ptr<BVImage> BVImage::imageWithContentsOfFile(std::string path, std::string name) {
  return std::make_shared<BVImage>(std::move(path), std::move(name));
}

std::shared_ptr<BVImage> BVImage::imageWithData(BVData data, std::string name) {
  auto image = std::make_shared<BVImage>(std::string(), std::move(name));
  image->loaded_ = true;
  image->data_ = std::move(data);
  return image;
}

const std::optional<BVData>& BVImage::data() const {
  if (!loaded_) {
    loaded_ = true;
    gchar* bytes = nullptr;
    gsize length = 0;
    if (g_file_get_contents(path_.c_str(), &bytes, &length, nullptr)) {
      data_ = BVData(reinterpret_cast<uint8_t*>(bytes), reinterpret_cast<uint8_t*>(bytes) + length);
      g_free(bytes);
    }
  }
  return data_;
}

std::string BVImage::description() const { return "<NSImage: '" + name_ + "', " + path_ + ">"; }

std::shared_ptr<BVIconCenter> BVIconCenter::sharedCenter() {
  static auto center = std::make_shared<BVIconCenter>();
  return center;
}

BVImageRef BVIconCenter::imageNamed(const std::string& name) {
  if (name.empty()) return nullptr;
  if (!iconsByName_) iconsByName_.emplace();
  if (auto it = iconsByName_->find(name); it != iconsByName_->end()) return it->second;
  BVImageRef image = _frameworkImageNamed(name);
  if (!image) image = _globalImageNamed(name);
  if (!image) return nullptr;  // not cached: a later call looks again
  (*iconsByName_)[name] = image;
  return image;
}

BVImageRef BVIconCenter::_frameworkImageNamed(const std::string& name) const {
  auto path = BVResources::frameworkPathForResource(name, "png");
  if (!path) return nullptr;
  return BVImage::imageWithContentsOfFile(*path, name);
}

namespace {

// "48x48" -> 48; "scalable" and other folders -> 0.
int iconSizeOfFolder(const std::string& folder) {
  char* end = nullptr;
  long n = std::strtol(folder.c_str(), &end, 10);
  return end != folder.c_str() && n > 0 ? int(n) : 0;
}

}  // namespace

BVImageRef BVIconCenter::_globalImageNamed(const std::string& name) const {
  namespace fs = std::filesystem;
  if (name.find('/') != std::string::npos) return nullptr;
  for (const std::string& dir : belvane::detail::xdgDataDirectories()) {
    fs::path theme = fs::path(dir) / "icons" / "hicolor";
    std::error_code ec;
    if (!fs::is_directory(theme, ec)) continue;
    fs::path best;
    int bestSize = -1;
    for (const auto& entry : fs::directory_iterator(theme, ec)) {
      fs::path candidate = entry.path() / "apps" / (name + ".png");
      std::error_code fileError;
      if (!fs::is_regular_file(candidate, fileError)) continue;
      int size = iconSizeOfFolder(entry.path().filename().string());
      if (size > bestSize) {
        bestSize = size;
        best = candidate;
      }
    }
    if (bestSize >= 0) return BVImage::imageWithContentsOfFile(best.string(), name);
  }
  return nullptr;
}
