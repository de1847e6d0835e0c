// PlayTerminal: raw-mode keys and the redrawn status line.
#include "cmd_play_terminal.h"

#include "status_line.h"

#include <belvane/BVConstants.h>

#include <glib-unix.h>
#include <glib.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace belvane::tool {

namespace {
const char* stateName(BVPlayerState s) {
  switch (s) {
    case BVPlayerStateIdle: return "Idle";
    case BVPlayerStateConnecting: return "Connecting";
    case BVPlayerStatePlaying: return "Playing";
    case BVPlayerStateStopped: return "Stopped";
    case BVPlayerStateError: return "Error";
  }
  return "?";
}

// The columns the status line may take: one less than the window, since a
// character in the last column leaves some terminals waiting to wrap.
size_t usableColumns() {
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return 79;
  return size_t(size.ws_col) - 1;
}

}  // namespace

PlayTerminal::PlayTerminal(BVBasePlayer* player, std::function<std::string()> engineName, std::function<void()> quit,
                           std::string recordFolder)
    : player_(player), engineName_(std::move(engineName)), quit_(std::move(quit)),
      recordFolder_(std::move(recordFolder)) {
  if (tcgetattr(STDIN_FILENO, &saved_) == 0) {
    termios raw = saved_;
    raw.c_lflag &= ~(ICANON | ECHO);  // keep ISIG: Ctrl-C still interrupts
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    raw_ = tcsetattr(STDIN_FILENO, TCSANOW, &raw) == 0;
  }
  input_ = BVRunLoop::current().watchFD(STDIN_FILENO, G_IO_IN | G_IO_HUP, [this](int) { return onInput(); });
  tick_ = BVTimer::scheduledTimer(0.5, true, [this](BVTimer&) { redraw(); });
  columns_ = usableColumns();
  resize_ = g_unix_signal_add(SIGWINCH, onWindowChange, this);
  std::fputs("keys: space pause, m mute, +/- volume, left/right seek or skip 10 s, l live, r record, q quit\n",
             stdout);
  redraw();
}

PlayTerminal::~PlayTerminal() {
  if (resize_) g_source_remove(resize_);
  if (tick_) tick_->invalidate();
  if (input_) input_->cancel();
  if (raw_) tcsetattr(STDIN_FILENO, TCSANOW, &saved_);
  std::fputs("\r\033[K", stdout);
  std::fflush(stdout);
}

void PlayTerminal::print(const std::string& line) {
  std::fprintf(stdout, "\r\033[K%s\n", line.c_str());
  redraw();
}

gboolean PlayTerminal::onWindowChange(gpointer self) {
  auto* terminal = static_cast<PlayTerminal*>(self);
  terminal->columns_ = usableColumns();
  terminal->redraw();
  return G_SOURCE_CONTINUE;
}

void PlayTerminal::redraw() {
  StatusParts parts;
  parts.state = stateName(player_->state());
  // While the station is silent the state stays Playing: say why instead.
  const BVPlayerReception reception = player_->reception();
  const int silent = int(reception.secondsWithoutAudio);
  if (reception.state == BVPlayerReceptionBuffering) {
    parts.state = "Buffering " + std::to_string(silent) + "s";
  } else if (reception.state == BVPlayerReceptionReconnecting) {
    parts.state = "Reconnecting " + std::to_string(silent) + "s, try " + std::to_string(reception.tries);
  } else if (reception.state == BVPlayerReceptionPrebuffering && reception.prebufferProgress > 0) {
    parts.state += " " + std::to_string(int(std::lround(reception.prebufferProgress * 100))) + "%";
  }
  // A time-shifted station says how far behind live it plays.
  if (player_->isPaused()) parts.state = "Paused";
  if (const double behind = player_->secondsBehindLive(); behind >= 1.0)
    parts.state += " -" + playClock(behind) + " live";
  parts.engine = shortEngineName(engineName_());
  auto attributes = player_->attributes();
  auto text = [&](const char* key) {
    auto it = attributes.find(key);
    return it != attributes.end() && it->second.string() ? *it->second.string() : std::string();
  };
  parts.title = text(BVPlayerAttributeStreamTitleKey);
  parts.artist = text(BVPlayerAttributeArtistKey);
  // A file shows how long it is beside how far it has played.
  double total = -1;
  if (auto it = attributes.find(BVPlayerAttributeDurationKey); it != attributes.end() && player_->hasPosition())
    total = it->second.doubleValue();
  parts.clock = playClock(player_->elapsedTime(), total);
  if (player_->hasPosition()) parts.position = player_->position();
  float volume = player_->volume();
  if (volume >= 0) parts.volumePercent = int(std::lround(volume * 100));
  parts.muted = player_->isMuted();
  // Back to the start of the row and clear it: the line is redrawn in place.
  std::fprintf(stdout, "\r\033[K%s", fitStatusLine(parts, columns_).c_str());
  std::fflush(stdout);
}

bool PlayTerminal::onInput() {
  char buf[64];
  ssize_t n = ::read(STDIN_FILENO, buf, sizeof buf);
  if (n <= 0) return false;  // stdin closed: no more keys
  pending_.append(buf, size_t(n));
  while (!pending_.empty()) {
    if (pending_[0] == '\033') {
      if (pending_.size() < 3) break;  // wait for the rest of the sequence
      handleKey(pending_.substr(0, 3));
      pending_.erase(0, 3);
    } else {
      handleKey(pending_.substr(0, 1));
      pending_.erase(0, 1);
    }
  }
  redraw();
  return true;
}

void PlayTerminal::handleKey(const std::string& key) {
  if (key == " ") {
    if (player_->isPaused())
      player_->resume();
    else if (!player_->pause())
      print("This playback cannot be paused.");
  } else if (key == "m" || key == "M") {
    player_->setMuted(!player_->isMuted());
  } else if (key == "+" || key == "=") {
    player_->setVolume(std::min(1.0f, std::max(0.0f, player_->volume()) + 0.1f));
  } else if (key == "-" || key == "_") {
    player_->setVolume(std::max(0.0f, player_->volume() - 0.1f));
  } else if ((key == "\033[C" || key == "\033[D") && player_->hasPosition()) {
    float step = key == "\033[C" ? 0.05f : -0.05f;
    player_->setPosition(std::clamp(player_->position() + step, 0.0f, 1.0f));
  } else if (key == "\033[C" || key == "\033[D") {
    // A live station skips within its ring.
    if (!player_->skipBy(key == "\033[C" ? 10.0 : -10.0)) print("This station cannot skip.");
  } else if (key == "l" || key == "L") {
    if (!player_->goLive() && player_->secondsBehindLive() > 0) print("Cannot go live.");
  } else if (key == "r" || key == "R") {
    if (player_->isRecording()) {
      player_->stopRecording();
      print("Recording stopped.");
    } else if (BVErrorRef error = player_->startRecording(recordFolder_)) {
      print("Cannot record: " + error->localizedDescription());
    } else {
      print("Recording into " + recordFolder_ + ", one file per title (r stops).");
    }
  } else if (key == "q" || key == "Q") {
    quit_();
  }
}

}  // namespace belvane::tool
