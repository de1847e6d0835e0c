// BVM3UWebPlaylist: plain and extended M3U.
#include <belvane/BVM3UWebPlaylist.h>

#include "playlists/parser_helpers.h"

namespace {

using namespace belvane::detail;

constexpr std::string_view kExtendedHeader = "#EXTM3U";
constexpr std::string_view kInfoPrefix = "#EXTINF:";

bool startsWith(std::string_view s, std::string_view prefix) { return s.substr(0, prefix.size()) == prefix; }

BVDictionary trackWithURL(std::string_view url) {
  BVDictionary track;
  track.emplace(kPlaylistAttributeTrackURL, BVValue(url));
  return track;
}

}  // namespace

std::shared_ptr<BVM3UWebPlaylist> BVM3UWebPlaylist::create() {
  return std::shared_ptr<BVM3UWebPlaylist>(new BVM3UWebPlaylist());
}

bool BVM3UWebPlaylist::canInitWithURL(const BVURL& url) { return equalsIgnoringASCIICase(url.pathExtension(), "m3u"); }

bool BVM3UWebPlaylist::canInitWithMIMEType(const std::optional<std::string>& mimeType) {
  return !mimeType || lowercaseString(*mimeType).find("audio/x-mpegurl") != std::string::npos;
}

void BVM3UWebPlaylist::generateTracksFromString(std::string_view string) {
  LineReader lines(string);
  std::string_view first;
  // The first line is read unconditionally; a text without lines has no tracks.
  if (!lines.next(&first)) return;

  const bool extended = startsWith(first, kExtendedHeader);
  // A plain playlist's first line is always a URL, even when it is a comment.
  if (!extended && !trimmedView(first).empty()) insertObject(trackWithURL(first), countOfTracks());

  std::string_view line;
  while (lines.next(&line)) {
    if (line.front() != '#') {
      std::string_view url = trimmedView(line);
      if (!url.empty()) insertObject(trackWithURL(url), countOfTracks());
      continue;
    }
    if (!extended || !startsWith(line, kInfoPrefix)) continue;  // a comment

    // "#EXTINF:duration,title"; without a comma everything is the title. The
    // next line is the URL as it stands, whatever it holds; an information
    // line at the end has no URL and is dropped.
    std::string_view info = line.substr(kInfoPrefix.size());
    std::string_view url;
    if (!lines.next(&url)) break;
    // Keys go in in their sorted order (Duration, Title, URL), each at the end.
    BVDictionary track;
    size_t comma = info.find(',');
    if (comma != std::string_view::npos) {
      track.emplace_hint(track.end(), kPlaylistAttributeTrackDuration, BVValue(integerValue(info.substr(0, comma))));
      track.emplace_hint(track.end(), kPlaylistAttributeTrackTitle, BVValue(info.substr(comma + 1)));
    } else {
      track.emplace_hint(track.end(), kPlaylistAttributeTrackTitle, BVValue(info));
    }
    track.emplace_hint(track.end(), kPlaylistAttributeTrackURL, BVValue(url));
    insertObject(BVValue(std::move(track)), countOfTracks());
  }
}
