// Text helpers shared by the playlist readers: the line splitter and the
// small scanning rules (trimming, integer values, UTF-16 lengths) whose
// exact behaviour the readers depend on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/text_encoding.h"

namespace belvane::detail {

// The non-empty lines of text, split at LF, CR, CR LF, U+0085, U+2028 and
// U+2029, without their terminators and untrimmed. A text of at most one
// character (one UTF-16 unit) gives no line at all. The views point into text.
std::vector<std::string_view> componentsSeparatedByNewLineCharacters(std::string_view text);

// The same lines one at a time, without building the list.
class LineReader {
 public:
  explicit LineReader(std::string_view text);
  // The next non-empty line; false at the end.
  bool next(std::string_view* line);

 private:
  std::string_view text_;
  size_t pos_ = 0;
};

// White space or a line break (Unicode Z*, tab, U+000A-U+000D, U+0085).
bool isWhitespaceOrNewline(char32_t c);
// The view without white space and line breaks at either end.
std::string_view trimmedView(std::string_view s);
// The position after any white space and line breaks from pos on.
size_t skipWhitespaceAndNewlines(std::string_view s, size_t pos);

// The integer at the start of s: leading white space skipped, an optional
// sign, then decimal digits up to the first other character; 0 without
// digits; saturates at the int64 range.
int64_t integerValue(std::string_view s);

// Whether s holds more than n UTF-16 units (a character outside the Basic
// Multilingual Plane counts two). Stops reading after n + 1 units.
bool utf16LengthExceeds(std::string_view s, size_t n);


}  // namespace belvane::detail
