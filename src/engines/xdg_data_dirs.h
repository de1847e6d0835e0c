// The XDG data folders, in lookup order: $XDG_DATA_HOME (default
// ~/.local/share), then each of $XDG_DATA_DIRS (default /usr/local/share,
// /usr/share). Read from the environment at each call, so a changed
// environment is seen at once.
#pragma once

#include <string>
#include <vector>

namespace belvane::detail {
std::vector<std::string> xdgDataDirectories();
}
