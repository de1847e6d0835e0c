// Field conversions shared by the media records.
#include "model/record_values.h"

namespace belvane::detail {

std::optional<std::string> optionalString(const BVValue& value) {
  if (auto s = value.string()) return *s;
  return std::nullopt;
}

std::optional<BVURL> optionalURL(const BVValue& value) {
  if (auto s = value.string()) return BVURL::URLWithString(*s);
  return std::nullopt;
}

BVValue valueOf(const std::optional<std::string>& string) { return string ? BVValue(*string) : BVValue(); }

BVValue valueOf(const std::optional<BVURL>& url) { return url ? BVValue(url->absoluteString()) : BVValue(); }

bool decodeString(BVArchiveDecoder& coder, std::optional<std::string>& out) {
  BVValue item = coder.decodeObject();
  if (item.isNone() || item.isNull()) {
    out.reset();
    return true;
  }
  if (!item.isString()) return false;
  out = *item.string();
  return true;
}

bool decodeURL(BVArchiveDecoder& coder, std::optional<BVURL>& out) {
  std::optional<std::string> string;
  if (!decodeString(coder, string)) return false;
  out = string ? BVURL::URLWithString(*string) : std::nullopt;
  return true;
}

}  // namespace belvane::detail
