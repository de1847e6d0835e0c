// BVURLProbe: a URL's content type from its response or its first bytes.
#include <belvane/BVURLProbe.h>

#include "foundation/text_encoding.h"

#include <glib.h>

namespace {

constexpr double kProbeTimeout = 20.0;
constexpr const char* kShoutcastErrorDomain = "ORShoutcastErrorDomain";
constexpr const char* kShoutcastOfflineMessage = "This stream appears to be offline or otherwise unavailable.";

// Up to count characters of s starting at character index first (UTF-8
// aware; byte-wise when s is not valid UTF-8).
std::string_view characters(std::string_view s, size_t first, size_t count) {
  if (!g_utf8_validate(s.data(), gssize(s.size()), nullptr)) return s.substr(std::min(first, s.size()), count);
  const char* p = s.data();
  const char* end = s.data() + s.size();
  for (size_t i = 0; i < first && p < end; ++i) p = g_utf8_next_char(p);
  const char* q = p;
  for (size_t i = 0; i < count && q < end; ++i) q = g_utf8_next_char(q);
  return {p, size_t(q - p)};
}

size_t characterCount(std::string_view s) {
  if (!g_utf8_validate(s.data(), gssize(s.size()), nullptr)) return s.size();
  return size_t(g_utf8_strlen(s.data(), gssize(s.size())));
}

// A decimal integer at the start of s after leading white space; 0 when none.
int leadingInteger(std::string_view s) {
  size_t i = 0;
  while (i < s.size() && g_ascii_isspace(s[i])) ++i;
  bool negative = false;
  if (i < s.size() && (s[i] == '+' || s[i] == '-')) negative = s[i++] == '-';
  long value = 0;
  for (; i < s.size() && g_ascii_isdigit(s[i]) && value < 1000000; ++i) value = value * 10 + (s[i] - '0');
  return int(negative ? -value : value);
}

}  // namespace

std::shared_ptr<BVURLProbe> BVURLProbe::create(BVURL url) { return std::make_shared<BVURLProbe>(std::move(url)); }

std::optional<std::string> BVURLProbe::contentType() {
  auto probe = BVURLProbeThread::create();
  probe->downloadDataForURL(_URL, kProbeTimeout);
  _data = probe->data();

  // The HTTP header field, looked up with its usual spelling, wins.
  if (auto response = probe->response()) {
    const auto& fields = response->allHeaderFields();
    if (auto it = fields.find("Content-Type"); it != fields.end()) return it->second;
  }
  // Otherwise a Shoutcast-style header block among the first bytes.
  return contentTypeFromRawBytes(*_data);
}

std::optional<std::string> BVURLProbe::contentTypeFromRawBytes(std::span<const uint8_t> bytes) {
  // Each blank line (CR LF CR LF) ends a candidate header block that starts
  // at the first byte; the last one decides. Parsing the text up to the last
  // blank line gives exactly what re-parsing at every blank line would.
  static constexpr uint8_t kBlankLine[] = {'\r', '\n', '\r', '\n'};
  if (bytes.size() < 4) return std::nullopt;
  size_t end = 0;
  for (size_t i = bytes.size() - 4 + 1; i-- > 0;) {
    if (std::equal(std::begin(kBlankLine), std::end(kBlankLine), bytes.begin() + i)) {
      end = i + 4;
      break;
    }
  }
  if (end == 0) return std::nullopt;

  BVErrorRef ignored;
  std::string text = belvane::detail::latin1ToUTF8(bytes.first(end));
  BVHeaderDictionary fields = dictionaryWithAllKeysLowercase(parseHeader(text, &ignored));
  if (auto it = fields.find("content-type"); it != fields.end()) return it->second;
  return std::nullopt;
}

BVHeaderDictionary BVURLProbe::dictionaryWithAllKeysLowercase(const BVHeaderDictionary& dictionary) {
  BVHeaderDictionary result;
  for (const auto& [key, value] : dictionary)
    result[belvane::detail::utf8Lower(key)] = belvane::detail::trimSpacesAndTabs(value);
  return result;
}

BVHeaderDictionary BVURLProbe::parseHeader(std::string_view header, BVErrorRef* error) {
  BVHeaderDictionary fields;
  size_t start = 0;
  while (start <= header.size()) {
    size_t next = header.find("\r\n", start);
    std::string_view line = header.substr(start, next == std::string_view::npos ? std::string_view::npos : next - start);
    start = next == std::string_view::npos ? header.size() + 1 : next + 2;

    if (size_t colon = line.find(':'); colon != std::string_view::npos) {
      // The key keeps any space before the colon; only the value is trimmed.
      fields[belvane::detail::utf8Lower(line.substr(0, colon))] =
          belvane::detail::trimSpacesAndTabs(line.substr(colon + 1));
    } else if (line.substr(0, 4) == "ICY " && characterCount(line) > 7) {
      // "ICY 404 Not Found": the space and the three digits after "ICY".
      int code = leadingInteger(characters(line, 3, 4));
      if (code != 200 && error) {
        *error = BVError::create(kShoutcastErrorDomain, code,
                                 BVDictionary{{BVLocalizedDescriptionKey, BVValue(kShoutcastOfflineMessage)},
                                              {BVLocalizedFailureReasonErrorKey, BVValue(line)}});
      }
    }
  }
  return fields;
}
