// The one-line status of `belvane play` on a terminal, fitted to the width
// of the window: the line must never wrap, or every redraw would add a row.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace belvane::tool {

struct StatusParts {
  std::string state;   // "Playing"
  std::string engine;  // the engine's short name (shortEngineName), may be empty
  std::string title;   // stream title, may be empty
  std::string artist;  // may be empty
  std::string clock;   // elapsed time, "mm:ss", or "mm:ss / mm:ss" with the total
  std::optional<float> position;  // 0..1 when the player has one
  int volumePercent = -1;         // below 0 when unknown
  bool muted = false;
};

// The name a listener knows an engine by, short enough to leave the title
// room: "MP3", "GStreamer", "WMA", "Real"; another identifier's last part.
std::string shortEngineName(std::string_view engineID);

// Elapsed seconds as "mm:ss" (hours roll into the minutes), followed by
// " / mm:ss" when the total is known (above 0).
std::string playClock(double elapsed, double total = -1);

// Columns the text takes on a terminal (wide characters count two).
size_t displayWidth(std::string_view text);

// At most `columns` columns of text, ending in "…" when cut.
std::string truncateToWidth(std::string_view text, size_t columns);

// The status line in at most `columns` columns. What gives way, in order:
// the title is shortened, then the artist, the progress bar, the engine and
// the volume are left out, then the title is shortened further; only then is
// the line cut.
std::string fitStatusLine(const StatusParts& parts, size_t columns);

}  // namespace belvane::tool
