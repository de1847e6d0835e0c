// PlayTerminal: the live status line and keys of `belvane play` on a
// terminal. Puts the terminal in raw mode (restored on destruction), reads
// keys through a run-loop watch on stdin, and redraws one status line with
// titles and messages scrolling above it. The status line is fitted to the
// window's width, read again whenever the window changes size (SIGWINCH).
#pragma once

#include <belvane/BVBasePlayer.h>
#include <belvane/BVRunLoop.h>

#include <glib.h>

#include <cstddef>
#include <functional>
#include <string>

#include <termios.h>

namespace belvane::tool {

class PlayTerminal {
 public:
  // player is not owned; quit is called for q; r records the station into
  // recordFolder, or stops recording.
  PlayTerminal(BVBasePlayer* player, std::function<std::string()> engineName, std::function<void()> quit,
               std::string recordFolder);
  ~PlayTerminal();
  PlayTerminal(const PlayTerminal&) = delete;
  PlayTerminal& operator=(const PlayTerminal&) = delete;

  // A line above the status line (titles, state changes, errors).
  void print(const std::string& line);
  void redraw();

 private:
  bool onInput();
  static gboolean onWindowChange(gpointer self);
  void handleKey(const std::string& key);

  BVBasePlayer* player_;
  std::function<std::string()> engineName_;
  std::function<void()> quit_;
  std::string recordFolder_;
  termios saved_{};
  bool raw_ = false;
  BVRunLoopSourceRef input_;
  std::shared_ptr<BVTimer> tick_;
  std::string pending_;  // bytes of an escape sequence not complete yet
  size_t columns_ = 79;  // the status line's room
  guint resize_ = 0;     // the SIGWINCH source
};

}  // namespace belvane::tool
