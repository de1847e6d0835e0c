// The per-user folder Belvane keeps its private files in (the player tool's
// pipes, temporary reference movies): "com.brambleside.ettd" in
// $XDG_RUNTIME_DIR when that is set, else "com.brambleside.ettd-<uid>" in the
// temporary directory. It is created 0700 and used only when it is a real
// directory (no symbolic link) that the effective user owns and nobody else
// can enter, so another local user can neither take it nor read from it.
#pragma once

#include <string>

namespace belvane::detail {

// The folder's path, read from the environment each time.
std::string userFolderPath();

// Creates the folder when missing and checks it; its path, or an empty
// string with *why saying what is wrong with it.
std::string prepareUserFolder(std::string* why);

}  // namespace belvane::detail
