// Archives: values and archivable objects as tagged binary property lists,
// the process-wide registry of decoders, and bounded, allow-listed decoding.
#include <belvane/BVArchive.h>
#include <belvane/BVError.h>

#include <map>
#include <mutex>

#include "foundation/plist_bridge.h"
#include "foundation/thread_annotations.h"

namespace belvane {
namespace {

constexpr const char* kClassTag = "$class";
constexpr const char* kItemsTag = "$items";
constexpr const char* kNullTag = "$null";
constexpr const char* kNoneTag = "$none";
constexpr const char* kDictTag = "$dict";
// Deeper than any real payload; stops an object graph that refers to itself.
constexpr size_t kMaxEncodingDepth = 256;

bool isTagKey(std::string_view key) { return !key.empty() && key.front() == '$'; }

// "NSError": domain, code, then the user info or an absent value.
BVValue decodeError(BVArchiveDecoder& coder) {
  BVValue domain = coder.decodeObject();
  BVValue code = coder.decodeObject();
  BVValue userInfo = coder.decodeObject();
  if (!domain.isString() || code.kind() != BVValue::Kind::Integer) return {};
  if (!userInfo.isNone() && !userInfo.isDictionary()) return {};
  const bool hasUserInfo = userInfo.isDictionary();
  auto error = std::make_shared<BVError>(*domain.string(), code.integerValue(),
                                         hasUserInfo ? *userInfo.dictionary() : BVDictionary{}, hasUserInfo);
  return BVValue(std::move(error));
}

struct Registry {
  belvane::detail::Mutex mutex;
  std::map<std::string, BVArchiveFactory, std::less<>> factories GUARDED_BY(mutex);
};

Registry& registry() {
  // Never destroyed: decoders may run while the process shuts down.
  static Registry* instance = [] {
    auto r = new Registry;
    belvane::detail::MutexLock lock(r->mutex);
    r->factories["NSError"] = decodeError;
    return r;
  }();
  return *instance;
}

BVArchiveFactory factoryFor(std::string_view className) {
  Registry& r = registry();
  belvane::detail::MutexLock lock(r.mutex);
  auto it = r.factories.find(className);
  return it == r.factories.end() ? BVArchiveFactory() : it->second;
}

// ---- Encoding: values to plain property-list values -------------------------

std::optional<BVValue> encodeValue(const BVValue& value, size_t depth) {
  if (depth > kMaxEncodingDepth) return std::nullopt;
  switch (value.kind()) {
    case BVValue::Kind::None: return BVValue(BVDictionary{{kNoneTag, BVValue(true)}});
    case BVValue::Kind::Null: return BVValue(BVDictionary{{kNullTag, BVValue(true)}});
    case BVValue::Kind::Array: {
      BVArray items;
      items.reserve(value.array()->size());
      for (const BVValue& item : *value.array()) {
        auto encoded = encodeValue(item, depth + 1);
        if (!encoded) return std::nullopt;
        items.push_back(std::move(*encoded));
      }
      return BVValue(std::move(items));
    }
    case BVValue::Kind::Dictionary: {
      BVDictionary entries;
      bool needsWrapping = false;
      for (const auto& [key, item] : *value.dictionary()) {
        auto encoded = encodeValue(item, depth + 1);
        if (!encoded) return std::nullopt;
        needsWrapping = needsWrapping || isTagKey(key);
        entries.emplace(key, std::move(*encoded));
      }
      if (needsWrapping) return BVValue(BVDictionary{{kDictTag, BVValue(std::move(entries))}});
      return BVValue(std::move(entries));
    }
    case BVValue::Kind::Object: {
      auto object = value.object();
      if (!object->supportsCoding()) return std::nullopt;
      BVArchiveEncoder coder;
      object->encodeWithCoder(coder);
      auto items = encodeValue(BVValue(coder.items()), depth + 1);
      if (!items) return std::nullopt;
      return BVValue(BVDictionary{{kClassTag, BVValue(object->className())}, {kItemsTag, std::move(*items)}});
    }
    default: return value;
  }
}

// ---- Decoding: plain property-list values back to values ---------------------

class Decoding {
 public:
  Decoding(const std::set<std::string, std::less<>>& allowed, const BVArchiveLimits& limits)
      : allowed_(allowed), limits_(limits) {}

  std::optional<BVValue> decode(const BVValue& value, size_t depth) {
    if (depth > limits_.maxDepth) return std::nullopt;
    switch (value.kind()) {
      case BVValue::Kind::Array: return decodeArray(*value.array(), depth);
      case BVValue::Kind::Dictionary: return decodeDictionary(*value.dictionary(), depth);
      default: return value;
    }
  }

 private:
  std::optional<BVValue> decodeArray(const BVArray& array, size_t depth) {
    BVArray items;
    items.reserve(array.size());
    for (const BVValue& item : array) {
      auto decoded = decode(item, depth + 1);
      if (!decoded) return std::nullopt;
      items.push_back(std::move(*decoded));
    }
    return BVValue(std::move(items));
  }

  std::optional<BVValue> decodeEntries(const BVDictionary& dict, size_t depth) {
    BVDictionary entries;
    for (const auto& [key, item] : dict) {
      auto decoded = decode(item, depth + 1);
      if (!decoded) return std::nullopt;
      entries.emplace(key, std::move(*decoded));
    }
    return BVValue(std::move(entries));
  }

  std::optional<BVValue> decodeDictionary(const BVDictionary& dict, size_t depth) {
    auto only = [&](const char* tag) { return dict.size() == 1 && dict.begin()->first == tag; };
    if (dict.count(kClassTag)) return decodeObject(dict, depth);
    if (only(kNullTag)) return BVValue(BVNull{});
    if (only(kNoneTag)) return BVValue();
    if (only(kDictTag)) {
      const BVDictionary* wrapped = dict.begin()->second.dictionary();
      if (!wrapped) return std::nullopt;
      return decodeEntries(*wrapped, depth);
    }
    for (const auto& entry : dict)
      if (isTagKey(entry.first)) return std::nullopt;  // a tag this format does not know
    return decodeEntries(dict, depth);
  }

  std::optional<BVValue> decodeObject(const BVDictionary& dict, size_t depth) {
    if (dict.size() != 2) return std::nullopt;
    const std::string* className = BVDictionaryString(dict, kClassTag);
    auto itemsEntry = dict.find(kItemsTag);
    if (!className || itemsEntry == dict.end() || !itemsEntry->second.isArray()) return std::nullopt;
    // Only classes the caller allows are ever made.
    if (!allowed_.count(*className)) return std::nullopt;
    BVArchiveFactory factory = factoryFor(*className);
    if (!factory) return std::nullopt;
    auto items = decodeArray(*itemsEntry->second.array(), depth);
    if (!items) return std::nullopt;
    BVArchiveDecoder coder(*items->array());
    BVValue object;
    try {
      object = factory(coder);
    } catch (const std::exception&) {
      return std::nullopt;
    }
    if (object.isNone()) return std::nullopt;
    return object;
  }

  const std::set<std::string, std::less<>>& allowed_;
  const BVArchiveLimits& limits_;
};

}  // namespace

BVValue BVArchiveDecoder::decodeObject() { return next_ < items_.size() ? items_[next_++] : BVValue(); }

void BVArchiveRegisterClass(const std::string& className, BVArchiveFactory factory) {
  Registry& r = registry();
  belvane::detail::MutexLock lock(r.mutex);
  r.factories[className] = std::move(factory);
}

std::vector<uint8_t> BVArchivedData(const BVValue& root) {
  auto plain = encodeValue(root, 1);
  if (!plain) return {};
  auto bytes = detail::serializePlist(*plain, true, 2 * kMaxEncodingDepth + 4);
  if (!bytes) return {};
  return std::vector<uint8_t>(bytes->begin(), bytes->end());
}

std::optional<BVValue> BVUnarchive(std::span<const uint8_t> bytes, const std::set<std::string, std::less<>>& allowedClasses,
                                   const BVArchiveLimits& limits) {
  // Archives are binary property lists only; XML is never read here.
  if (bytes.size() < 8 || std::string_view(reinterpret_cast<const char*>(bytes.data()), 8) != "bplist00")
    return std::nullopt;
  // Each value level is at most two property-list levels (an object's
  // dictionary and its items, or a wrapped dictionary).
  detail::PlistLimits plistLimits;
  plistLimits.maxBytes = limits.maxBytes;
  plistLimits.maxDepth = 2 * limits.maxDepth + 2;
  plistLimits.maxNodes = limits.maxElements;
  auto plain = detail::parsePlistBytes(bytes, plistLimits);
  if (!plain) return std::nullopt;
  return Decoding(allowedClasses, limits).decode(*plain, 1);
}

}  // namespace belvane
