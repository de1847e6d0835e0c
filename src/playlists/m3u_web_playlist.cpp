// BVM3UWebPlaylist: plain and extended M3U, parsed by the format registry.
#include <belvane/BVM3UWebPlaylist.h>

#include "playlists/playlist_format.h"
#include "playlists/playlist_text_parser.h"

using namespace belvane::detail;

std::shared_ptr<BVM3UWebPlaylist> BVM3UWebPlaylist::create() {
  return std::shared_ptr<BVM3UWebPlaylist>(new BVM3UWebPlaylist());
}

bool BVM3UWebPlaylist::canInitWithURL(const BVURL& url) {
  return playlistFormatForExtension(url.pathExtension(), PlaylistNames::Own) == PlaylistFormat::M3U;
}

bool BVM3UWebPlaylist::canInitWithMIMEType(const std::optional<std::string>& mimeType) {
  return !mimeType || contentTypeMentionsPlaylistFormat(*mimeType, PlaylistFormat::M3U);
}

void BVM3UWebPlaylist::generateTracksFromString(std::string_view string) {
  parsePlaylistText(PlaylistFormat::M3U, string, [this](PlaylistTrack&& track) {
    // Keys go in in their sorted order (Duration, Title, URL), each at the end.
    BVDictionary fields;
    if (track.duration) fields.emplace_hint(fields.end(), kPlaylistAttributeTrackDuration, BVValue(*track.duration));
    if (track.title) fields.emplace_hint(fields.end(), kPlaylistAttributeTrackTitle, BVValue(std::move(*track.title)));
    fields.emplace_hint(fields.end(), kPlaylistAttributeTrackURL, BVValue(std::move(*track.url)));
    insertObject(BVValue(std::move(fields)), countOfTracks());
  });
}
