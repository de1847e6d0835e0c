// BVASXWebPlaylist: Windows Media metafiles, parsed by the format registry;
// its diagnostics go to the log.
#include <belvane/BVASXWebPlaylist.h>
#include <belvane/BVKitOwner.h>

#include "playlists/playlist_format.h"
#include "playlists/playlist_format_parsers.h"
#include "playlists/playlist_text_parser.h"

using namespace belvane::detail;

namespace {

// A track's dictionary: its first URL and, when it has several, all of them.
BVValue trackValue(PlaylistTrack&& track) {
  BVDictionary fields;
  fields.emplace(kPlaylistAttributeTrackURL, BVValue(std::move(*track.url)));
  if (track.title) fields.emplace(kPlaylistAttributeTrackTitle, BVValue(std::move(*track.title)));
  if (!track.alternateURLs.empty()) {
    BVArray urls(std::make_move_iterator(track.alternateURLs.begin()), std::make_move_iterator(track.alternateURLs.end()));
    fields.emplace(kPlaylistAttributeAlternateTrackURLs, BVValue(std::move(urls)));
  }
  return BVValue(std::move(fields));
}

}  // namespace

std::shared_ptr<BVASXWebPlaylist> BVASXWebPlaylist::create() {
  return std::shared_ptr<BVASXWebPlaylist>(new BVASXWebPlaylist());
}

bool BVASXWebPlaylist::canInitWithURL(const BVURL& url) {
  return playlistFormatForExtension(url.pathExtension(), PlaylistNames::Own) == PlaylistFormat::ASX;
}

bool BVASXWebPlaylist::canInitWithMIMEType(const std::optional<std::string>& mimeType) {
  return !mimeType || contentTypeMentionsPlaylistFormat(*mimeType, PlaylistFormat::ASX);
}

void BVASXWebPlaylist::lowercaseNodeNamesInXMLNode(_xmlNode* node) { lowercaseXMLNodeNames(node); }

// Each track goes in at its entry's index (past the end: appended); the tag
// scanner's one track goes in at the front as often as it stands for
// entries, the same dictionary every time.
void BVASXWebPlaylist::generateTracksFromString(std::string_view string) {
  std::vector<std::string> diagnostics;
  auto insert = [this](PlaylistTrack&& track) {
    size_t copies = track.occurrences, index = size_t(track.number);
    if (copies == 1)
      insertObject(trackValue(std::move(track)), index);
    else
      insertCopies(trackValue(std::move(track)), copies, index);
  };
  parsePlaylistText(PlaylistFormat::ASX, string, insert, &diagnostics);
  for (const std::string& message : diagnostics) BVLogString(message);
}

void BVASXWebPlaylist::generateTracksFromStringUsingFallbackParser(std::string_view string) {
  parseASXTextWithTagScanner(string, [this](PlaylistTrack&& track) {
    size_t copies = track.occurrences;
    insertCopies(trackValue(std::move(track)), copies, 0);
  });
}
