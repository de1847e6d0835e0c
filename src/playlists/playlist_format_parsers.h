// The per-format parsers behind parsePlaylistText (playlist_text_parser.h),
// one file each.
#pragma once

#include "playlists/playlist_text_parser.h"

struct _xmlNode;

namespace belvane::detail {

void parseM3UText(std::string_view text, const PlaylistTrackSink& sink);
void parsePLSText(std::string_view text, const PlaylistTrackSink& sink);
void parseASXText(std::string_view text, const PlaylistTrackSink& sink, std::vector<std::string>* diagnostics);
void parseXSPFText(std::string_view text, const PlaylistTrackSink& sink);

// Lower-cases the names of node, of its attributes and of every element and
// attribute below it, without recursion.
void lowercaseXMLNodeNames(_xmlNode* node);

}  // namespace belvane::detail
