// Playlist or stream: the format registry's names and signatures, and what
// the tuner makes of a reply that matches none of them.
#include "streaming/stream_tuner_sniff.h"

#include "foundation/text_encoding.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace belvane::detail {

namespace {

// Types that say nothing about what the body is.
constexpr std::array<std::string_view, 8> kVagueTypes = {
    "application/octet-stream", "binary/octet-stream", "application/xml",        "application/x-unknown",
    "application/unknown",      "application/download", "application/force-download", "content/unknown",
};

// Bytes that never occur in a text file but fill any compressed audio.
bool isBinary(std::span<const uint8_t> bytes) {
  return std::any_of(bytes.begin(), bytes.end(), [](uint8_t b) {
    return b < 0x09 || (b > 0x0D && b < 0x20 && b != 0x1B) || b == 0x7F;
  });
}

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

TunerContentHint tunerContentHint(const std::optional<std::string>& contentType, std::string_view requestedExtension,
                                  std::string_view finalExtension) {
  // Loose names too: whatever they name is confirmed by the first bytes.
  std::string type = contentType ? bareMIMEType(*contentType) : std::string();
  if (auto format = playlistFormatForMIMEType(type, PlaylistNames::Loose); format != PlaylistFormat::None)
    return {format, true};
  for (std::string_view extension : {requestedExtension, finalExtension})
    if (auto format = playlistFormatForExtension(extension, PlaylistNames::Loose); format != PlaylistFormat::None)
      return {format, true};
  bool vague = type.empty() || hasPrefix(type, "text/") ||
               std::find(kVagueTypes.begin(), kVagueTypes.end(), type) != kVagueTypes.end();
  return {PlaylistFormat::None, vague};
}

TunerSniffResult tunerSniffFirstBytes(std::span<const uint8_t> bytes, PlaylistFormat hinted, bool complete) {
  if (!complete && bytes.size() < kTunerSniffLength) return {TunerSniffVerdict::NeedMoreBytes};
  std::span<const uint8_t> head = bytes.first(std::min(bytes.size(), kTunerSniffLength));
  std::string_view headText(reinterpret_cast<const char*>(head.data()), head.size());
  static constexpr uint8_t kBOM[] = {0xEF, 0xBB, 0xBF};
  if (head.size() >= 3 && std::equal(std::begin(kBOM), std::end(kBOM), head.begin())) head = head.subspan(3);
  if (isBinary(head)) return {TunerSniffVerdict::Stream};

  if (PlaylistFormat format = playlistFormatForFirstBytes(headText); format != PlaylistFormat::None) {
    if (format == PlaylistFormat::M3U && isHLSPlaylistText(headText)) return {TunerSniffVerdict::HLS};
    return {TunerSniffVerdict::Playlist, format};
  }
  std::string text = asciiLower(std::string_view(reinterpret_cast<const char*>(head.data()), head.size()));
  std::string_view lead = text;
  lead.remove_prefix(std::min(lead.size(), lead.find_first_not_of(" \t\r\n\f")));
  if (lead.empty()) return {hinted == PlaylistFormat::None ? TunerSniffVerdict::Stream : TunerSniffVerdict::Playlist, hinted};
  if (hinted != PlaylistFormat::None) {
    // Text under a playlist type or extension: an M3U with "#EXT-X-" tags
    // but no header is still HLS.
    if (hinted == PlaylistFormat::M3U && isHLSPlaylistText(text)) return {TunerSniffVerdict::HLS};
    return {TunerSniffVerdict::Playlist, hinted};
  }
  // A vague type: a plain list of addresses is an M3U; other text (a status
  // page) is offered as it is.
  if (looksLikeAbsoluteURL(firstEntryLine(lead))) return {TunerSniffVerdict::Playlist, PlaylistFormat::M3U};
  return {TunerSniffVerdict::Stream};
}

}  // namespace belvane::detail
