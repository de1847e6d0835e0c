// Fuzzes the playlist text decoding (UTF-8, else Windows-1252) and the line
// splitter on its output: decoded text is valid UTF-8, UTF-8 input comes
// back unchanged but for a leading byte-order mark, and lines are non-empty
// and free of line breaks.
#include <belvane/BVWebPlaylist.h>

#include "foundation/text_encoding.h"
#include "playlists/parser_helpers.h"

#include <cstddef>
#include <algorithm>
#include <cstdint>
#include <string_view>

namespace {

// UTF-8 validity with NUL characters allowed (GLib's check refuses them).
bool validUTF8(std::string_view s) {
  for (size_t start = 0; start <= s.size();) {
    size_t nul = std::min(s.find('\0', start), s.size());
    if (!belvane::detail::isValidUTF8(belvane::detail::bytesOf(s.substr(start, nul - start)))) return false;
    start = nul + 1;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace belvane::detail;
  std::string_view input(reinterpret_cast<const char*>(data), size);
  auto text = BVWebPlaylist::stringFromData(bytesOf(input));
  if (validUTF8(input)) {
    std::string_view expected = input.substr(input.starts_with("\xEF\xBB\xBF") ? 3 : 0);
    if (!text || *text != expected) __builtin_trap();
  }
  if (!text) return 0;
  if (!validUTF8(*text)) __builtin_trap();
  for (std::string_view line : componentsSeparatedByNewLineCharacters(*text)) {
    if (line.empty() || line.find_first_of("\r\n") != std::string_view::npos) __builtin_trap();
    if (line.find("\xE2\x80\xA8") != std::string_view::npos || line.find("\xC2\x85") != std::string_view::npos)
      __builtin_trap();
  }
  return 0;
}
