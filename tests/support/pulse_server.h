// PulseServer: a PulseAudio daemon of the test's own, with null sinks named
// by the test, its runtime folder and home in a folder of the test's; it
// sets PULSE_SERVER for the process while it lives, and is ended on
// destruction. pactl talks to it.
#pragma once

#include <glib.h>

#include <string>
#include <vector>

#include "support/scoped_env.h"
#include "support/temp_dir.h"

namespace belvane::test {

class PulseServer {
 public:
  // Each sink is a null sink with that name and the description "Sink NAME".
  explicit PulseServer(const std::vector<std::string>& sinks);
  ~PulseServer();
  PulseServer(const PulseServer&) = delete;
  PulseServer& operator=(const PulseServer&) = delete;
  // Whether the server answers.
  bool ready() const { return ready_; }
  // pactl's output for the arguments ("" when it failed).
  std::string pactl(const std::string& arguments) const;
  // The sink a playback stream plays on, by the sink's name ("" when none plays).
  std::string sinkOfStream() const;
  // Unloads the null sink `name` (as unplugging its device would).
  bool removeSink(const std::string& name) const;
  // Whether pulseaudio is installed.
  static bool available();

 private:
  TempDir dir_;
  std::string socket_;
  GPid pid_ = 0;
  bool ready_ = false;
  ScopedEnv server_;
};

}  // namespace belvane::test
