// Safe file names and tag fields from station titles.
#include "streaming/recording_names.h"

#include <glib.h>

namespace belvane::detail {

std::optional<std::string> recordingFileStem(std::string_view title) {
  gchar* valid = g_utf8_make_valid(title.data(), gssize(title.size()));
  std::string text(valid);
  g_free(valid);
  std::string stem;
  for (const char* p = text.c_str(); *p; p = g_utf8_next_char(p)) {
    gunichar c = g_utf8_get_char(p);
    const char* next = g_utf8_next_char(p);
    if (c == '/' || c == '\\' || g_unichar_iscntrl(c) || c == 0xFFFD) {
      if (!stem.empty() && stem.back() != ' ') stem += ' ';
      continue;
    }
    if (stem.size() + size_t(next - p) > kMaxRecordingStemBytes) break;
    stem.append(p, next);
  }
  size_t first = stem.find_first_not_of(". ");
  if (first == std::string::npos) return std::nullopt;
  size_t last = stem.find_last_not_of(". ");
  return stem.substr(first, last - first + 1);
}

}  // namespace belvane::detail
