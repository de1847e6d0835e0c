// SleepInhibitor: keeps the machine awake while audio plays, through
// logind's Inhibit("sleep", who, why, "block") on the system bus. logind
// hands back a file descriptor and keeps the inhibition while it is open;
// closing it releases the inhibition. In a sandbox (Flatpak, Snap, or any
// process whose $container is set), where the system bus is out of reach,
// the desktop portal's Inhibit (org.freedesktop.portal.Inhibit on the
// session bus, flag "suspend") is asked instead; it hands back a request
// whose Close releases the inhibition. Where neither answers, holding does
// nothing (one log line per process says so).
//
// Threads: hold and release may be called from any thread and return at
// once. The bus calls run on a thread of their own ("bv-inhibit", with its
// own GLib main context and its own connection to the bus, which never ends
// the process when the bus goes away), made at first use and
// kept for the process. A reply that arrives after a release (or after
// the inhibitor is gone) is closed at once.
#pragma once

#include <memory>
#include <string>

namespace belvane::detail {

class SleepInhibitor {
 public:
  // who and why are shown by `systemd-inhibit --list`.
  SleepInhibitor(std::string who, std::string why);
  ~SleepInhibitor();  // releases
  SleepInhibitor(const SleepInhibitor&) = delete;
  SleepInhibitor& operator=(const SleepInhibitor&) = delete;

  // Asks logind for an inhibition unless one is held or asked for.
  void hold();
  // Closes the inhibition's descriptor (or the one still on its way).
  void release();
  // Whether hold() was the last call.
  bool isHeld() const;

  struct State;  // shared with the bus thread's replies

 private:
  std::shared_ptr<State> state_;
};

}  // namespace belvane::detail
