// The PLS parser: "[playlist]" files of numbered key=value lines.
#include "playlists/parser_helpers.h"
#include "playlists/playlist_format_parsers.h"

#include <glib.h>

#include <algorithm>
#include <deque>
#include <map>

namespace belvane::detail {

namespace {

// Steps over characters at the front and back of s while pred holds; ASCII
// characters on a fast path, others decoded.
template <class Pred>
std::string_view trimCharacters(std::string_view s, Pred pred) {
  size_t begin = 0;
  while (begin < s.size()) {
    unsigned char b = static_cast<unsigned char>(s[begin]);
    if (b < 0x80) {
      if (!pred(gunichar(b))) break;
      ++begin;
      continue;
    }
    const char* p = s.data() + begin;
    gunichar c = g_utf8_get_char_validated(p, gssize(s.size() - begin));
    if (c == gunichar(-1) || c == gunichar(-2) || !pred(c)) break;
    begin += size_t(g_utf8_next_char(p) - p);
  }
  size_t end = s.size();
  while (end > begin) {
    unsigned char b = static_cast<unsigned char>(s[end - 1]);
    if (b < 0x80) {
      if (!pred(gunichar(b))) break;
      --end;
      continue;
    }
    const char* prev = g_utf8_find_prev_char(s.data() + begin, s.data() + end);
    if (!prev) break;
    gunichar c = g_utf8_get_char_validated(prev, gssize(s.data() + end - prev));
    if (c == gunichar(-1) || c == gunichar(-2) || !pred(c)) break;
    end = size_t(prev - s.data());
  }
  return s.substr(begin, end - begin);
}

bool isLetter(gunichar c) {
  if (c < 0x80) return (c | 0x20) >= 'a' && (c | 0x20) <= 'z';
  return g_unichar_isalpha(c) || g_unichar_ismark(c);
}

bool isDecimalDigit(gunichar c) {
  if (c < 0x80) return c >= '0' && c <= '9';
  return g_unichar_type(c) == G_UNICODE_DECIMAL_NUMBER;
}

// Sets the track's attribute; of two equal keys the later value wins. Only
// ASCII names can match "file", "length" or "title" ignoring case (no other
// character lower-cases to these letters).
void assign(PlaylistTrack& track, std::string_view attribute, std::string_view value) {
  if (equalsIgnoringASCIICase(attribute, "file")) {
    track.url = std::string(value);
  } else if (equalsIgnoringASCIICase(attribute, "length")) {
    track.durationText = std::string(value);
  } else if (equalsIgnoringASCIICase(attribute, "title")) {
    track.title = std::string(value);
  } else {
    auto& others = track.otherAttributes;
    auto it = std::find_if(others.begin(), others.end(), [&](const auto& kv) { return kv.first == attribute; });
    if (it != others.end())
      it->second = std::string(value);
    else
      others.emplace_back(std::string(attribute), std::string(value));
  }
}

// Tracks by number. Numbers up to the text's length (at most a million) are
// found through a table, others through a map, so a large ordinary file
// needs no tree lookups and a small one no large table.
class TrackTable {
 public:
  explicit TrackTable(size_t textLength) : denseLimit_(int64_t(std::min<size_t>(textLength, 1 << 20))) {}

  PlaylistTrack& track(int64_t number) {
    if (number <= denseLimit_) {
      if (size_t(number) >= index_.size()) index_.resize(std::max(size_t(number) + 1, index_.size() * 2), 0);
      uint32_t& slot = index_[size_t(number)];
      if (slot == 0) {
        dense_.emplace_back().number = number;
        slot = uint32_t(dense_.size());
      }
      return dense_[slot - 1];
    }
    auto [it, inserted] = sparse_.try_emplace(number);
    if (inserted) it->second.number = number;
    return it->second;
  }

  // Hands every track to sink, in ascending order of number.
  void drainInOrder(const PlaylistTrackSink& sink) {
    for (size_t n = 0; n < index_.size(); ++n)
      if (index_[n]) sink(std::move(dense_[index_[n] - 1]));
    for (auto& [n, track] : sparse_) sink(std::move(track));
  }

 private:
  int64_t denseLimit_;
  std::vector<uint32_t> index_;  // number -> position in dense_ + 1, or 0
  std::deque<PlaylistTrack> dense_;  // grows without moving what it holds
  std::map<int64_t, PlaylistTrack> sparse_;
};

}  // namespace

void parsePLSText(std::string_view text, const PlaylistTrackSink& sink) {
  TrackTable table(text.size());
  LineReader lines(text);
  std::string_view line;
  while (lines.next(&line)) {
    // Only lines with at least two characters after the first "=" count.
    size_t eq = line.find('=');
    if (eq == std::string_view::npos) continue;
    std::string_view key = line.substr(0, eq);
    std::string_view value = line.substr(eq + 1);
    if (!utf16LengthExceeds(value, 1)) continue;

    // "File12" names attribute "File" of track 12. Keys without a positive
    // number (NumberOfEntries, Version, a key with a leading blank) are not
    // about a track.
    int64_t number = integerValue(trimCharacters(key, isLetter));
    if (number <= 0) continue;
    assign(table.track(number), trimCharacters(key, isDecimalDigit), value);
  }
  table.drainInOrder(sink);
}

}  // namespace belvane::detail
