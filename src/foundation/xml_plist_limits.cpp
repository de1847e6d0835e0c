// Bounds the nesting of an XML property list before libplist reads it:
// libplist frees a tree recursively (also when it gives up on a malformed
// document), so a deeply nested document could exhaust the stack.
#include "foundation/plist_bridge.h"

#include <cstring>
#include <string_view>

namespace belvane::detail {
namespace {

class Scanner {
 public:
  explicit Scanner(std::span<const uint8_t> bytes)
      : text_(reinterpret_cast<const char*>(bytes.data()), bytes.size()) {}

  bool atEnd() const { return pos_ >= text_.size(); }
  bool startsWith(std::string_view s) const { return text_.substr(pos_, s.size()) == s; }
  void advance(size_t n) { pos_ = std::min(text_.size(), pos_ + n); }
  char current() const { return text_[pos_]; }
  char previous() const { return text_[pos_ - 1]; }

  // Moves past the next occurrence of marker; false when there is none.
  bool skipPast(std::string_view marker) {
    size_t found = text_.find(marker, pos_);
    if (found == std::string_view::npos) return false;
    pos_ = found + marker.size();
    return true;
  }
  // Moves to the next character of set; false when there is none.
  bool skipTo(std::string_view set) {
    size_t found = text_.find_first_of(set, pos_);
    if (found == std::string_view::npos) return false;
    pos_ = found;
    return true;
  }
  std::string_view from(size_t start) const { return text_.substr(start, pos_ - start); }
  size_t position() const { return pos_; }

 private:
  std::string_view text_;
  size_t pos_ = 0;
};

}  // namespace

bool xmlPlistNestingWithin(std::span<const uint8_t> bytes, size_t maxDepth) {
  // libplist asserts that strings hold no NUL character.
  if (std::memchr(bytes.data(), 0, bytes.size())) return false;
  Scanner scan(bytes);
  size_t depth = 0;
  // Each early "return true" is a place where the reader stops with an
  // error: it has built nothing deeper than what was counted so far.
  while (scan.skipTo("<")) {
    scan.advance(1);
    if (scan.startsWith("!--")) {
      if (!scan.skipPast("-->")) return true;
    } else if (scan.startsWith("![CDATA[")) {
      if (!scan.skipPast("]]>")) return true;
    } else if (scan.startsWith("?")) {
      if (!scan.skipPast("?>")) return true;
    } else if (scan.startsWith("!DOCTYPE")) {
      scan.advance(8);
      // An internal subset runs to "]>", otherwise the DOCTYPE ends at '>'.
      if (!scan.skipTo("[>")) return true;
      if (scan.current() == '>') {
        scan.advance(1);
      } else if (!scan.skipPast("]>")) {
        return true;
      }
    } else if (scan.startsWith("!")) {
      return true;
    } else {
      // A tag: its name runs to white space or an angle bracket, the tag
      // itself to the next '>'; another '<' first is an error.
      size_t start = scan.position();
      if (!scan.skipTo(" \r\n\t<>")) return true;
      std::string_view name = scan.from(start);
      if (!scan.skipTo("<>") || scan.current() != '>') return true;
      bool empty = scan.previous() == '/';
      scan.advance(1);
      if (empty && !name.empty() && name.back() == '/') name.remove_suffix(1);
      if (name == "array" || name == "dict") {
        if (!empty && ++depth > maxDepth) return false;
      } else if (!empty && (name == "/array" || name == "/dict")) {
        if (depth > 0) --depth;
      }
    }
  }
  return true;
}

}  // namespace belvane::detail
