// Conversions the media records share between their fields (optional
// strings and URLs) and the values of property lists and archives.
#pragma once

#include <belvane/BVArchive.h>
#include <belvane/BVURL.h>
#include <belvane/BVValue.h>

#include <optional>
#include <string>

namespace belvane::detail {

// The string held by value; nothing for any other kind.
std::optional<std::string> optionalString(const BVValue& value);
// A URL made from the string held by value; nothing when value holds no
// string or the string is refused.
std::optional<BVURL> optionalURL(const BVValue& value);

BVValue valueOf(const std::optional<std::string>& string);
// The URL's absolute string, or an absent value.
BVValue valueOf(const std::optional<BVURL>& url);

// Reads the next archive item into out. An absent or null item gives
// nothing; false when the item has another kind (a damaged archive).
bool decodeString(BVArchiveDecoder& coder, std::optional<std::string>& out);
bool decodeURL(BVArchiveDecoder& coder, std::optional<BVURL>& out);

}  // namespace belvane::detail
