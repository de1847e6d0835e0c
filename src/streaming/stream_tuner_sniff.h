// Telling a station playlist from an audio stream: what a reply's content
// type and path extension suggest, and what its first bytes show.
//
// The content type alone is not trusted: servers label playlists as
// text/plain or application/octet-stream, ASX files and ASF streams share
// video/x-ms-asf, and a Shoutcast status page is text/html. So a reply whose
// type or extension leaves any doubt is decided by its first bytes.
#pragma once

#include "playlists/playlist_format.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace belvane::detail {

// The MIME type offered for an HLS playlist whose server named no HLS type.
inline constexpr const char* kTunerHLSMIMEType = "application/vnd.apple.mpegurl";
// Bytes looked at before a doubtful reply is called a stream.
inline constexpr size_t kTunerSniffLength = 512;

struct TunerContentHint {
  PlaylistFormat format = PlaylistFormat::None;  // named by type or extension
  bool needsFirstBytes = false;  // false: a stream, whatever follows
};

// The hint of a reply's content type (as sent, parameters allowed; absent
// when none) and of the path extensions of the requested and final URLs.
TunerContentHint tunerContentHint(const std::optional<std::string>& contentType, std::string_view requestedExtension,
                                  std::string_view finalExtension);

enum class TunerSniffVerdict { NeedMoreBytes, Stream, Playlist, HLS };
struct TunerSniffResult {
  TunerSniffVerdict verdict;
  PlaylistFormat format = PlaylistFormat::None;  // for Playlist
};

// Decides from the first bytes of a body (complete: nothing more will come)
// what a doubtful reply is; hinted is the format that type or extension named.
TunerSniffResult tunerSniffFirstBytes(std::span<const uint8_t> bytes, PlaylistFormat hinted, bool complete);

}  // namespace belvane::detail
