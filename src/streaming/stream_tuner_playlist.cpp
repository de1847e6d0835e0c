// Station playlist entries: the format registry's tracks, and resolution of
// relative entries.
#include "streaming/stream_tuner_playlist.h"

#include <belvane/BVKitOwner.h>

#include "foundation/text_encoding.h"
#include "playlists/playlist_text_parser.h"

#include <glib.h>

#include <algorithm>

namespace belvane::detail {

namespace {

std::string replaceAll(std::string s, std::string_view from, std::string_view to) {
  for (size_t pos = 0; (pos = s.find(from, pos)) != std::string::npos; pos += to.size()) s.replace(pos, from.size(), to);
  return s;
}

}  // namespace

std::vector<TunerPlaylistEntry> tunerPlaylistEntries(PlaylistFormat format, std::string_view text) {
  // Every track's URLs, or for an ASX entry all its references in order,
  // each with the track's title and place.
  std::vector<std::string> raw;
  std::vector<PlaylistEntry> rawEntries;
  std::vector<std::string> diagnostics;
  int64_t order = 0;
  parsePlaylistText(format, text, [&](PlaylistTrack&& track) {
    PlaylistEntry entry{playlistEntryTitle(track.title), playlistEntryPlace(format, track, ++order)};
    if (!track.alternateURLs.empty()) {
      raw.insert(raw.end(), std::make_move_iterator(track.alternateURLs.begin()),
                 std::make_move_iterator(track.alternateURLs.end()));
      rawEntries.resize(raw.size(), entry);
    } else if (track.url) {
      raw.push_back(std::move(*track.url));
      rawEntries.push_back(std::move(entry));
    }
  }, &diagnostics);
  for (const std::string& message : diagnostics) BVLogString(message);
  // The ASX parser lower-cases what it reads.
  if (format == PlaylistFormat::ASX) raw = tunerRestoreASXSpelling(raw, text);
  std::vector<TunerPlaylistEntry> entries;
  for (size_t i = 0; i < raw.size(); ++i) {
    std::string trimmed = trimWhitespaceAndNewlines(raw[i]);
    // A plain M3U's first line counts as an entry even when it is a comment.
    if (trimmed.empty() || trimmed[0] == '#') continue;
    if (std::any_of(entries.begin(), entries.end(), [&](const auto& e) { return e.text == trimmed; })) continue;
    entries.push_back({std::move(trimmed), rawEntries[i]});
    if (entries.size() == kTunerMaximumPlaylistEntries) break;
  }
  return entries;
}

std::optional<BVURL> tunerResolveEntry(std::string_view entry, const BVURL& base) {
  auto url = BVURL::URLWithStringRelativeTo(entry, base);
  if (!url) {
    // Blanks and non-ASCII characters as written by hand; reserved
    // characters and existing escapes stay.
    std::string copy(entry);
    gchar* escaped = g_uri_escape_string(copy.c_str(), "!$&'()*+,;=:@/?#[]%~", FALSE);
    url = BVURL::URLWithStringRelativeTo(escaped, base);
    g_free(escaped);
  }
  // A one-letter scheme is a Windows drive ("C:\Music\..."), no address.
  if (!url || url->scheme().size() < 2) return std::nullopt;
  return url;
}

std::vector<std::string> tunerRestoreASXSpelling(const std::vector<std::string>& urls, std::string_view text) {
  std::string lowered = utf8Lower(text);
  // Positions carry over only when lower-casing kept every length.
  if (lowered.size() != text.size()) return urls;
  std::vector<std::string> restored;
  size_t from = 0;
  for (const std::string& url : urls) {
    std::string result = url;
    for (const std::string& written : {url, replaceAll(url, "&", "&amp;")}) {
      size_t pos = lowered.find(written, from);
      if (pos == std::string::npos) pos = lowered.find(written);
      if (pos == std::string::npos) continue;
      result = replaceAll(std::string(text.substr(pos, written.size())), "&amp;", "&");
      from = pos + written.size();
      break;
    }
    restored.push_back(std::move(result));
  }
  return restored;
}

}  // namespace belvane::detail
