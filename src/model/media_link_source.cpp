// BVMediaLinkSource and BVMediaMutableLinkSource: construction, copying and
// the record's property-list and archive forms.
#include <belvane/BVArchive.h>
#include <belvane/BVMediaLinkSource.h>

#include "model/record_values.h"

using belvane::detail::optionalString;
using belvane::detail::optionalURL;
using belvane::detail::valueOf;

// ---- Construction ---------------------------------------------------------

template <class T>
std::shared_ptr<T> BVMediaLinkSource::make(uint32_t kind, const std::optional<BVURL>& pageURL,
                                           const std::optional<BVURL>& baseURL, const std::optional<BVURL>& engineURL,
                                           const std::optional<std::string>& elementHTML) {
  std::shared_ptr<T> source(new T());
  source->kind_ = kind;
  source->pageURL_ = pageURL;
  source->baseURL_ = baseURL;
  source->engineURL_ = engineURL;
  source->elementHTML_ = elementHTML;
  return source;
}

std::shared_ptr<BVMediaLinkSource> BVMediaLinkSource::emptySource() {
  return make<BVMediaLinkSource>(kUnknownKind, std::nullopt, std::nullopt, std::nullopt, std::nullopt);
}

std::shared_ptr<BVMediaLinkSource> BVMediaLinkSource::linkSourceWithKind(uint32_t kind,
                                                                         const std::optional<BVURL>& pageURL,
                                                                         const std::optional<BVURL>& baseURL,
                                                                         const std::optional<BVURL>& engineURL,
                                                                         const std::optional<std::string>& elementHTML) {
  return make<BVMediaLinkSource>(kind, pageURL, baseURL, engineURL, elementHTML);
}

std::shared_ptr<BVMediaLinkSource> BVMediaLinkSource::create(uint32_t kind, const std::optional<BVURL>& pageURL,
                                                             const std::optional<BVURL>& baseURL,
                                                             const std::optional<BVURL>& engineURL,
                                                             const std::optional<std::string>& elementHTML) {
  return make<BVMediaLinkSource>(kind, pageURL, baseURL, engineURL, elementHTML);
}

std::shared_ptr<BVMediaMutableLinkSource> BVMediaMutableLinkSource::emptySource() {
  return make<BVMediaMutableLinkSource>(kUnknownKind, std::nullopt, std::nullopt, std::nullopt, std::nullopt);
}

std::shared_ptr<BVMediaMutableLinkSource> BVMediaMutableLinkSource::linkSourceWithKind(
    uint32_t kind, const std::optional<BVURL>& pageURL, const std::optional<BVURL>& baseURL,
    const std::optional<BVURL>& engineURL, const std::optional<std::string>& elementHTML) {
  return make<BVMediaMutableLinkSource>(kind, pageURL, baseURL, engineURL, elementHTML);
}

std::shared_ptr<BVMediaMutableLinkSource> BVMediaMutableLinkSource::create(
    uint32_t kind, const std::optional<BVURL>& pageURL, const std::optional<BVURL>& baseURL,
    const std::optional<BVURL>& engineURL, const std::optional<std::string>& elementHTML) {
  return make<BVMediaMutableLinkSource>(kind, pageURL, baseURL, engineURL, elementHTML);
}

// ---- Copying ----------------------------------------------------------------

void BVMediaLinkSource::_basicCopyTo(BVMediaLinkSource& target) const {
  target.kind_ = kind_;
  target.pageURL_ = pageURL_;
  target.baseURL_ = baseURL_;
  target.engineURL_ = engineURL_;
  target.elementHTML_ = elementHTML_;
}

std::shared_ptr<BVMediaLinkSource> BVMediaLinkSource::copy() const {
  if (!dynamic_cast<const BVMediaMutableLinkSource*>(this))
    return std::const_pointer_cast<BVMediaLinkSource>(sharedAs<BVMediaLinkSource>());
  std::shared_ptr<BVMediaLinkSource> source(new BVMediaLinkSource());
  _basicCopyTo(*source);
  return source;
}

std::shared_ptr<BVMediaMutableLinkSource> BVMediaLinkSource::mutableCopy() const {
  std::shared_ptr<BVMediaMutableLinkSource> source(new BVMediaMutableLinkSource());
  _basicCopyTo(*source);
  return source;
}

// ---- Descriptions and key-value access --------------------------------------

std::string BVMediaLinkSource::description() const {
  // The code's four characters, most significant byte first; bytes that are
  // no printable ASCII show as '?'.
  std::string code;
  for (int shift = 24; shift >= 0; shift -= 8) {
    char c = char((kind_ >> shift) & 0xFF);
    code += (c >= 0x20 && c < 0x7F) ? c : '?';
  }
  return "<" + className() + ": '" + code + "'>";
}

std::vector<std::string> BVMediaLinkSource::persistentKeys() const {
  auto keys = BVBaseObject::persistentKeys();
  keys.push_back("elementHTML");
  return keys;
}

BVValue BVMediaLinkSource::valueForKey(std::string_view key) const {
  if (key == "elementHTML") return valueOf(elementHTML_);
  if (key == "kind") return BVValue(uint64_t(kind_));
  if (key == "pageURL") return valueOf(pageURL_);
  if (key == "baseURL") return valueOf(baseURL_);
  if (key == "engineURL") return valueOf(engineURL_);
  return BVBaseObject::valueForKey(key);
}

void BVMediaLinkSource::setValueForKey(std::string_view key, const BVValue& value) {
  if (key == "elementHTML") {
    elementHTML_ = optionalString(value);
  } else if (key == "kind") {
    kind_ = value.isNumber() ? uint32_t(value.integerValue()) : 0;
  } else if (key == "pageURL") {
    pageURL_ = optionalURL(value);
  } else if (key == "baseURL") {
    baseURL_ = optionalURL(value);
  } else if (key == "engineURL") {
    engineURL_ = optionalURL(value);
  } else {
    BVBaseObject::setValueForKey(key, value);
  }
}

// ---- Property lists and archives ------------------------------------------------

BVDictionary BVMediaLinkSource::plistRepresentation() const {
  BVDictionary plist = BVBaseObject::plistRepresentation();
  plist["kind"] = BVValue(uint64_t(kind_));  // always, even for "????"
  if (pageURL_) plist["pageURL"] = pageURL_->absoluteString();
  if (baseURL_) plist["baseURL"] = baseURL_->absoluteString();
  if (engineURL_) plist["engineURL"] = engineURL_->absoluteString();
  return plist;
}

void BVMediaLinkSource::initWithPlistRepresentation(const BVDictionary& plist) {
  BVBaseObject::initWithPlistRepresentation(plist);
  auto entry = [&](const char* key) -> const BVValue& {
    auto it = plist.find(key);
    return it == plist.end() ? BVValue::none() : it->second;
  };
  // The kind's unsigned 32-bit value; 0 when missing or not a number.
  const BVValue& kind = entry("kind");
  kind_ = kind.isNumber() ? uint32_t(kind.integerValue()) : 0;
  pageURL_ = optionalURL(entry("pageURL"));
  baseURL_ = optionalURL(entry("baseURL"));
  engineURL_ = optionalURL(entry("engineURL"));
}

std::shared_ptr<BVMediaLinkSource> BVMediaLinkSource::createWithPlistRepresentation(const BVDictionary& plist) {
  std::shared_ptr<BVMediaLinkSource> source(new BVMediaLinkSource());
  source->initWithPlistRepresentation(plist);
  return source;
}

std::shared_ptr<BVMediaMutableLinkSource> BVMediaMutableLinkSource::createWithPlistRepresentation(
    const BVDictionary& plist) {
  std::shared_ptr<BVMediaMutableLinkSource> source(new BVMediaMutableLinkSource());
  source->initWithPlistRepresentation(plist);
  return source;
}

void BVMediaLinkSource::encodeWithCoder(belvane::BVArchiveEncoder& coder) const {
  coder.encodeObject(BVValue(int32_t(kind_)));  // the code read as a signed 32-bit number
  coder.encodeObject(valueOf(pageURL_));
  coder.encodeObject(valueOf(baseURL_));
  coder.encodeObject(valueOf(engineURL_));
  coder.encodeObject(valueOf(elementHTML_));
}

template <class T>
std::shared_ptr<T> BVMediaLinkSource::fromCoder(belvane::BVArchiveDecoder& coder) {
  using belvane::detail::decodeString;
  using belvane::detail::decodeURL;
  std::shared_ptr<T> source(new T());
  BVValue kind = coder.decodeObject();
  if (kind.kind() != BVValue::Kind::Integer) return nullptr;
  source->kind_ = uint32_t(int32_t(kind.integerValue()));
  if (!decodeURL(coder, source->pageURL_) || !decodeURL(coder, source->baseURL_) ||
      !decodeURL(coder, source->engineURL_) || !decodeString(coder, source->elementHTML_))
    return nullptr;
  return source;
}

std::shared_ptr<BVMediaLinkSource> BVMediaLinkSource::createWithCoder(belvane::BVArchiveDecoder& coder) {
  return fromCoder<BVMediaLinkSource>(coder);
}

std::shared_ptr<BVMediaMutableLinkSource> BVMediaMutableLinkSource::createWithCoder(belvane::BVArchiveDecoder& coder) {
  return fromCoder<BVMediaMutableLinkSource>(coder);
}
