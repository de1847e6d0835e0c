// The playlist readers' text helpers.
#include "playlists/parser_helpers.h"

#include "foundation/text_encoding.h"

#include <glib.h>

#include <bit>
#include <climits>
#include <cstring>

namespace belvane::detail {

namespace {

// The code point starting at s[i] and its length in bytes; an invalid
// sequence reads as its first byte alone.
char32_t decodeAt(std::string_view s, size_t i, size_t* length) {
  unsigned char c = static_cast<unsigned char>(s[i]);
  if (c < 0x80) {
    *length = 1;
    return c;
  }
  gunichar u = g_utf8_get_char_validated(s.data() + i, gssize(s.size() - i));
  if (u == gunichar(-1) || u == gunichar(-2)) {
    *length = 1;
    return c;
  }
  *length = size_t(g_unichar_to_utf8(u, nullptr));
  return u;
}

// The high bit set in every byte of word that equals b. Only the lowest
// flagged byte is certain (a borrow may flag bytes above it), which is all
// the line splitter asks for.
inline uint64_t bytesEqual(uint64_t word, unsigned char b) {
  constexpr uint64_t ones = 0x0101010101010101ULL;
  constexpr uint64_t highs = 0x8080808080808080ULL;
  uint64_t x = word ^ (ones * b);
  return (x - ones) & ~x & highs;
}

// Start of the code point that ends at s[end - 1].
size_t previousCharStart(std::string_view s, size_t end) {
  size_t i = end - 1;
  size_t steps = 0;
  while (i > 0 && steps < 3 && (static_cast<unsigned char>(s[i]) & 0xC0) == 0x80) {
    --i;
    ++steps;
  }
  size_t length = 0;
  decodeAt(s, i, &length);
  return i + length == end ? i : end - 1;
}

}  // namespace

LineReader::LineReader(std::string_view text) : text_(text) {
  // A text of at most one character has no line at all.
  if (!utf16LengthExceeds(text, 1)) pos_ = text.size();
}

bool LineReader::next(std::string_view* line) {
  const auto* p = reinterpret_cast<const unsigned char*>(text_.data());
  const size_t n = text_.size();
  size_t i = pos_;
  while (i < n) {
    size_t start = i;
    size_t end = n;  // of the line's contents
    size_t after = n;  // of its terminator
    while (i < n) {
      // Skips eight bytes at a time while none of them can start a line break.
      while (std::endian::native == std::endian::little && i + 8 <= n) {
        uint64_t word;
        std::memcpy(&word, p + i, 8);
        uint64_t candidates =
            bytesEqual(word, '\n') | bytesEqual(word, '\r') | bytesEqual(word, 0xC2) | bytesEqual(word, 0xE2);
        if (candidates) {
          i += size_t(__builtin_ctzll(candidates)) / 8;
          break;
        }
        i += 8;
      }
      if (i >= n) break;
      unsigned char c = p[i];
      size_t terminator = 0;
      if (c == '\n') {
        terminator = 1;
      } else if (c == '\r') {
        terminator = (i + 1 < n && p[i + 1] == '\n') ? 2 : 1;
      } else if (c == 0xC2 && i + 1 < n && p[i + 1] == 0x85) {  // U+0085
        terminator = 2;
      } else if (c == 0xE2 && i + 2 < n && p[i + 1] == 0x80 && (p[i + 2] == 0xA8 || p[i + 2] == 0xA9)) {
        terminator = 3;  // U+2028, U+2029
      }
      if (terminator) {
        end = i;
        after = i + terminator;
        break;
      }
      ++i;
    }
    if (i >= n) end = after = n;
    i = after;
    if (end > start) {
      pos_ = i;
      *line = text_.substr(start, end - start);
      return true;
    }
  }
  pos_ = n;
  return false;
}

std::vector<std::string_view> componentsSeparatedByNewLineCharacters(std::string_view text) {
  std::vector<std::string_view> lines;
  LineReader reader(text);
  std::string_view line;
  while (reader.next(&line)) lines.push_back(line);
  return lines;
}

bool isWhitespaceOrNewline(char32_t c) {
  if (c < 0x80) return c == ' ' || (c >= 0x09 && c <= 0x0D);
  if (c == 0x85) return true;
  switch (g_unichar_type(gunichar(c))) {
    case G_UNICODE_SPACE_SEPARATOR:
    case G_UNICODE_LINE_SEPARATOR:
    case G_UNICODE_PARAGRAPH_SEPARATOR:
      return true;
    default:
      return false;
  }
}

size_t skipWhitespaceAndNewlines(std::string_view s, size_t pos) {
  while (pos < s.size()) {
    unsigned char c = static_cast<unsigned char>(s[pos]);
    if (c < 0x80) {
      if (c != ' ' && (c < 0x09 || c > 0x0D)) break;
      ++pos;
      continue;
    }
    size_t length = 0;
    if (!isWhitespaceOrNewline(decodeAt(s, pos, &length))) break;
    pos += length;
  }
  return pos;
}

std::string_view trimmedView(std::string_view s) {
  size_t begin = skipWhitespaceAndNewlines(s, 0);
  size_t end = s.size();
  while (end > begin) {
    unsigned char c = static_cast<unsigned char>(s[end - 1]);
    if (c < 0x80) {
      if (c != ' ' && (c < 0x09 || c > 0x0D)) break;
      --end;
      continue;
    }
    size_t start = previousCharStart(s, end);
    size_t length = 0;
    if (start < begin || !isWhitespaceOrNewline(decodeAt(s, start, &length))) break;
    end = start;
  }
  return s.substr(begin, end - begin);
}

int64_t integerValue(std::string_view s) {
  size_t i = skipWhitespaceAndNewlines(s, 0);
  bool negative = false;
  if (i < s.size() && (s[i] == '+' || s[i] == '-')) negative = s[i++] == '-';
  int64_t value = 0;
  bool saturated = false;
  for (; i < s.size() && s[i] >= '0' && s[i] <= '9'; ++i) {
    int digit = s[i] - '0';
    if (saturated) continue;
    if (value > (INT64_MAX - digit) / 10) {
      saturated = true;
      value = negative ? INT64_MIN : INT64_MAX;
      continue;
    }
    value = value * 10 + digit;
  }
  if (saturated) return value;
  return negative ? -value : value;
}

bool utf16LengthExceeds(std::string_view s, size_t n) {
  size_t units = 0;
  for (size_t i = 0; i < s.size();) {
    size_t length = 0;
    char32_t c = decodeAt(s, i, &length);
    units += c >= 0x10000 ? 2 : 1;
    if (units > n) return true;
    i += length;
  }
  return false;
}


}  // namespace belvane::detail
