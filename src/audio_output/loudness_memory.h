// LoudnessMemory: the normalisation gain each station ended on, so that the
// next play of the station starts at it rather than at unity.
//
// One small key file, "loudness.ini" in Belvane's folder of the user's cache
// ($XDG_CACHE_HOME, else ~/.cache, then com.brambleside.ettd), made 0700.
// Stations are keyed by a SHA-256 of their URL, so the file holds no list of
// what the listener played. The process also keeps the gains it was told of
// in memory, so that a station played again at once starts where its last
// playback stood even before that playback has been written down.
//
// Any thread: noteLoudnessGain only takes a short lock (it never waits for
// the file, so the thread that hands audio to the output may call it); the
// others read or write the file under a process-wide lock, and the file is
// replaced whole (GLib writes a temporary file and renames it), so a reader
// never sees half of it.
#pragma once

#include <optional>
#include <string>

namespace belvane::detail {

// The gain in dB last noted or remembered for `station` (its URL), if any.
std::optional<double> recalledLoudnessGain(const std::string& station);
// Notes `gainDb` for `station` in this process only.
void noteLoudnessGain(const std::string& station, double gainDb);
// Notes it and writes it to the file; failures are logged, not reported.
void rememberLoudnessGain(const std::string& station, double gainDb);

}  // namespace belvane::detail
