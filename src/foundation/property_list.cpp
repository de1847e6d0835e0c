// Property-list bytes and files, XML or binary, through libplist.
#include <belvane/BVPropertyList.h>

#include <glib.h>

#include <filesystem>

#include "foundation/plist_bridge.h"

namespace {

// Property lists read here are resource files and hosts' saved records;
// these bounds only keep hostile files from exhausting the process.
const belvane::detail::PlistLimits kLimits{};

}  // namespace

namespace BVPropertyList {

std::optional<BVValue> parse(std::span<const uint8_t> bytes) {
  return belvane::detail::parsePlistBytes(bytes, kLimits);
}

std::optional<BVValue> readFile(const std::string& path) {
  std::error_code error;
  auto size = std::filesystem::file_size(path, error);
  if (error || size > kLimits.maxBytes) return std::nullopt;
  gchar* contents = nullptr;
  gsize length = 0;
  if (!g_file_get_contents(path.c_str(), &contents, &length, nullptr)) return std::nullopt;
  auto value = parse({reinterpret_cast<const uint8_t*>(contents), length});
  g_free(contents);
  return value;
}

std::optional<std::string> serialize(const BVValue& value, BVPropertyListFormat format) {
  return belvane::detail::serializePlist(value, format == BVPropertyListFormat::Binary, kLimits.maxDepth);
}

bool writeFile(const BVValue& value, const std::string& path, BVPropertyListFormat format) {
  auto bytes = serialize(value, format);
  // g_file_set_contents writes a temporary file and renames it into place.
  return bytes && g_file_set_contents(path.c_str(), bytes->data(), gssize(bytes->size()), nullptr);
}

}  // namespace BVPropertyList
