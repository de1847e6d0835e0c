// The one vocabulary of playlist formats, and telling them apart by a path
// extension, a MIME type or a text's first bytes. Pure functions: no I/O.
//
// Names come in two kinds. A format's own names (".m3u", "audio/x-scpls",
// ...) are enough to pick a reader. Loose names (".m3u8", "video/x-ms-asf",
// "audio/x-pls", ...) are ones servers send for a playlist but also for
// something else (an HLS playlist, an ASF stream) or that few programs know;
// they are only a hint, to be confirmed by the first bytes.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace belvane::detail {

enum class PlaylistFormat { None, M3U, PLS, ASX, XSPF };

enum class PlaylistNames {
  Own,    // a format's own extensions and MIME types only
  Loose,  // those and every loose name
};

// By a path extension (without the dot, any case).
PlaylistFormat playlistFormatForExtension(std::string_view extension, PlaylistNames names);

// By a content type as sent: parameters dropped, trimmed, any case.
PlaylistFormat playlistFormatForMIMEType(std::string_view contentType, PlaylistNames names);

// Whether the lower-cased content type holds the format's first own MIME
// type anywhere ("audio/x-mpegurl" in "foo, audio/x-mpegurl"), the test the
// web playlist readers apply to a server's answer.
bool contentTypeMentionsPlaylistFormat(std::string_view contentType, PlaylistFormat format);

// A content type without parameters, lower-cased and trimmed.
std::string bareMIMEType(std::string_view contentType);

// By the text's start: a byte-order mark and leading blanks skipped, then
// "[playlist]", "#EXTM3U", "<asx", "<playlist", or an XML declaration or
// comment before "<asx" or "<playlist" (any case). None for other text.
PlaylistFormat playlistFormatForFirstBytes(std::string_view head);

// An M3U text with a line starting "#EXT-X-" (any case) is an HLS playlist:
// one stream, not a list of stations.
bool isHLSPlaylistText(std::string_view text);
// The content type names an HLS playlist.
bool isHLSMIMEType(std::string_view contentType);

}  // namespace belvane::detail
