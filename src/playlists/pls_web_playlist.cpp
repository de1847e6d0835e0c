// BVPLSWebPlaylist: "[playlist]" files of numbered key=value lines.
#include <belvane/BVPLSWebPlaylist.h>

#include "playlists/parser_helpers.h"

#include <glib.h>

#include <algorithm>
#include <deque>
#include <map>

namespace {

using namespace belvane::detail;

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

// Tracks by number. Numbers up to the text's length (at most a million) are
// found through a table, others through a map, so a large ordinary file
// needs no tree lookups and a small one no large table.
class TrackTable {
 public:
  explicit TrackTable(size_t textLength) : denseLimit_(int64_t(std::min<size_t>(textLength, 1 << 20))) {}

  BVDictionary& track(int64_t number) {
    BVDictionary* d;
    if (number <= denseLimit_) {
      if (size_t(number) >= index_.size()) index_.resize(std::max(size_t(number) + 1, index_.size() * 2), 0);
      uint32_t& slot = index_[size_t(number)];
      if (slot == 0) {
        dense_.emplace_back();
        slot = uint32_t(dense_.size());
      }
      d = &dense_[slot - 1];
    } else {
      d = &sparse_[number];
    }
    if (d->empty()) d->emplace(kPlaylistAttributeTrackNumber, BVValue(number));
    return *d;
  }

  size_t size() const { return dense_.size() + sparse_.size(); }

  // Calls fn(number, dictionary) for every track, in ascending order of number.
  template <class F>
  void forEachInOrder(F fn) {
    for (size_t n = 0; n < index_.size(); ++n)
      if (index_[n]) fn(int64_t(n), dense_[index_[n] - 1]);
    for (auto& [n, d] : sparse_) fn(n, d);
  }

 private:
  int64_t denseLimit_;
  std::vector<uint32_t> index_;  // number -> position in dense_ + 1, or 0
  std::deque<BVDictionary> dense_;  // grows without moving what it holds
  std::map<int64_t, BVDictionary> sparse_;
};

}  // namespace

std::shared_ptr<BVPLSWebPlaylist> BVPLSWebPlaylist::create() {
  return std::shared_ptr<BVPLSWebPlaylist>(new BVPLSWebPlaylist());
}

bool BVPLSWebPlaylist::canInitWithURL(const BVURL& url) { return equalsIgnoringASCIICase(url.pathExtension(), "pls"); }

bool BVPLSWebPlaylist::canInitWithMIMEType(const std::optional<std::string>& mimeType) {
  return !mimeType || lowercaseString(*mimeType).find("audio/x-scpls") != std::string::npos;
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
  TrackTable table(string.size());
  LineReader lines(string);
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
    std::string attribute = standardAttribForPLSAttrib(trimCharacters(key, isDecimalDigit));
    // Lines are taken in order, so of two equal keys the later value wins.
    table.track(number).insert_or_assign(std::move(attribute), BVValue(value));
  }
  // Inserting each at the index of its number appends whenever the index is
  // past the end: ascending order, gaps closed.
  reserveTracks(table.size());
  table.forEachInOrder([&](int64_t number, BVDictionary& track) {
    insertObject(BVValue(std::move(track)), size_t(number));
  });
}
