// BVMediaFormatsFile: an engine's formats file, a property list naming the
// MIME types, URL schemes, file extensions and RadioTime media types the
// engine plays, and the matching of a media format against it.
//
// Layout (a dictionary at the top):
//   "WebPluginDescriptions"        { "formatName": ..., "brandingName": ... }
//   "WebPluginMIMETypes"           { mime-type: { "WebPluginExtensions": [ext, ...] }, ... }
//   "WebPluginURLSchemes"          { scheme: anything, ... }
//   "WebPluginRadioTimeMediaTypes" [ name, ... ]
// Keys are compared exactly, so the file holds them in lower case.
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVObject.h>
#include <belvane/BVValue.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

class BVMediaFormat;

class BV_EXPORT BVMediaFormatsFile final : public BVObject {
 public:
  // "<name>.plist" from the framework's resources, else from the host's
  // folder; nothing when neither has it or it does not read.
  static std::shared_ptr<BVMediaFormatsFile> formatsFileNamed(const std::string& name);
  // The file at path; nothing when it cannot be read or is no dictionary.
  static std::shared_ptr<BVMediaFormatsFile> create(const std::string& path);
  // From an already parsed property list; nothing when it is no dictionary.
  static std::shared_ptr<BVMediaFormatsFile> createWithPropertyList(const BVValue& plist);

  std::optional<std::string> displayableFormatName() const;
  std::optional<std::string> displayableBrandingName() const;

  std::vector<std::string> allMIMETypes() const;
  std::vector<std::string> allURLSchemes() const;
  // Every MIME entry's extensions, in MIME-type order (duplicates kept).
  const std::vector<std::string>& allFileExtensions() const { return allFileExtensions_; }
  const std::vector<std::string>& allRadioTimeMediaTypes() const { return radioTimeMediaTypes_; }
  // The extensions listed for that exact MIME type, or nothing when it has no entry.
  std::optional<std::vector<std::string>> fileExtensionsForMIMEType(const std::string& mimeType) const;

  // Tries the format's clues in order: RadioTime media type, file extension,
  // URL scheme and, last because reading it may ask the server, MIME type.
  bool matchesForFormat(const BVMediaFormat& format) const;

  std::string className() const override { return "BVMediaFormatsFile"; }

  BVMediaFormatsFile() = default;

 private:
  BVDictionary descriptions_;
  BVDictionary mimeTypeEntries_;
  BVDictionary urlSchemeEntries_;
  std::vector<std::string> allFileExtensions_;
  std::vector<std::string> radioTimeMediaTypes_;
};

using BVMediaFormatsFileRef = std::shared_ptr<BVMediaFormatsFile>;
