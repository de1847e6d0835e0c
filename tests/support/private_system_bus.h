// PrivateSystemBus: a dbus-daemon of the test's own with a session-style
// configuration (open to everyone) in a folder of the test's, standing in
// for the system bus: point DBUS_SYSTEM_BUS_ADDRESS at address() before the
// code under test first asks for the system bus. Ended on destruction.
#pragma once

#include <glib.h>

#include <string>

namespace belvane::test {

class PrivateSystemBus {
 public:
  explicit PrivateSystemBus(const std::string& dir);
  ~PrivateSystemBus();
  PrivateSystemBus(const PrivateSystemBus&) = delete;
  PrivateSystemBus& operator=(const PrivateSystemBus&) = delete;
  // Empty when the daemon did not start.
  const std::string& address() const { return address_; }
  // Whether dbus-daemon is installed.
  static bool available();

 private:
  GPid pid_ = 0;
  std::string address_;
};

}  // namespace belvane::test
