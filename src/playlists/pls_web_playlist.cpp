// BVPLSWebPlaylist: "[playlist]" files, parsed by the format registry.
#include <belvane/BVPLSWebPlaylist.h>

#include "playlists/parser_helpers.h"
#include "playlists/playlist_format.h"
#include "playlists/playlist_text_parser.h"

using namespace belvane::detail;

std::shared_ptr<BVPLSWebPlaylist> BVPLSWebPlaylist::create() {
  return std::shared_ptr<BVPLSWebPlaylist>(new BVPLSWebPlaylist());
}

bool BVPLSWebPlaylist::canInitWithURL(const BVURL& url) {
  return playlistFormatForExtension(url.pathExtension(), PlaylistNames::Own) == PlaylistFormat::PLS;
}

bool BVPLSWebPlaylist::canInitWithMIMEType(const std::optional<std::string>& mimeType) {
  return !mimeType || contentTypeMentionsPlaylistFormat(*mimeType, PlaylistFormat::PLS);
}

std::string BVPLSWebPlaylist::standardAttribForPLSAttrib(std::string_view attribute) {
  // Only ASCII names can lower-case to "file", "length" or "title" (no other
  // character lower-cases to these letters).
  if (equalsIgnoringASCIICase(attribute, "file")) return kPlaylistAttributeTrackURL;
  if (equalsIgnoringASCIICase(attribute, "length")) return kPlaylistAttributeTrackDuration;
  if (equalsIgnoringASCIICase(attribute, "title")) return kPlaylistAttributeTrackTitle;
  return std::string(attribute);
}

void BVPLSWebPlaylist::generateTracksFromString(std::string_view string) {
  // Tracks come in ascending order of number; inserting each at the index of
  // its number appends whenever the index is past the end: gaps closed.
  parsePlaylistText(PlaylistFormat::PLS, string, [this](PlaylistTrack&& track) {
    BVDictionary fields;
    fields.emplace(kPlaylistAttributeTrackNumber, BVValue(track.number));
    if (track.url) fields.emplace(kPlaylistAttributeTrackURL, BVValue(std::move(*track.url)));
    if (track.durationText) fields.emplace(kPlaylistAttributeTrackDuration, BVValue(std::move(*track.durationText)));
    if (track.title) fields.emplace(kPlaylistAttributeTrackTitle, BVValue(std::move(*track.title)));
    // Other keys keep their names, even one spelt like a key above.
    for (auto& [name, value] : track.otherAttributes) fields.insert_or_assign(std::move(name), BVValue(std::move(value)));
    insertObject(BVValue(std::move(fields)), size_t(track.number));
  });
}
