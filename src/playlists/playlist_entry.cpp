// The attributes of the playlist entry that plays (see playlist_entry.h).
#include "playlists/playlist_entry.h"

#include <belvane/BVConstants.h>

#include "foundation/text_encoding.h"
#include "foundation/title_encoding.h"

namespace belvane::detail {

int64_t playlistEntryPlace(PlaylistFormat format, const PlaylistTrack& track, int64_t order) {
  if (format == PlaylistFormat::ASX) return track.number + 1;
  if (format == PlaylistFormat::PLS && track.number > 0) return track.number;
  return order;
}

std::string playlistEntryTitle(const std::optional<std::string>& title) {
  if (!title) return {};
  std::string trimmed = trimWhitespaceAndNewlines(*title);
  return isValidUTF8(bytesOf(trimmed)) ? trimmed : stationTitleToUTF8(bytesOf(trimmed));
}

BVDictionary playlistEntryAttributes(const std::optional<PlaylistEntry>& entry) {
  BVDictionary attributes;
  if (!entry || entry->index <= 0) return attributes;
  if (!entry->title.empty()) attributes[BVPlayerAttributePlaylistEntryTitleKey] = BVValue(entry->title);
  attributes[BVPlayerAttributePlaylistEntryIndexKey] = BVValue(entry->index);
  return attributes;
}

}  // namespace belvane::detail
