// The entries of a station playlist as the tuner's candidate URLs.
//
// PLS, M3U and ASX text goes through the web playlist readers; XSPF is read
// here with libxml2 (no network, no entity expansion). Entries come out in
// file order, an ASX entry's alternate references one after another, each
// resolved against the playlist's own URL.
#pragma once

#include <belvane/BVURL.h>

#include "streaming/stream_tuner_sniff.h"

#include <string>
#include <string_view>
#include <vector>

namespace belvane::detail {

// Entries beyond this many are ignored: a station lists a handful.
inline constexpr size_t kTunerMaximumPlaylistEntries = 100;

// The entries as written (trimmed; comments and blanks left out), in order,
// without repeats.
std::vector<std::string> tunerPlaylistEntries(TunerPlaylistFormat format, std::string_view text);

// The entry as an absolute URL: resolved against base, characters that a
// URL may not hold (blanks, non-ASCII) percent-escaped. Nothing when the
// entry cannot be made a URL.
std::optional<BVURL> tunerResolveEntry(std::string_view entry, const BVURL& base);

// The locations of an XSPF playlist's tracks, in order.
std::vector<std::string> tunerXSPFLocations(std::string_view text);

// The ASX reader lower-cases what it reads; this finds each URL as the file
// spells it (the same text ignoring case, "&amp;" decoded), or keeps it.
std::vector<std::string> tunerRestoreASXSpelling(const std::vector<std::string>& urls, std::string_view text);

}  // namespace belvane::detail
