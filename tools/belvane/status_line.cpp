// Fitting the status line to the terminal's width.
#include "status_line.h"

#include <belvane/BVPlayerEngines.h>

#include <glib.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

namespace belvane::tool {

namespace {

constexpr size_t kBarWidth = 20;
constexpr size_t kShortestTitle = 12;
const char* const kEllipsis = "\u2026";

// Which optional parts a layout shows, and how short it lets the title get
// before the next layout is tried.
struct Layout {
  bool artist, bar, engine, volume;
  size_t shortestTitle;
};

constexpr Layout kLayouts[] = {
    {true, true, true, true, kShortestTitle},   {false, true, true, true, kShortestTitle},
    {false, false, true, true, kShortestTitle}, {false, false, false, true, kShortestTitle},
    {false, false, false, false, kShortestTitle}, {false, false, false, false, 4},
};

size_t charWidth(gunichar c) {
  if (g_unichar_iszerowidth(c)) return 0;
  return g_unichar_iswide(c) ? 2 : 1;
}

// Titles come from stations: no control characters may reach the terminal.
std::string printable(std::string_view text) {
  std::string out;
  gchar* valid = g_utf8_make_valid(text.data(), gssize(text.size()));
  for (const gchar* p = valid; *p; p = g_utf8_next_char(p)) {
    gunichar c = g_utf8_get_char(p);
    if (g_unichar_iscntrl(c)) {
      out += ' ';
    } else {
      char buf[6];
      out.append(buf, size_t(g_unichar_to_utf8(c, buf)));
    }
  }
  g_free(valid);
  return out;
}

std::string compose(const StatusParts& parts, const Layout& layout, const std::string& title) {
  std::string line = "[" + parts.state + "]";
  if (layout.engine && !parts.engine.empty()) line += " " + parts.engine;
  if (!title.empty()) line += " | " + title;
  if (layout.artist && !parts.artist.empty()) line += " | " + printable(parts.artist);
  line += " | " + parts.clock;
  if (layout.bar && parts.position) {
    float p = std::clamp(*parts.position, 0.0f, 1.0f);
    auto filled = size_t(std::lround(p * float(kBarWidth)));
    line += " [" + std::string(filled, '=') + std::string(kBarWidth - filled, ' ') + "]";
  }
  if (layout.volume && parts.volumePercent >= 0) line += " | vol " + std::to_string(parts.volumePercent) + "%";
  if (parts.muted) line += " (muted)";
  return line;
}

}  // namespace

std::string shortEngineName(std::string_view engineID) {
  static const std::pair<std::string_view, const char*> kNames[] = {
      {BVMP3StreamPlayerEngine::kEngineID, "MP3"},
      {BVQuicktimePlayerEngine::kEngineID, "GStreamer"},
      {BVWindowsMediaPlayerEngine::kEngineID, "WMA"},
      {BVHelixPlayerEngine::kEngineID, "Real"},
  };
  for (auto& [id, name] : kNames)
    if (engineID == id) return name;
  size_t dot = engineID.rfind('.');
  return std::string(dot == std::string_view::npos ? engineID : engineID.substr(dot + 1));
}

std::string playClock(double elapsed, double total) {
  auto mmss = [](double seconds) {
    long s = seconds > 0 ? long(seconds) : 0;
    char buf[32];
    std::snprintf(buf, sizeof buf, "%02ld:%02ld", s / 60, s % 60);
    return std::string(buf);
  };
  return total > 0 ? mmss(elapsed) + " / " + mmss(total) : mmss(elapsed);
}

size_t displayWidth(std::string_view text) {
  size_t width = 0;
  const gchar* end = text.data() + text.size();
  for (const gchar* p = text.data(); p < end; p = g_utf8_next_char(p)) width += charWidth(g_utf8_get_char(p));
  return width;
}

std::string truncateToWidth(std::string_view text, size_t columns) {
  if (displayWidth(text) <= columns) return std::string(text);
  if (columns == 0) return {};
  std::string out;
  size_t width = 0;
  const gchar* end = text.data() + text.size();
  for (const gchar* p = text.data(); p < end; p = g_utf8_next_char(p)) {
    size_t w = charWidth(g_utf8_get_char(p));
    if (width + w > columns - 1) break;
    out.append(p, size_t(g_utf8_next_char(p) - p));
    width += w;
  }
  return out + kEllipsis;
}

std::string fitStatusLine(const StatusParts& parts, size_t columns) {
  std::string title = printable(parts.title);
  for (const Layout& layout : kLayouts) {
    size_t rest = displayWidth(compose(parts, layout, ""));
    if (title.empty()) {
      if (rest <= columns) return compose(parts, layout, "");
      continue;
    }
    size_t separator = displayWidth(" | ");
    if (rest + separator + displayWidth(title) <= columns) return compose(parts, layout, title);
    if (rest + separator + layout.shortestTitle <= columns)
      return compose(parts, layout, truncateToWidth(title, columns - rest - separator));
  }
  return truncateToWidth(compose(parts, kLayouts[std::size(kLayouts) - 1], ""), columns);
}

}  // namespace belvane::tool
