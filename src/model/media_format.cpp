// BVMediaFormat and BVMediaMutableFormat: construction, the normalising
// setters, the lazy MIME type, copying and the record's two serial forms.
#include <belvane/BVArchive.h>
#include <belvane/BVMediaFormat.h>
#include <belvane/BVURLAdditions.h>

#include "foundation/text_encoding.h"
#include "model/record_values.h"

using belvane::detail::optionalString;
using belvane::detail::valueOf;

namespace {

// How long a read of the MIME type may wait for the server.
constexpr double kMIMETypeTimeout = 2.0;

// Lower-cased, with the empty string stored as no value.
std::optional<std::string> lowerCasedOrNothing(const std::optional<std::string>& string) {
  if (!string) return std::nullopt;
  std::string lower = belvane::detail::utf8Lower(*string);
  if (lower.empty()) return std::nullopt;
  return lower;
}

std::string orNull(const std::optional<std::string>& string) { return string ? *string : "(null)"; }

}  // namespace

// ---- Construction ---------------------------------------------------------

template <class T>
std::shared_ptr<T> BVMediaFormat::inferring(const BVURL& url) {
  auto format = makeFormat<T>();
  format->_setSourceURL(url);
  std::string scheme = url.scheme();
  if (!scheme.empty()) format->_setURLScheme(scheme);
  std::string extension = url.pathExtension();
  if (!extension.empty()) format->_setFileExtension(extension);
  return format;
}

std::shared_ptr<BVMediaFormat> BVMediaFormat::emptyFormat() { return makeFormat<BVMediaFormat>(); }

std::shared_ptr<BVMediaFormat> BVMediaFormat::formatByInferringFromURL(const BVURL& url) {
  return inferring<BVMediaFormat>(url);
}

std::shared_ptr<BVMediaFormat> BVMediaFormat::formatByInferringFromURL(const BVURL& url,
                                                                       const std::optional<std::string>& mimeType) {
  auto format = inferring<BVMediaFormat>(url);
  format->_setMimeType(mimeType);
  return format;
}

std::shared_ptr<BVMediaFormat> BVMediaFormat::formatWithRadioTimeMediaType(const std::optional<std::string>& type) {
  auto format = makeFormat<BVMediaFormat>();
  format->_setRadioTimeMediaType(type);
  return format;
}

std::shared_ptr<BVMediaMutableFormat> BVMediaMutableFormat::emptyFormat() { return makeFormat<BVMediaMutableFormat>(); }

std::shared_ptr<BVMediaMutableFormat> BVMediaMutableFormat::formatByInferringFromURL(const BVURL& url) {
  return inferring<BVMediaMutableFormat>(url);
}

std::shared_ptr<BVMediaMutableFormat> BVMediaMutableFormat::formatByInferringFromURL(
    const BVURL& url, const std::optional<std::string>& mimeType) {
  auto format = inferring<BVMediaMutableFormat>(url);
  format->_setMimeType(mimeType);
  return format;
}

std::shared_ptr<BVMediaMutableFormat> BVMediaMutableFormat::formatWithRadioTimeMediaType(
    const std::optional<std::string>& type) {
  auto format = makeFormat<BVMediaMutableFormat>();
  format->_setRadioTimeMediaType(type);
  return format;
}

// ---- Fields ---------------------------------------------------------------

void BVMediaFormat::_setURLScheme(const std::optional<std::string>& scheme) {
  auto value = lowerCasedOrNothing(scheme);
  std::lock_guard lock(mutex_);
  urlScheme_ = std::move(value);
}

void BVMediaFormat::_setFileExtension(const std::optional<std::string>& extension) {
  auto value = lowerCasedOrNothing(extension);
  std::lock_guard lock(mutex_);
  fileExtension_ = std::move(value);
}

void BVMediaFormat::_setMimeType(const std::optional<std::string>& mimeType) {
  auto value = lowerCasedOrNothing(mimeType);
  std::lock_guard lock(mutex_);
  mimeType_ = std::move(value);
}

void BVMediaFormat::_setEngineID(const std::optional<std::string>& engineID) {
  std::lock_guard lock(mutex_);
  engineID_ = engineID && !engineID->empty() ? engineID : std::nullopt;
}

void BVMediaFormat::_setRadioTimeMediaType(const std::optional<std::string>& type) {
  std::lock_guard lock(mutex_);
  radioTimeMediaType_ = type;
}

void BVMediaFormat::_setSourceURL(const std::optional<BVURL>& url) {
  std::lock_guard lock(mutex_);
  sourceURL_ = url;
}

std::optional<std::string> BVMediaFormat::urlScheme() const {
  std::lock_guard lock(mutex_);
  return urlScheme_;
}

std::optional<std::string> BVMediaFormat::fileExtension() const {
  std::lock_guard lock(mutex_);
  return fileExtension_;
}

std::optional<std::string> BVMediaFormat::engineID() const {
  std::lock_guard lock(mutex_);
  return engineID_;
}

std::optional<std::string> BVMediaFormat::radioTimeMediaType() const {
  std::lock_guard lock(mutex_);
  return radioTimeMediaType_;
}

std::optional<BVURL> BVMediaFormat::sourceURL() const {
  std::lock_guard lock(mutex_);
  return sourceURL_;
}

std::optional<std::string> BVMediaFormat::mimeType() const {
  std::optional<BVURL> url;
  {
    std::lock_guard lock(mutex_);
    if (mimeType_) return mimeType_;
    if (!sourceURL_) return std::nullopt;
    url = sourceURL_;
  }
  // Ask without holding the lock: the request may take the whole time-out,
  // and other readers of the other fields must not wait for it. The answer
  // is kept as the server gave it; no answer keeps the next read asking.
  std::optional<std::string> answer = bvRequestMIMETypeWithTimeout(*url, kMIMETypeTimeout);
  if (!answer || answer->empty()) return std::nullopt;
  std::lock_guard lock(mutex_);
  if (!mimeType_) mimeType_ = std::move(answer);
  return mimeType_;
}

void BVMediaFormat::noteServedMimeType(const BVURL& url, const std::string& mimeType) const {
  if (mimeType.empty()) return;
  std::lock_guard lock(mutex_);
  if (mimeType_ || !sourceURL_ || sourceURL_->absoluteString() != url.absoluteString()) return;
  mimeType_ = mimeType;
}

// ---- Copying ----------------------------------------------------------------

void BVMediaFormat::_basicCopyTo(BVMediaFormat& target) const {
  std::optional<std::string> mime = mimeType();
  std::scoped_lock lock(mutex_, target.mutex_);
  target.urlScheme_ = urlScheme_;
  target.fileExtension_ = fileExtension_;
  target.engineID_ = engineID_;
  target.mimeType_ = std::move(mime);
  target.radioTimeMediaType_ = radioTimeMediaType_;
}

std::shared_ptr<BVMediaFormat> BVMediaFormat::copy() const {
  if (!dynamic_cast<const BVMediaMutableFormat*>(this)) {
    // Immutable formats are shared; the record has no public mutators.
    return std::const_pointer_cast<BVMediaFormat>(sharedAs<BVMediaFormat>());
  }
  auto format = makeFormat<BVMediaFormat>();
  _basicCopyTo(*format);
  return format;
}

std::shared_ptr<BVMediaMutableFormat> BVMediaFormat::mutableCopy() const {
  auto format = makeFormat<BVMediaMutableFormat>();
  _basicCopyTo(*format);
  return format;
}

// ---- Descriptions and key-value access --------------------------------------

std::string BVMediaFormat::description() const {
  std::lock_guard lock(mutex_);
  return "<" + className() + ": " + orNull(mimeType_) + ", '" + orNull(engineID_) + "', " + orNull(fileExtension_) +
         ", " + orNull(urlScheme_) + ">";
}

std::vector<std::string> BVMediaFormat::persistentKeys() const {
  auto keys = BVBaseObject::persistentKeys();
  keys.insert(keys.end(), {"urlScheme", "fileExtension", "engineID", "mimeType", "radioTimeMediaType"});
  return keys;
}

BVValue BVMediaFormat::valueForKey(std::string_view key) const {
  if (key == "urlScheme") return valueOf(urlScheme());
  if (key == "fileExtension") return valueOf(fileExtension());
  if (key == "engineID") return valueOf(engineID());
  if (key == "mimeType") return valueOf(mimeType());
  if (key == "radioTimeMediaType") return valueOf(radioTimeMediaType());
  return BVBaseObject::valueForKey(key);
}

void BVMediaFormat::setValueForKey(std::string_view key, const BVValue& value) {
  if (key == "urlScheme") {
    // No setter has this key's spelling, so the value goes into the field as
    // it stands: not lower-cased. Hosts' saved formats rely on that.
    std::lock_guard lock(mutex_);
    urlScheme_ = optionalString(value);
  } else if (key == "fileExtension") {
    _setFileExtension(optionalString(value));
  } else if (key == "engineID") {
    _setEngineID(optionalString(value));
  } else if (key == "mimeType") {
    _setMimeType(optionalString(value));
  } else if (key == "radioTimeMediaType") {
    _setRadioTimeMediaType(optionalString(value));
  } else {
    BVBaseObject::setValueForKey(key, value);
  }
}

// ---- Property lists and archives ------------------------------------------------

template <class T>
std::shared_ptr<T> BVMediaFormat::fromPlist(const BVDictionary& plist) {
  auto format = makeFormat<T>();
  format->initWithPlistRepresentation(plist);
  return format;
}

std::shared_ptr<BVMediaFormat> BVMediaFormat::createWithPlistRepresentation(const BVDictionary& plist) {
  return fromPlist<BVMediaFormat>(plist);
}

std::shared_ptr<BVMediaMutableFormat> BVMediaMutableFormat::createWithPlistRepresentation(const BVDictionary& plist) {
  return fromPlist<BVMediaMutableFormat>(plist);
}

void BVMediaFormat::encodeWithCoder(belvane::BVArchiveEncoder& coder) const {
  std::lock_guard lock(mutex_);
  coder.encodeObject(valueOf(urlScheme_));
  coder.encodeObject(valueOf(fileExtension_));
  coder.encodeObject(valueOf(engineID_));
  coder.encodeObject(valueOf(mimeType_));  // the stored value: never asks the server
  coder.encodeObject(valueOf(radioTimeMediaType_));
}

template <class T>
std::shared_ptr<T> BVMediaFormat::fromCoder(belvane::BVArchiveDecoder& coder) {
  using belvane::detail::decodeString;
  auto format = makeFormat<T>();
  // Decoded values are stored as archived, without normalising.
  std::lock_guard lock(format->mutex_);
  if (!decodeString(coder, format->urlScheme_) || !decodeString(coder, format->fileExtension_) ||
      !decodeString(coder, format->engineID_) || !decodeString(coder, format->mimeType_) ||
      !decodeString(coder, format->radioTimeMediaType_))
    return nullptr;
  return format;
}

std::shared_ptr<BVMediaFormat> BVMediaFormat::createWithCoder(belvane::BVArchiveDecoder& coder) {
  return fromCoder<BVMediaFormat>(coder);
}

std::shared_ptr<BVMediaMutableFormat> BVMediaMutableFormat::createWithCoder(belvane::BVArchiveDecoder& coder) {
  return fromCoder<BVMediaMutableFormat>(coder);
}
