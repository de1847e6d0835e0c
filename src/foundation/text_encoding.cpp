// Text helpers over GLib.
#include "foundation/text_encoding.h"

#include <glib.h>

namespace belvane::detail {

bool isValidUTF8(std::span<const uint8_t> bytes) {
  return g_utf8_validate(reinterpret_cast<const char*>(bytes.data()), gssize(bytes.size()), nullptr);
}

void dropByteOrderMark(std::string& text) {
  if (hasPrefix(text, "\xEF\xBB\xBF")) text.erase(0, 3);
}

std::optional<std::string> decodeText(std::span<const uint8_t> bytes, const char* charset) {
  if (bytes.empty()) return std::string();
  if (g_ascii_strcasecmp(charset, "UTF-8") == 0) {
    if (!isValidUTF8(bytes)) return std::nullopt;
    std::string text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    dropByteOrderMark(text);
    return text;
  }
  gsize written = 0;
  GError* error = nullptr;
  gchar* out = g_convert(reinterpret_cast<const char*>(bytes.data()), gssize(bytes.size()), "UTF-8", charset, nullptr,
                         &written, &error);
  if (!out) {
    g_clear_error(&error);
    return std::nullopt;
  }
  std::string result(out, written);
  g_free(out);
  // A UTF-16 mark converts to U+FEFF; in 8-bit charsets the same bytes are
  // ordinary characters and never decode to it.
  dropByteOrderMark(result);
  return result;
}

std::string latin1ToUTF8(std::span<const uint8_t> bytes) {
  std::string out;
  out.reserve(bytes.size());
  for (uint8_t b : bytes) {
    if (b < 0x80) {
      out.push_back(char(b));
    } else {
      out.push_back(char(0xC0 | (b >> 6)));
      out.push_back(char(0x80 | (b & 0x3F)));
    }
  }
  return out;
}

std::string asciiLower(std::string_view s) {
  std::string out(s);
  for (auto& c : out) c = g_ascii_tolower(c);
  return out;
}

std::string utf8Lower(std::string_view s) {
  std::string out(s);
  bool ascii = true;
  for (auto& c : out) {
    if (static_cast<unsigned char>(c) >= 0x80) {
      ascii = false;
      break;
    }
    c = g_ascii_tolower(c);
  }
  if (ascii) return out;
  if (!g_utf8_validate(s.data(), gssize(s.size()), nullptr)) return asciiLower(s);
  gchar* lower = g_utf8_strdown(s.data(), gssize(s.size()));
  out = lower;
  g_free(lower);
  return out;
}

bool equalsIgnoringASCIICase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (g_ascii_tolower(a[i]) != g_ascii_tolower(b[i])) return false;
  return true;
}

bool hasPrefixIgnoringASCIICase(std::string_view s, std::string_view prefix) {
  return s.size() >= prefix.size() && equalsIgnoringASCIICase(s.substr(0, prefix.size()), prefix);
}

namespace {
bool isUnicodeSpace(gunichar c) { return g_unichar_isspace(c) || c == 0x85 || c == 0x2028 || c == 0x2029; }
}  // namespace

std::string trimWhitespaceAndNewlines(std::string_view s) {
  if (!g_utf8_validate(s.data(), gssize(s.size()), nullptr)) {
    size_t b = 0, e = s.size();
    while (b < e && g_ascii_isspace(s[b])) ++b;
    while (e > b && g_ascii_isspace(s[e - 1])) --e;
    return std::string(s.substr(b, e - b));
  }
  const char* begin = s.data();
  const char* end = s.data() + s.size();
  while (begin < end && isUnicodeSpace(g_utf8_get_char(begin))) begin = g_utf8_next_char(begin);
  while (end > begin) {
    const char* prev = g_utf8_find_prev_char(begin, end);
    if (!prev || !isUnicodeSpace(g_utf8_get_char(prev))) break;
    end = prev;
  }
  return std::string(begin, size_t(end - begin));
}

std::string trimSpacesAndTabs(std::string_view s) {
  size_t b = 0, e = s.size();
  while (b < e && (s[b] == ' ' || s[b] == '\t')) ++b;
  while (e > b && (s[e - 1] == ' ' || s[e - 1] == '\t')) --e;
  return std::string(s.substr(b, e - b));
}

bool hasPrefix(std::string_view s, std::string_view prefix) { return s.substr(0, prefix.size()) == prefix; }

}  // namespace belvane::detail
