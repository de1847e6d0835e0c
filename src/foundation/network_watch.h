// NetworkWatch: what the machine says about its network, for code that
// reconnects.
//
// GIO's network monitor (the routing table through netlink, or
// NetworkManager's view of it) tells when the network comes back or
// changes, and logind's PrepareForSleep signal on the system bus (where
// there is one) when the machine has resumed from suspend. Either is news to
// a connection waiting to try again: it tries at once. While the monitor
// knows there is no route out, a connection to another machine need not
// spend its patience on tries that cannot succeed.
//
// Threads: the watch runs on a thread of its own ("bv-network", with its
// own GLib main context), made at first use and kept for the process.
// Listeners are called on that thread; every method is safe from any
// thread.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string_view>

namespace belvane::detail {

class NetworkWatch {
 public:
  static NetworkWatch& shared();

  // False only when the monitor knows there is no route off this machine.
  bool isNetworkAvailable() const;

  // Called on the watch's thread when the network changed or the machine
  // resumed. Returns an id for removeListener.
  using Listener = std::function<void()>;
  uint64_t addListener(Listener listener);
  // No call to the listener is in progress or will follow once this returns
  // (unless called from the listener itself).
  void removeListener(uint64_t id);

  // Test hook: tells the listeners as a real change would.
  void notifyChanged();

 private:
  NetworkWatch();
  void run();

  mutable std::recursive_mutex mutex_;
  std::map<uint64_t, Listener> listeners_;
  uint64_t nextId_ = 1;
  bool available_ = true;
};

// Whether a URL's host is this machine (127.0.0.0/8, ::1, localhost): the
// network's state says nothing about reaching it.
bool isLoopbackURL(std::string_view url);

}  // namespace belvane::detail
