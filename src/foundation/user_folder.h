// The per-user folder Belvane keeps its private files in (the player tool's
// pipes, temporary reference movies): "com.brambleside.ettd" in
// $XDG_RUNTIME_DIR when that is set, else "com.brambleside.ettd-<uid>" in the
// temporary directory. It is created 0700 and used only when it is a real
// directory (no symbolic link) that the effective user owns and nobody else
// can enter, so another local user can neither take it nor read from it.
//
// When that folder cannot be used (another user made the name first, or an
// XDG_RUNTIME_DIR inherited through su belongs to someone else), a private
// folder of the process's own is made instead with mkdtemp (0700) in the
// temporary directory, and used from then on for that name; it is removed at
// exit when empty. A process started by this one (the player tool) finds the
// same folder through $BELVANE_USER_FOLDER, which the starter passes down.
//
// Any thread.
#pragma once

#include <string>

namespace belvane::detail {

// The folder's path: $BELVANE_USER_FOLDER when set, the private folder made
// in place of the usual one, or the usual one, read from the environment
// each time.
std::string userFolderPath();

// Creates the folder when missing and checks it, making a private one in its
// place when it cannot be used; its path, or an empty string with *why
// saying what is wrong when no folder at all can be had.
std::string prepareUserFolder(std::string* why);

// "BELVANE_USER_FOLDER=<path>", for the environment of a process this one
// starts, so that it uses the same folder.
std::string userFolderEnvironmentEntry();

}  // namespace belvane::detail
