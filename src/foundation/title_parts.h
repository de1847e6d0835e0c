// "Artist - Title": how stations write a song in one stream title. The
// parts are split at the first " - " with text on both sides; otherwise the
// whole is the title. Plain function; any thread.
#pragma once

#include <string>
#include <string_view>

namespace belvane::detail {

struct TitleParts {
  std::string artist;  // empty when the title names none
  std::string title;
};
TitleParts splitStreamTitle(std::string_view title);

}  // namespace belvane::detail
