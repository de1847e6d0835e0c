// Property-list files and bytes (XML and binary) through libplist.
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVValue.h>

#include <optional>
#include <span>
#include <string>

enum class BVPropertyListFormat { XML, Binary };

namespace BVPropertyList {
// Parses XML or binary property-list bytes; nothing when they do not parse.
// Objects cannot appear in a property list; the null object is refused.
BV_EXPORT std::optional<BVValue> parse(std::span<const uint8_t> bytes);
BV_EXPORT std::optional<BVValue> readFile(const std::string& path);
// Serialises a value; nothing when it holds what a property list cannot
// (absent or null values, objects).
BV_EXPORT std::optional<std::string> serialize(const BVValue& value, BVPropertyListFormat format);
BV_EXPORT bool writeFile(const BVValue& value, const std::string& path, BVPropertyListFormat format);
}  // namespace BVPropertyList
