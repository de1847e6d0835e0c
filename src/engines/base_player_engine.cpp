// BVBasePlayerEngine: behaviour common to every engine.
#include <belvane/BVBasePlayerEngine.h>
#include <belvane/BVIconCenter.h>
#include <belvane/BVMediaFormat.h>
#include <belvane/BVMediaLink.h>

#include "foundation/text_encoding.h"

bool BVBasePlayerEngine::isAvailable() { return false; }

void BVBasePlayerEngine::recheckAvailablity() {}

std::optional<std::string> BVBasePlayerEngine::engineID() const { return std::nullopt; }

std::shared_ptr<BVImage> BVBasePlayerEngine::genericIcon() {
  return BVIconCenter::sharedCenter()->imageNamed("Icon-Generic");
}

std::shared_ptr<BVImage> BVBasePlayerEngine::icon() const { return nullptr; }

BVMediaFormatsFileRef BVBasePlayerEngine::formatsFile() {
  if (!formatsFile_) formatsFile_ = BVMediaFormatsFile::formatsFileNamed(formatsFileName());
  return formatsFile_;
}

std::optional<std::string> BVBasePlayerEngine::displayableFormatName() {
  auto file = formatsFile();
  return file ? file->displayableFormatName() : std::nullopt;
}

std::optional<std::string> BVBasePlayerEngine::displayableBrandingName() {
  auto file = formatsFile();
  return file ? file->displayableBrandingName() : std::nullopt;
}

std::optional<std::string> BVBasePlayerEngine::displayableEngineDescription() { return displayableFormatName(); }

bool BVBasePlayerEngine::canPlayFormat(const BVMediaFormat& format) {
  // An explicit engine choice wins over everything else.
  auto wanted = format.engineID();
  auto mine = engineID();
  if (wanted && mine && belvane::detail::equalsIgnoringASCIICase(*wanted, *mine)) return true;
  auto file = formatsFile();
  return file && file->matchesForFormat(format);
}

bool BVBasePlayerEngine::canPlayLink(const BVMediaLink& link) {
  auto format = link.format();
  return format ? canPlayFormat(*format) : canPlayFormat(*BVMediaFormat::emptyFormat());
}

std::optional<std::string> BVBasePlayerEngine::playerClass() const { return std::nullopt; }

std::shared_ptr<BVBasePlayer> BVBasePlayerEngine::createPlayer() {
  if (!isAvailable()) return nullptr;
  return _makePlayer();
}

std::shared_ptr<BVBasePlayer> BVBasePlayerEngine::_makePlayer() { return nullptr; }
