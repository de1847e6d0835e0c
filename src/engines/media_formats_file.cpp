// BVMediaFormatsFile: reading an engine's formats file and matching formats.
#include <belvane/BVMediaFormat.h>
#include <belvane/BVMediaFormatsFile.h>
#include <belvane/BVPropertyList.h>
#include <belvane/BVResources.h>

#include <algorithm>

namespace {

const char* const kDescriptionsKey = "WebPluginDescriptions";
const char* const kMIMETypesKey = "WebPluginMIMETypes";
const char* const kURLSchemesKey = "WebPluginURLSchemes";
const char* const kRadioTimeMediaTypesKey = "WebPluginRadioTimeMediaTypes";
const char* const kExtensionsKey = "WebPluginExtensions";

BVDictionary dictionaryOrEmpty(const BVValue& value) {
  const BVDictionary* d = value.dictionary();
  return d ? *d : BVDictionary{};
}

std::vector<std::string> stringsOf(const BVValue& value) {
  std::vector<std::string> out;
  if (const BVArray* a = value.array()) {
    for (const BVValue& item : *a) {
      if (const std::string* s = item.string()) out.push_back(*s);
    }
  }
  return out;
}

std::vector<std::string> keysOf(const BVDictionary& d) {
  std::vector<std::string> keys;
  for (const auto& [key, value] : d) keys.push_back(key);
  return keys;
}

bool contains(const std::vector<std::string>& list, const std::string& item) {
  return std::find(list.begin(), list.end(), item) != list.end();
}

}  // namespace

std::shared_ptr<BVMediaFormatsFile> BVMediaFormatsFile::formatsFileNamed(const std::string& name) {
  auto path = BVResources::frameworkPathForResource(name, "plist");
  if (!path) path = BVResources::mainBundlePathForResource(name, "plist");
  if (!path) return nullptr;
  return create(*path);
}

std::shared_ptr<BVMediaFormatsFile> BVMediaFormatsFile::create(const std::string& path) {
  auto plist = BVPropertyList::readFile(path);
  if (!plist) return nullptr;
  return createWithPropertyList(*plist);
}

std::shared_ptr<BVMediaFormatsFile> BVMediaFormatsFile::createWithPropertyList(const BVValue& plist) {
  if (!plist.isDictionary()) return nullptr;
  auto file = std::make_shared<BVMediaFormatsFile>();
  file->descriptions_ = dictionaryOrEmpty(plist[kDescriptionsKey]);
  file->mimeTypeEntries_ = dictionaryOrEmpty(plist[kMIMETypesKey]);
  file->urlSchemeEntries_ = dictionaryOrEmpty(plist[kURLSchemesKey]);
  for (const auto& [mimeType, entry] : file->mimeTypeEntries_) {
    for (std::string& extension : stringsOf(entry[kExtensionsKey])) file->allFileExtensions_.push_back(std::move(extension));
  }
  file->radioTimeMediaTypes_ = stringsOf(plist[kRadioTimeMediaTypesKey]);
  return file;
}

std::optional<std::string> BVMediaFormatsFile::displayableFormatName() const {
  if (const std::string* s = BVDictionaryString(descriptions_, "formatName")) return *s;
  return std::nullopt;
}

std::optional<std::string> BVMediaFormatsFile::displayableBrandingName() const {
  if (const std::string* s = BVDictionaryString(descriptions_, "brandingName")) return *s;
  return std::nullopt;
}

std::vector<std::string> BVMediaFormatsFile::allMIMETypes() const { return keysOf(mimeTypeEntries_); }

std::vector<std::string> BVMediaFormatsFile::allURLSchemes() const { return keysOf(urlSchemeEntries_); }

std::optional<std::vector<std::string>> BVMediaFormatsFile::fileExtensionsForMIMEType(
    const std::string& mimeType) const {
  auto it = mimeTypeEntries_.find(mimeType);
  if (it == mimeTypeEntries_.end()) return std::nullopt;
  const BVValue& extensions = it->second[kExtensionsKey];
  if (!extensions.isArray()) return std::nullopt;
  return stringsOf(extensions);
}

bool BVMediaFormatsFile::matchesForFormat(const BVMediaFormat& format) const {
  if (auto type = format.radioTimeMediaType(); type && contains(radioTimeMediaTypes_, *type)) return true;
  if (auto extension = format.fileExtension(); extension && contains(allFileExtensions_, *extension)) return true;
  if (auto scheme = format.urlScheme(); scheme && urlSchemeEntries_.count(*scheme)) return true;
  // Last: reading the MIME type may ask the server.
  if (auto mimeType = format.mimeType(); mimeType && mimeTypeEntries_.count(*mimeType)) return true;
  return false;
}
