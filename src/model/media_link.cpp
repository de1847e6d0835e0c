// BVMediaLink and BVMediaMutableLink: construction, copying and the record's
// property-list and archive forms. The engine choice lives with the engines
// in media_link_engine_choice.cpp.
#include <belvane/BVArchive.h>
#include <belvane/BVMediaLink.h>

#include "foundation/text_encoding.h"

#include <glib.h>
#include "model/record_values.h"

using belvane::detail::optionalString;
using belvane::detail::valueOf;

namespace {

std::string orNull(const std::optional<std::string>& string) { return string ? *string : "(null)"; }

// The URL a link without one answers with.
BVURL placeholderURL() {
  static const BVURL url = *BVURL::URLWithString("http://");
  return url;
}

}  // namespace

// ---- Construction ---------------------------------------------------------

template <class T>
std::shared_ptr<T> BVMediaLink::make(const std::optional<BVURL>& url, const std::optional<std::string>& title,
                                     const std::shared_ptr<BVMediaFormat>& format,
                                     const std::shared_ptr<BVMediaLinkSource>& source) {
  std::shared_ptr<T> link(new T());
  link->url_ = url;
  if (title) {
    std::string trimmed = belvane::detail::trimWhitespaceAndNewlines(*title);
    if (!trimmed.empty()) link->title_ = std::move(trimmed);
  }
  link->format_ = (format ? format : BVMediaFormat::emptyFormat())->copy();
  link->source_ = (source ? source : BVMediaLinkSource::emptySource())->copy();
  return link;
}

std::shared_ptr<BVMediaLink> BVMediaLink::linkWithURL(const BVURL& url) {
  return make<BVMediaLink>(url, std::nullopt, BVMediaFormat::formatByInferringFromURL(url), nullptr);
}

std::shared_ptr<BVMediaLink> BVMediaLink::create(const std::optional<BVURL>& url,
                                                 const std::optional<std::string>& title,
                                                 const std::shared_ptr<BVMediaFormat>& format,
                                                 const std::shared_ptr<BVMediaLinkSource>& source) {
  return make<BVMediaLink>(url, title, format, source);
}

std::shared_ptr<BVMediaMutableLink> BVMediaMutableLink::linkWithURL(const BVURL& url) {
  return make<BVMediaMutableLink>(url, std::nullopt, BVMediaFormat::formatByInferringFromURL(url), nullptr);
}

std::shared_ptr<BVMediaMutableLink> BVMediaMutableLink::create(const std::optional<BVURL>& url,
                                                               const std::optional<std::string>& title,
                                                               const std::shared_ptr<BVMediaFormat>& format,
                                                               const std::shared_ptr<BVMediaLinkSource>& source) {
  return make<BVMediaMutableLink>(url, title, format, source);
}

// ---- Queries ------------------------------------------------------------------

BVURL BVMediaLink::url() const { return url_ ? *url_ : placeholderURL(); }

bool BVMediaLink::isRadioTimeMediaLink() const { return format_ && format_->radioTimeMediaType().has_value(); }

bool BVMediaLink::isEqualToLink(const std::shared_ptr<const BVMediaLink>& link) const {
  if (!link) return false;
  if (link.get() == this) return true;
  return url() == link->url();
}

bool BVMediaLink::isUsableTitleEncoding(const std::string& name) {
  if (name.empty()) return false;
  GIConv converter = g_iconv_open("UTF-8", name.c_str());
  if (converter == reinterpret_cast<GIConv>(-1)) return false;
  g_iconv_close(converter);
  return true;
}

// ---- Copying ----------------------------------------------------------------

void BVMediaLink::_basicCopyTo(BVMediaLink& target) const {
  target.url_ = url();
  target.title_ = title_;
  target.format_ = format_ ? format_->copy() : nullptr;
  target.source_ = source_ ? source_->copy() : nullptr;
  target.titleEncoding_ = titleEncoding_;
}

std::shared_ptr<BVMediaLink> BVMediaLink::copy() const {
  if (!dynamic_cast<const BVMediaMutableLink*>(this))
    return std::const_pointer_cast<BVMediaLink>(sharedAs<BVMediaLink>());
  std::shared_ptr<BVMediaLink> link(new BVMediaLink());
  _basicCopyTo(*link);
  return link;
}

std::shared_ptr<BVMediaMutableLink> BVMediaLink::mutableCopy() const {
  std::shared_ptr<BVMediaMutableLink> link(new BVMediaMutableLink());
  _basicCopyTo(*link);
  return link;
}

// ---- Descriptions and key-value access --------------------------------------

std::string BVMediaLink::description() const {
  return "<" + className() + ": " + (url_ ? url_->absoluteString() : "(null)") + ", '" + orNull(title_) + "', " +
         (format_ ? format_->description() : "(null)") + ", " + (source_ ? source_->description() : "(null)") + ">";
}

std::vector<std::string> BVMediaLink::persistentKeys() const {
  auto keys = BVBaseObject::persistentKeys();
  keys.push_back("title");
  keys.push_back("titleEncoding");
  return keys;
}

BVValue BVMediaLink::valueForKey(std::string_view key) const {
  if (key == "title") return valueOf(title_);
  if (key == "titleEncoding") return valueOf(titleEncoding_);
  if (key == "url") return BVValue(url().absoluteString());
  if (key == "format") return BVValue(format_);
  if (key == "source") return BVValue(source_);
  if (key == "lastError") return BVValue(std::const_pointer_cast<BVError>(lastError_));
  return BVBaseObject::valueForKey(key);
}

void BVMediaLink::setValueForKey(std::string_view key, const BVValue& value) {
  if (key == "title") {
    title_ = optionalString(value);  // as given: no trimming
  } else if (key == "titleEncoding") {
    titleEncoding_ = optionalString(value);
  } else if (key == "url") {
    url_ = belvane::detail::optionalURL(value);
  } else if (key == "format") {
    format_ = value.objectAs<BVMediaFormat>();
  } else if (key == "source") {
    source_ = value.objectAs<BVMediaLinkSource>();
  } else {
    BVBaseObject::setValueForKey(key, value);
  }
}

// ---- Property lists and archives ------------------------------------------------

BVDictionary BVMediaLink::plistRepresentation() const {
  BVDictionary plist = BVBaseObject::plistRepresentation();
  if (format_) plist["format"] = format_->plistRepresentation();
  if (source_) plist["source"] = source_->plistRepresentation();
  if (url_) plist["URL"] = url_->absoluteString();
  return plist;
}

void BVMediaLink::initWithPlistRepresentation(const BVDictionary& plist) {
  BVBaseObject::initWithPlistRepresentation(plist);
  auto entry = [&](const char* key) -> const BVValue& {
    auto it = plist.find(key);
    return it == plist.end() ? BVValue::none() : it->second;
  };
  if (auto format = entry("format").dictionary()) format_ = BVMediaFormat::createWithPlistRepresentation(*format);
  if (auto source = entry("source").dictionary())
    source_ = BVMediaLinkSource::createWithPlistRepresentation(*source);
  if (auto string = entry("URL").string()) url_ = BVURL::URLWithString(*string);
}

std::shared_ptr<BVMediaLink> BVMediaLink::createWithPlistRepresentation(const BVDictionary& plist) {
  std::shared_ptr<BVMediaLink> link(new BVMediaLink());
  link->initWithPlistRepresentation(plist);
  return link;
}

std::shared_ptr<BVMediaMutableLink> BVMediaMutableLink::createWithPlistRepresentation(const BVDictionary& plist) {
  std::shared_ptr<BVMediaMutableLink> link(new BVMediaMutableLink());
  link->initWithPlistRepresentation(plist);
  return link;
}

void BVMediaLink::encodeWithCoder(belvane::BVArchiveEncoder& coder) const {
  coder.encodeObject(valueOf(url_));
  coder.encodeObject(valueOf(title_));
  coder.encodeObject(BVValue(format_));
  coder.encodeObject(BVValue(source_));
}

template <class T>
std::shared_ptr<T> BVMediaLink::fromCoder(belvane::BVArchiveDecoder& coder) {
  std::shared_ptr<T> link(new T());
  if (!belvane::detail::decodeURL(coder, link->url_) || !belvane::detail::decodeString(coder, link->title_))
    return nullptr;
  // The nested records are decoded objects already; anything else there
  // (other than an absent value) means a damaged archive.
  BVValue format = coder.decodeObject();
  BVValue source = coder.decodeObject();
  link->format_ = format.objectAs<BVMediaFormat>();
  link->source_ = source.objectAs<BVMediaLinkSource>();
  auto absent = [](const BVValue& v) { return v.isNone() || v.isNull(); };
  if ((!absent(format) && !link->format_) || (!absent(source) && !link->source_)) return nullptr;
  return link;
}

std::shared_ptr<BVMediaLink> BVMediaLink::createWithCoder(belvane::BVArchiveDecoder& coder) {
  return fromCoder<BVMediaLink>(coder);
}

std::shared_ptr<BVMediaMutableLink> BVMediaMutableLink::createWithCoder(belvane::BVArchiveDecoder& coder) {
  return fromCoder<BVMediaMutableLink>(coder);
}
