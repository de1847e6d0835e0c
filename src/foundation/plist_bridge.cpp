// Conversion between BVValue and libplist trees, and bounded parsing.
#include "foundation/plist_bridge.h"

#include <plist/plist.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

namespace belvane::detail {
namespace {

struct PlistFree {
  void operator()(void* node) const { plist_free(node); }
};
using PlistHolder = std::unique_ptr<void, PlistFree>;

bool isBinaryPlist(std::span<const uint8_t> bytes) {
  return bytes.size() >= 8 && std::memcmp(bytes.data(), "bplist00", 8) == 0;
}

// libplist keeps a date as seconds since 2001 and hands it over as whole
// seconds (truncated toward zero) plus unsigned microseconds.
plist_t newDate(double seconds) {
  if (!std::isfinite(seconds)) seconds = 0;
  double whole = std::clamp(std::floor(seconds), double(std::numeric_limits<int32_t>::min()),
                            double(std::numeric_limits<int32_t>::max()));
  double micro = std::clamp(std::round((seconds - whole) * 1e6), 0.0, 999999.0);
  return plist_new_date(int32_t(whole), int32_t(micro));
}

double dateSeconds(plist_t node) {
  int32_t seconds = 0, micro = 0;
  plist_get_date_val(node, &seconds, &micro);
  // The microseconds carry no sign: before 2001 they count backwards. (Within
  // the first second before 2001 the sign is lost; no real date lives there.)
  return double(seconds) + (seconds < 0 ? -double(micro) : double(micro)) / 1e6;
}

plist_t toPlist(const BVValue& value, size_t depth, size_t maxDepth) {
  if (depth > maxDepth) return nullptr;
  switch (value.kind()) {
    case BVValue::Kind::String: return plist_new_string(value.string()->c_str());
    // libplist stores every integer as 64 unsigned bits and writes 8-byte
    // integers (which property lists read as signed) for anything that does
    // not fit 32 bits, so negative numbers travel as their two's complement.
    case BVValue::Kind::Integer: return plist_new_uint(uint64_t(value.integerValue()));
    case BVValue::Kind::Real: return plist_new_real(value.doubleValue());
    case BVValue::Kind::Boolean: return plist_new_bool(value.boolValue() ? 1 : 0);
    case BVValue::Kind::Date: return newDate(value.date()->secondsSinceReferenceDate);
    case BVValue::Kind::Data: {
      static const char kEmpty = 0;
      const BVData& data = *value.data();
      return plist_new_data(data.empty() ? &kEmpty : reinterpret_cast<const char*>(data.data()), data.size());
    }
    case BVValue::Kind::Array: {
      PlistHolder array(plist_new_array());
      for (const BVValue& item : *value.array()) {
        plist_t child = toPlist(item, depth + 1, maxDepth);
        if (!child) return nullptr;
        plist_array_append_item(array.get(), child);
      }
      return array.release();
    }
    case BVValue::Kind::Dictionary: {
      PlistHolder dict(plist_new_dict());
      for (const auto& [key, item] : *value.dictionary()) {
        plist_t child = toPlist(item, depth + 1, maxDepth);
        if (!child) return nullptr;
        plist_dict_set_item(dict.get(), key.c_str(), child);
      }
      return dict.release();
    }
    case BVValue::Kind::None:
    case BVValue::Kind::Null:
    case BVValue::Kind::Object: return nullptr;
  }
  return nullptr;
}

template <class F>
void forEachArrayItem(plist_t array, F&& f) {
  plist_array_iter iter = nullptr;
  plist_array_new_iter(array, &iter);
  plist_t item = nullptr;
  for (plist_array_next_item(array, iter, &item); item; plist_array_next_item(array, iter, &item)) f(item);
  std::free(iter);
}

template <class F>
void forEachDictEntry(plist_t dict, F&& f) {
  plist_dict_iter iter = nullptr;
  plist_dict_new_iter(dict, &iter);
  for (;;) {
    char* key = nullptr;
    plist_t item = nullptr;
    plist_dict_next_item(dict, iter, &key, &item);
    if (!item) {
      std::free(key);
      break;
    }
    f(key ? key : "", item);
    std::free(key);
  }
  std::free(iter);
}

// The tree's depth and node count, without recursion.
bool treeWithinLimits(plist_t root, size_t maxDepth, size_t maxNodes) {
  std::vector<std::pair<plist_t, size_t>> pending{{root, 1}};
  size_t nodes = 0;
  while (!pending.empty()) {
    const plist_t node = pending.back().first;
    const size_t depth = pending.back().second;
    pending.pop_back();
    if (++nodes > maxNodes || depth > maxDepth) return false;
    switch (plist_get_node_type(node)) {
      case PLIST_ARRAY: forEachArrayItem(node, [&](plist_t item) { pending.emplace_back(item, depth + 1); }); break;
      case PLIST_DICT:
        forEachDictEntry(node, [&](const char*, plist_t item) {
          ++nodes;  // the key
          pending.emplace_back(item, depth + 1);
        });
        break;
      default: break;
    }
  }
  return true;
}

// Depth is bounded by treeWithinLimits before this runs.
std::optional<BVValue> fromPlist(plist_t node) {
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
      uint8_t b = 0;
      plist_get_bool_val(node, &b);
      return BVValue(b != 0);
    }
    case PLIST_UINT: {
      uint64_t u = 0;
      plist_get_uint_val(node, &u);
      // Back to signed: negative numbers come as their two's complement.
      // (Unsigned values above INT64_MAX, which no writer here produces,
      // wrap around.)
      return BVValue(int64_t(u));
    }
    case PLIST_REAL: {
      double d = 0;
      plist_get_real_val(node, &d);
      return BVValue(d);
    }
    case PLIST_STRING: {
      uint64_t length = 0;
      const char* s = plist_get_string_ptr(node, &length);
      return BVValue(s ? std::string(s, length) : std::string());
    }
    case PLIST_KEY: {
      char* s = nullptr;
      plist_get_key_val(node, &s);
      BVValue value(std::string(s ? s : ""));
      std::free(s);
      return value;
    }
    case PLIST_DATE: return BVValue(BVDate{dateSeconds(node)});
    case PLIST_DATA: {
      uint64_t length = 0;
      auto bytes = reinterpret_cast<const uint8_t*>(plist_get_data_ptr(node, &length));
      return BVValue(bytes ? BVData(bytes, bytes + length) : BVData());
    }
    case PLIST_ARRAY: {
      BVArray array;
      bool ok = true;
      forEachArrayItem(node, [&](plist_t item) {
        if (!ok) return;
        auto value = fromPlist(item);
        if (value)
          array.push_back(std::move(*value));
        else
          ok = false;
      });
      if (!ok) return std::nullopt;
      return BVValue(std::move(array));
    }
    case PLIST_DICT: {
      BVDictionary dict;
      bool ok = true;
      forEachDictEntry(node, [&](const char* key, plist_t item) {
        if (!ok) return;
        auto value = fromPlist(item);
        if (value)
          dict[key] = std::move(*value);
        else
          ok = false;
      });
      if (!ok) return std::nullopt;
      return BVValue(std::move(dict));
    }
    default: return std::nullopt;  // UIDs belong to other archivers
  }
}

}  // namespace

std::optional<BVValue> parsePlistBytes(std::span<const uint8_t> bytes, const PlistLimits& limits) {
  if (bytes.empty() || bytes.size() > limits.maxBytes || bytes.size() > std::numeric_limits<uint32_t>::max())
    return std::nullopt;
  plist_t root = nullptr;
  if (isBinaryPlist(bytes)) {
    if (!binaryPlistWithinLimits(bytes, limits.maxDepth, limits.maxNodes)) return std::nullopt;
    plist_from_bin(reinterpret_cast<const char*>(bytes.data()), uint32_t(bytes.size()), &root);
  } else {
    if (!xmlPlistNestingWithin(bytes, limits.maxDepth)) return std::nullopt;
    // A terminated copy, so that no number or date parse can read past the end.
    std::string text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    plist_from_xml(text.c_str(), uint32_t(text.size()), &root);
  }
  PlistHolder holder(root);
  if (!root || !treeWithinLimits(root, limits.maxDepth, limits.maxNodes)) return std::nullopt;
  return fromPlist(root);
}

std::optional<std::string> serializePlist(const BVValue& value, bool binary, size_t maxDepth) {
  PlistHolder root(toPlist(value, 1, maxDepth));
  if (!root) return std::nullopt;
  char* out = nullptr;
  uint32_t length = 0;
  if (binary) {
    plist_to_bin(root.get(), &out, &length);
  } else {
    plist_to_xml(root.get(), &out, &length);
  }
  if (!out) return std::nullopt;
  std::string result(out, length);
  if (binary)
    plist_to_bin_free(out);
  else
    plist_to_xml_free(out);
  return result;
}

}  // namespace belvane::detail
