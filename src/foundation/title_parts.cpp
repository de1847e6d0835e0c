// splitStreamTitle (see title_parts.h).
#include "foundation/title_parts.h"

namespace belvane::detail {

TitleParts splitStreamTitle(std::string_view title) {
  size_t dash = title.find(" - ");
  if (dash == std::string_view::npos || dash == 0 || dash + 3 >= title.size()) return {"", std::string(title)};
  return {std::string(title.substr(0, dash)), std::string(title.substr(dash + 3))};
}

}  // namespace belvane::detail
