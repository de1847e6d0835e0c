// Text helpers over GLib: decoding bytes in a named character set, UTF-8
// checks, ASCII and Unicode-aware lower-casing, and trimming.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace belvane::detail {

bool isValidUTF8(std::span<const uint8_t> bytes);
// The bytes converted from charset ("UTF-8", "WINDOWS-1252", "MACINTOSH",
// "UTF-16BE", "ISO-8859-1") to UTF-8, without a leading byte-order mark;
// nothing when they are not valid in it.
std::optional<std::string> decodeText(std::span<const uint8_t> bytes, const char* charset);
// Removes a byte-order mark (U+FEFF in UTF-8) from the start of decoded
// text: it marks the encoding and is no part of the text. Every decoding of
// bytes into text goes through it.
void dropByteOrderMark(std::string& text);
// Every byte as its Latin-1 character.
std::string latin1ToUTF8(std::span<const uint8_t> bytes);
std::string asciiLower(std::string_view s);
// Unicode-aware lower-casing of UTF-8 text (ASCII lower-casing when invalid);
// ASCII text takes a fast path.
std::string utf8Lower(std::string_view s);
// Equality and prefix tests that ignore ASCII case.
bool equalsIgnoringASCIICase(std::string_view a, std::string_view b);
bool hasPrefixIgnoringASCIICase(std::string_view s, std::string_view prefix);
// Trims spaces, tabs, line ends and other Unicode white space at both ends.
std::string trimWhitespaceAndNewlines(std::string_view s);
// Trims only spaces and tabs.
std::string trimSpacesAndTabs(std::string_view s);
bool hasPrefix(std::string_view s, std::string_view prefix);
inline std::span<const uint8_t> bytesOf(std::string_view s) {
  return {reinterpret_cast<const uint8_t*>(s.data()), s.size()};
}

}  // namespace belvane::detail
