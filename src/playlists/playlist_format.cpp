// Playlist format detection: the name tables and the first-byte signatures.
#include "playlists/playlist_format.h"

#include "foundation/mime_type.h"
#include "foundation/text_encoding.h"
#include "playlists/parser_helpers.h"

#include <array>

namespace belvane::detail {

namespace {

struct Name {
  std::string_view name;
  PlaylistFormat format;
  PlaylistNames kind;
};

// A format's first own MIME type is the one its reader looks for.
constexpr std::array kMIMETypes = {
    Name{"audio/x-mpegurl", PlaylistFormat::M3U, PlaylistNames::Own},
    Name{"audio/mpegurl", PlaylistFormat::M3U, PlaylistNames::Own},
    Name{"application/x-mpegurl", PlaylistFormat::M3U, PlaylistNames::Loose},  // mostly HLS
    Name{"application/vnd.apple.mpegurl", PlaylistFormat::M3U, PlaylistNames::Loose},
    Name{"audio/x-scpls", PlaylistFormat::PLS, PlaylistNames::Own},
    Name{"application/pls+xml", PlaylistFormat::PLS, PlaylistNames::Own},
    Name{"audio/scpls", PlaylistFormat::PLS, PlaylistNames::Loose},
    Name{"audio/x-pls", PlaylistFormat::PLS, PlaylistNames::Loose},
    Name{"application/pls", PlaylistFormat::PLS, PlaylistNames::Loose},
    Name{"video/x-ms-wvx", PlaylistFormat::ASX, PlaylistNames::Own},
    Name{"video/x-ms-asx", PlaylistFormat::ASX, PlaylistNames::Own},
    Name{"video/x-ms-wax", PlaylistFormat::ASX, PlaylistNames::Own},
    Name{"audio/x-ms-wax", PlaylistFormat::ASX, PlaylistNames::Own},
    Name{"audio/x-ms-asx", PlaylistFormat::ASX, PlaylistNames::Loose},
    Name{"video/x-ms-asf", PlaylistFormat::ASX, PlaylistNames::Loose},  // also ASF streams
    Name{"application/xspf+xml", PlaylistFormat::XSPF, PlaylistNames::Own},
};

constexpr std::array kExtensions = {
    Name{"m3u", PlaylistFormat::M3U, PlaylistNames::Own},   Name{"m3u8", PlaylistFormat::M3U, PlaylistNames::Loose},
    Name{"pls", PlaylistFormat::PLS, PlaylistNames::Own},   Name{"asx", PlaylistFormat::ASX, PlaylistNames::Own},
    Name{"wax", PlaylistFormat::ASX, PlaylistNames::Own},   Name{"wvx", PlaylistFormat::ASX, PlaylistNames::Loose},
    Name{"xspf", PlaylistFormat::XSPF, PlaylistNames::Own},
};

template <size_t N>
PlaylistFormat lookUp(const std::array<Name, N>& table, std::string_view lowered, PlaylistNames names) {
  for (const auto& entry : table)
    if (entry.name == lowered && (names == PlaylistNames::Loose || entry.kind == PlaylistNames::Own))
      return entry.format;
  return PlaylistFormat::None;
}

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f'; }

}  // namespace

std::string bareMIMEType(std::string_view contentType) {
  return mimeTypeWithoutParameters(contentType);
}

PlaylistFormat playlistFormatForExtension(std::string_view extension, PlaylistNames names) {
  return lookUp(kExtensions, asciiLower(extension), names);
}

PlaylistFormat playlistFormatForMIMEType(std::string_view contentType, PlaylistNames names) {
  return lookUp(kMIMETypes, bareMIMEType(contentType), names);
}

bool contentTypeMentionsPlaylistFormat(std::string_view contentType, PlaylistFormat format) {
  for (const auto& entry : kMIMETypes)
    if (entry.format == format) return utf8Lower(contentType).find(entry.name) != std::string::npos;
  return false;
}

PlaylistFormat playlistFormatForFirstBytes(std::string_view head) {
  if (hasPrefix(head, "\xEF\xBB\xBF")) head.remove_prefix(3);
  std::string lowered = asciiLower(head);
  std::string_view lead = lowered;
  while (!lead.empty() && isBlank(lead.front())) lead.remove_prefix(1);
  if (hasPrefix(lead, "[playlist]")) return PlaylistFormat::PLS;
  if (hasPrefix(lead, "#extm3u")) return PlaylistFormat::M3U;
  if (hasPrefix(lead, "<asx")) return PlaylistFormat::ASX;
  if (hasPrefix(lead, "<playlist")) return PlaylistFormat::XSPF;
  if (hasPrefix(lead, "<?xml") || hasPrefix(lead, "<!--")) {
    if (lead.find("<asx") != std::string_view::npos) return PlaylistFormat::ASX;
    if (lead.find("<playlist") != std::string_view::npos) return PlaylistFormat::XSPF;
  }
  return PlaylistFormat::None;
}

bool isHLSPlaylistText(std::string_view text) {
  size_t pos = 0;
  while (pos < text.size()) {
    if (hasPrefixIgnoringASCIICase(text.substr(pos), "#ext-x-")) return true;
    size_t end = text.find_first_of("\r\n", pos);
    if (end == std::string_view::npos) break;
    pos = end + 1;
  }
  return false;
}

bool isHLSMIMEType(std::string_view contentType) {
  std::string type = bareMIMEType(contentType);
  return type == "application/vnd.apple.mpegurl" || type == "application/x-mpegurl";
}

}  // namespace belvane::detail
