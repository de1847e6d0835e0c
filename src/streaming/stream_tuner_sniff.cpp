// Playlist or stream: content-type and extension hints, first-byte sniffing.
#include "streaming/stream_tuner_sniff.h"

#include "foundation/text_encoding.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace belvane::detail {

namespace {

struct TypeFormat {
  std::string_view type;
  TunerPlaylistFormat format;
};

constexpr std::array kPlaylistTypes = {
    TypeFormat{"audio/x-scpls", TunerPlaylistFormat::PLS},
    TypeFormat{"audio/scpls", TunerPlaylistFormat::PLS},
    TypeFormat{"audio/x-pls", TunerPlaylistFormat::PLS},
    TypeFormat{"application/pls", TunerPlaylistFormat::PLS},
    TypeFormat{"application/pls+xml", TunerPlaylistFormat::PLS},
    TypeFormat{"audio/x-mpegurl", TunerPlaylistFormat::M3U},
    TypeFormat{"audio/mpegurl", TunerPlaylistFormat::M3U},
    TypeFormat{"application/x-mpegurl", TunerPlaylistFormat::M3U},
    TypeFormat{"application/vnd.apple.mpegurl", TunerPlaylistFormat::M3U},
    TypeFormat{"video/x-ms-asf", TunerPlaylistFormat::ASX},  // also ASF streams: sniffed
    TypeFormat{"video/x-ms-asx", TunerPlaylistFormat::ASX},
    TypeFormat{"video/x-ms-wvx", TunerPlaylistFormat::ASX},
    TypeFormat{"video/x-ms-wax", TunerPlaylistFormat::ASX},
    TypeFormat{"audio/x-ms-wax", TunerPlaylistFormat::ASX},
    TypeFormat{"audio/x-ms-asx", TunerPlaylistFormat::ASX},
    TypeFormat{"application/xspf+xml", TunerPlaylistFormat::XSPF},
};

constexpr std::array kPlaylistExtensions = {
    TypeFormat{"pls", TunerPlaylistFormat::PLS}, TypeFormat{"m3u", TunerPlaylistFormat::M3U},
    TypeFormat{"m3u8", TunerPlaylistFormat::M3U}, TypeFormat{"asx", TunerPlaylistFormat::ASX},
    TypeFormat{"wax", TunerPlaylistFormat::ASX}, TypeFormat{"wvx", TunerPlaylistFormat::ASX},
    TypeFormat{"xspf", TunerPlaylistFormat::XSPF},
};

// Types that say nothing about what the body is.
constexpr std::array<std::string_view, 8> kVagueTypes = {
    "application/octet-stream", "binary/octet-stream", "application/xml",        "application/x-unknown",
    "application/unknown",      "application/download", "application/force-download", "content/unknown",
};

TunerPlaylistFormat formatForExtension(std::string_view extension) {
  std::string lower = asciiLower(extension);
  for (const auto& entry : kPlaylistExtensions)
    if (entry.type == lower) return entry.format;
  return TunerPlaylistFormat::None;
}

// Bytes that never occur in a text file but fill any compressed audio.
bool isBinary(std::span<const uint8_t> bytes) {
  return std::any_of(bytes.begin(), bytes.end(), [](uint8_t b) {
    return b < 0x09 || (b > 0x0D && b < 0x20 && b != 0x1B) || b == 0x7F;
  });
}

bool startsWith(std::string_view s, std::string_view prefix) { return s.substr(0, prefix.size()) == prefix; }

// "scheme://" at the start of s.
bool looksLikeAbsoluteURL(std::string_view s) {
  size_t i = 0;
  if (s.empty() || !((s[0] >= 'a' && s[0] <= 'z') || (s[0] >= 'A' && s[0] <= 'Z'))) return false;
  while (i < s.size() && (std::isalnum(static_cast<unsigned char>(s[i])) || s[i] == '+' || s[i] == '-' || s[i] == '.'))
    ++i;
  return s.substr(i, 3) == "://";
}

// The first line of text that is neither blank nor an M3U comment.
std::string_view firstEntryLine(std::string_view text) {
  size_t pos = 0;
  while (pos < text.size()) {
    size_t end = text.find_first_of("\r\n", pos);
    std::string_view line = text.substr(pos, end == std::string_view::npos ? std::string_view::npos : end - pos);
    size_t start = line.find_first_not_of(" \t");
    if (start != std::string_view::npos && line[start] != '#') return line.substr(start);
    if (end == std::string_view::npos) break;
    pos = end + 1;
  }
  return {};
}

}  // namespace

std::string tunerBareMIMEType(std::string_view contentType) {
  return asciiLower(trimSpacesAndTabs(contentType.substr(0, contentType.find(';'))));
}

TunerContentHint tunerContentHint(const std::optional<std::string>& contentType, std::string_view requestedExtension,
                                  std::string_view finalExtension) {
  std::string type = contentType ? tunerBareMIMEType(*contentType) : std::string();
  for (const auto& entry : kPlaylistTypes)
    if (entry.type == type) return {entry.format, true};
  for (std::string_view extension : {requestedExtension, finalExtension})
    if (auto format = formatForExtension(extension); format != TunerPlaylistFormat::None) return {format, true};
  bool vague = type.empty() || startsWith(type, "text/") ||
               std::find(kVagueTypes.begin(), kVagueTypes.end(), type) != kVagueTypes.end();
  return {TunerPlaylistFormat::None, vague};
}

TunerSniffResult tunerSniffFirstBytes(std::span<const uint8_t> bytes, TunerPlaylistFormat hinted, bool complete) {
  if (!complete && bytes.size() < kTunerSniffLength) return {TunerSniffVerdict::NeedMoreBytes};
  std::span<const uint8_t> head = bytes.first(std::min(bytes.size(), kTunerSniffLength));
  static constexpr uint8_t kBOM[] = {0xEF, 0xBB, 0xBF};
  if (head.size() >= 3 && std::equal(std::begin(kBOM), std::end(kBOM), head.begin())) head = head.subspan(3);
  if (isBinary(head)) return {TunerSniffVerdict::Stream};

  std::string text = asciiLower(std::string_view(reinterpret_cast<const char*>(head.data()), head.size()));
  std::string_view lead = text;
  lead.remove_prefix(std::min(lead.size(), lead.find_first_not_of(" \t\r\n\f")));

  if (lead.empty()) return {hinted == TunerPlaylistFormat::None ? TunerSniffVerdict::Stream : TunerSniffVerdict::Playlist, hinted};
  if (startsWith(lead, "[playlist]")) return {TunerSniffVerdict::Playlist, TunerPlaylistFormat::PLS};
  if (startsWith(lead, "#extm3u")) {
    if (tunerIsHLSText(text)) return {TunerSniffVerdict::HLS};
    return {TunerSniffVerdict::Playlist, TunerPlaylistFormat::M3U};
  }
  if (startsWith(lead, "<asx")) return {TunerSniffVerdict::Playlist, TunerPlaylistFormat::ASX};
  if (startsWith(lead, "<playlist")) return {TunerSniffVerdict::Playlist, TunerPlaylistFormat::XSPF};
  if (startsWith(lead, "<?xml") || startsWith(lead, "<!--")) {
    if (lead.find("<asx") != std::string_view::npos) return {TunerSniffVerdict::Playlist, TunerPlaylistFormat::ASX};
    if (lead.find("<playlist") != std::string_view::npos) return {TunerSniffVerdict::Playlist, TunerPlaylistFormat::XSPF};
  }
  if (hinted != TunerPlaylistFormat::None) {
    // Text under a playlist type or extension: an M3U with "#EXT-X-" tags
    // but no header is still HLS.
    if (hinted == TunerPlaylistFormat::M3U && tunerIsHLSText(text)) return {TunerSniffVerdict::HLS};
    return {TunerSniffVerdict::Playlist, hinted};
  }
  // A vague type: a plain list of addresses is an M3U; other text (a status
  // page) is offered as it is.
  if (looksLikeAbsoluteURL(firstEntryLine(lead))) return {TunerSniffVerdict::Playlist, TunerPlaylistFormat::M3U};
  return {TunerSniffVerdict::Stream};
}

bool tunerIsHLSText(std::string_view text) {
  // A line that begins with the tag prefix, in either case.
  size_t pos = 0;
  while (pos < text.size()) {
    if (text.size() - pos >= 7 && asciiLower(text.substr(pos, 7)) == "#ext-x-") return true;
    size_t end = text.find_first_of("\r\n", pos);
    if (end == std::string_view::npos) break;
    pos = end + 1;
  }
  return false;
}

bool tunerIsHLSContentType(const std::optional<std::string>& contentType) {
  if (!contentType) return false;
  std::string type = tunerBareMIMEType(*contentType);
  return type == "application/vnd.apple.mpegurl" || type == "application/x-mpegurl";
}

}  // namespace belvane::detail
