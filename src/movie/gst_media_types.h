// What the installed GStreamer can play: the file types it can recognise and
// demux or decode, and whether it can open a URL. Stands in for the general
// media engine's type list and its "can open this URL" question.
#pragma once

#include <belvane/BVURL.h>

#include <string>
#include <vector>

namespace belvane::detail {

// Initialises GStreamer once per process; false when that failed.
bool ensureGStreamer();

// File extensions (lower case, sorted, unique) of every type that a type
// finder recognises and that a demuxer or decoder of at least marginal rank
// (one that automatic plugging would use) accepts.
std::vector<std::string> gstreamerPlayableFileExtensions();

// A source element handles the URL's scheme and, for a file URL, type
// finding recognises the file as a type such an element accepts.
bool gstreamerCanOpenURL(const BVURL& url);

}  // namespace belvane::detail
