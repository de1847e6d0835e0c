// The ASX tag scanner. It walks the text like a scanner that skips white
// space and line breaks before every token: up to "<", then the tag text up
// to ">", and looks at the lower-cased tag's beginning.
#include "playlists/asx_fallback_scanner.h"

#include "playlists/parser_helpers.h"

namespace belvane::detail {

namespace {

// Scans from pos (after skipping white space) up to stop or the end. Returns
// whether anything was scanned; *scanned receives it, pos ends at stop.
bool scanUpTo(std::string_view s, size_t& pos, std::string_view stop, std::string_view* scanned) {
  pos = skipWhitespaceAndNewlines(s, pos);
  size_t found = s.find(stop, pos);
  if (found == std::string_view::npos) found = s.size();
  if (found == pos) return false;
  if (scanned) *scanned = s.substr(pos, found - pos);
  pos = found;
  return true;
}

// Consumes literal (after skipping white space) when it comes next.
bool scanLiteral(std::string_view s, size_t& pos, std::string_view literal) {
  size_t p = skipWhitespaceAndNewlines(s, pos);
  if (s.substr(p, literal.size()) != literal) return false;
  pos = p + literal.size();
  return true;
}

bool atEnd(std::string_view s, size_t pos) { return skipWhitespaceAndNewlines(s, pos) >= s.size(); }

// The href value of a lower-cased ref tag, with the scanner's quirks: the
// value runs to the first quote-slash pair (or the tag's end), and an empty
// one leaves the marker text itself as the value.
bool refURL(std::string_view tag, std::string* url) {
  constexpr std::string_view marker = "href=\"";
  size_t pos = 0;
  if (!scanUpTo(tag, pos, marker, nullptr)) return false;
  if (!scanLiteral(tag, pos, marker)) return false;
  std::string_view value;
  if (scanUpTo(tag, pos, "\"/", &value))
    *url = std::string(value);
  else
    *url = std::string(marker);
  return true;
}

}  // namespace

ASXScanResult scanASXTags(std::string_view text) {
  ASXScanResult result;
  bool insideEntry = false;
  size_t pos = 0;
  while (!atEnd(text, pos)) {
    scanUpTo(text, pos, "<", nullptr);
    scanLiteral(text, pos, "<");
    std::string_view rawTag;
    bool gotTag = scanUpTo(text, pos, ">", &rawTag);
    bool reachedEnd = atEnd(text, pos);
    if (gotTag) {
      std::string tag = utf8Lower(rawTag);
      if (hasPrefix(tag, "!--")) {
        // a comment
      } else if (hasPrefix(tag, "/entry")) {
        if (!result.urls.empty()) ++result.entryInsertions;
        insideEntry = false;
      } else if (hasPrefix(tag, "entry")) {
        insideEntry = true;
      } else if (insideEntry && hasPrefix(tag, "ref")) {
        std::string url;
        if (refURL(tag, &url)) result.urls.push_back(std::move(url));
      }
    }
    if (reachedEnd) break;
  }
  return result;
}

}  // namespace belvane::detail
