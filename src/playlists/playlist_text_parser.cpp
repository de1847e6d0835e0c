// parsePlaylistText: the choice of parser, and the M3U parser, which is
// short enough to live beside it.
#include "playlists/playlist_text_parser.h"

#include "playlists/parser_helpers.h"
#include "playlists/playlist_format_parsers.h"

namespace belvane::detail {

namespace {

constexpr std::string_view kExtendedHeader = "#EXTM3U";
constexpr std::string_view kInfoPrefix = "#EXTINF:";

}  // namespace

void parseM3UText(std::string_view text, const PlaylistTrackSink& sink) {
  LineReader lines(text);
  std::string_view first;
  // The first line is read unconditionally; a text without lines has no tracks.
  if (!lines.next(&first)) return;
  int64_t number = 0;
  auto emit = [&](PlaylistTrack&& track) {
    track.number = number++;
    sink(std::move(track));
  };

  const bool extended = hasPrefix(first, kExtendedHeader);
  // A plain playlist's first line is always a URL, even when it is a comment.
  if (!extended && !trimmedView(first).empty()) emit(PlaylistTrack{.url = std::string(first)});

  std::string_view line;
  while (lines.next(&line)) {
    if (line.front() != '#') {
      std::string_view url = trimmedView(line);
      if (!url.empty()) emit(PlaylistTrack{.url = std::string(url)});
      continue;
    }
    if (!extended || !hasPrefix(line, kInfoPrefix)) continue;  // a comment

    // "#EXTINF:duration,title"; without a comma everything is the title. The
    // next line is the URL as it stands, whatever it holds; an information
    // line at the end has no URL and is dropped.
    std::string_view info = line.substr(kInfoPrefix.size());
    std::string_view url;
    if (!lines.next(&url)) break;
    PlaylistTrack track{.url = std::string(url)};
    size_t comma = info.find(',');
    if (comma != std::string_view::npos) {
      track.duration = integerValue(info.substr(0, comma));
      track.title = std::string(info.substr(comma + 1));
    } else {
      track.title = std::string(info);
    }
    emit(std::move(track));
  }
}

void parsePlaylistText(PlaylistFormat format, std::string_view text, const PlaylistTrackSink& sink,
                       std::vector<std::string>* diagnostics) {
  switch (format) {
    case PlaylistFormat::M3U: parseM3UText(text, sink); break;
    case PlaylistFormat::PLS: parsePLSText(text, sink); break;
    case PlaylistFormat::ASX: parseASXText(text, sink, diagnostics); break;
    case PlaylistFormat::XSPF: parseXSPFText(text, sink); break;
    case PlaylistFormat::None: break;
  }
}

std::vector<PlaylistTrack> parsePlaylistText(PlaylistFormat format, std::string_view text) {
  std::vector<PlaylistTrack> tracks;
  parsePlaylistText(format, text, [&](PlaylistTrack&& track) { tracks.push_back(std::move(track)); });
  return tracks;
}

std::vector<std::string> playlistTrackURLs(const PlaylistTrack& track) {
  if (!track.alternateURLs.empty()) return track.alternateURLs;
  if (track.url) return {*track.url};
  return {};
}

}  // namespace belvane::detail
