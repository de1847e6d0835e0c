// BVMediaFormat: the clues to what kind of stream a media link points at
// (URL scheme, file extension, engine identifier, MIME type, RadioTime media
// type). Engines match these clues against their formats files.
//
// A format is immutable to its users and shared by copy(); BVMediaMutableFormat
// adds setters. When no MIME type was given but the format was inferred from a
// URL, mimeType() asks the server the first time somebody reads it (blocking
// for up to 2 seconds) and keeps the answer. All state is guarded by a lock,
// so a shared format may be read from any thread.
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVBaseObject.h>
#include <belvane/BVURL.h>

#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace belvane {
class BVArchiveDecoder;
}

class BVMediaMutableFormat;

class BV_EXPORT BVMediaFormat : public BVBaseObject {
 public:
  // A format with no clues.
  static std::shared_ptr<BVMediaFormat> emptyFormat();
  // The URL's scheme and path extension, lower-cased; the URL is kept only to
  // ask for the MIME type later. No network access here.
  static std::shared_ptr<BVMediaFormat> formatByInferringFromURL(const BVURL& url);
  // As above, then the MIME type through the normalising setter (an empty
  // string leaves it unset, so the lazy query stays possible).
  static std::shared_ptr<BVMediaFormat> formatByInferringFromURL(const BVURL& url, const std::optional<std::string>& mimeType);
  // An empty format with the given RadioTime media type.
  static std::shared_ptr<BVMediaFormat> formatWithRadioTimeMediaType(const std::optional<std::string>& type);
  // A format read from its property-list dictionary.
  static std::shared_ptr<BVMediaFormat> createWithPlistRepresentation(const BVDictionary& plist);
  // A format read from its sequential archive items; nullptr when the items
  // are not what encodeWithCoder writes.
  static std::shared_ptr<BVMediaFormat> createWithCoder(belvane::BVArchiveDecoder& coder);

  std::optional<std::string> urlScheme() const;
  std::optional<std::string> fileExtension() const;
  std::optional<std::string> engineID() const;
  std::optional<std::string> radioTimeMediaType() const;
  // The stored MIME type; when there is none and the format has a source URL,
  // the server's answer (asked with a 2 s time-out, kept once there is one).
  std::optional<std::string> mimeType() const;
  // Linux addition: what the server of the format's source URL served when
  // the playback fetched url (the type its reply named). When url is that
  // source URL and no type is known yet, it is kept as the answer the query
  // above would have got, so that nobody asks the server again.
  void noteServedMimeType(const BVURL& url, const std::string& mimeType) const;
  // The URL the format was inferred from (not persistent, copied or archived).
  std::optional<BVURL> sourceURL() const;

  // An immutable format: the receiver itself when it is immutable, otherwise
  // a new format with the same clues (no source URL).
  std::shared_ptr<BVMediaFormat> copy() const;
  // Always a new mutable format with the same clues (no source URL).
  std::shared_ptr<BVMediaMutableFormat> mutableCopy() const;

  // BVObject
  std::string className() const override { return "BVMediaFormat"; }
  // "<Class: mime, 'engineID', extension, scheme>" with the stored MIME type.
  std::string description() const override;
  bool supportsCoding() const override { return true; }
  // Five items: URL scheme, file extension, engine ID, stored MIME type,
  // RadioTime media type.
  void encodeWithCoder(belvane::BVArchiveEncoder& coder) const override;

  // BVBaseObject: "urlScheme", "fileExtension", "engineID", "mimeType",
  // "radioTimeMediaType". Setting "urlScheme" stores the string as it stands;
  // the others go through the normalising setters. Non-string values leave
  // the property unset.
  std::vector<std::string> persistentKeys() const override;
  BVValue valueForKey(std::string_view key) const override;
  void setValueForKey(std::string_view key, const BVValue& value) override;

 protected:
  BVMediaFormat() = default;
  template <class T>
  static std::shared_ptr<T> makeFormat() {
    return std::shared_ptr<T>(new T());
  }
  template <class T>
  static std::shared_ptr<T> inferring(const BVURL& url);
  template <class T>
  static std::shared_ptr<T> fromPlist(const BVDictionary& plist);
  template <class T>
  static std::shared_ptr<T> fromCoder(belvane::BVArchiveDecoder& coder);

  // Normalising setters. Scheme, extension and MIME type are lower-cased;
  // these three and the engine ID store no value for an empty string. The
  // RadioTime media type is kept exactly as given.
  void _setURLScheme(const std::optional<std::string>& scheme);
  void _setFileExtension(const std::optional<std::string>& extension);
  void _setMimeType(const std::optional<std::string>& mimeType);
  void _setEngineID(const std::optional<std::string>& engineID);
  void _setRadioTimeMediaType(const std::optional<std::string>& type);
  void _setSourceURL(const std::optional<BVURL>& url);
  // Fills target with this format's clues, without normalising; reads the
  // MIME type through mimeType(), so the lazy query may run.
  void _basicCopyTo(BVMediaFormat& target) const;

 private:
  mutable std::mutex mutex_;
  std::optional<std::string> urlScheme_;
  std::optional<std::string> fileExtension_;
  std::optional<std::string> engineID_;
  mutable std::optional<std::string> mimeType_;
  std::optional<BVURL> sourceURL_;
  std::optional<std::string> radioTimeMediaType_;
};

class BV_EXPORT BVMediaMutableFormat : public BVMediaFormat {
 public:
  // The same constructors as BVMediaFormat, making mutable formats.
  static std::shared_ptr<BVMediaMutableFormat> emptyFormat();
  static std::shared_ptr<BVMediaMutableFormat> formatByInferringFromURL(const BVURL& url);
  static std::shared_ptr<BVMediaMutableFormat> formatByInferringFromURL(const BVURL& url,
                                                                        const std::optional<std::string>& mimeType);
  static std::shared_ptr<BVMediaMutableFormat> formatWithRadioTimeMediaType(const std::optional<std::string>& type);
  static std::shared_ptr<BVMediaMutableFormat> createWithPlistRepresentation(const BVDictionary& plist);
  static std::shared_ptr<BVMediaMutableFormat> createWithCoder(belvane::BVArchiveDecoder& coder);

  // Each forwards to the matching normalising setter.
  void setURLScheme(const std::optional<std::string>& scheme) { _setURLScheme(scheme); }
  void setFileExtension(const std::optional<std::string>& extension) { _setFileExtension(extension); }
  void setEngineID(const std::optional<std::string>& engineID) { _setEngineID(engineID); }
  void setMimeType(const std::optional<std::string>& mimeType) { _setMimeType(mimeType); }
  void setRadioTimeMediaType(const std::optional<std::string>& type) { _setRadioTimeMediaType(type); }

  std::string className() const override { return "BVMediaMutableFormat"; }

 protected:
  BVMediaMutableFormat() = default;
  friend class BVMediaFormat;
};

using BVMediaFormatRef = std::shared_ptr<BVMediaFormat>;
