// NetworkWatch over GNetworkMonitor and logind's PrepareForSleep (see
// network_watch.h).
#include "foundation/network_watch.h"

#include <belvane/BVURL.h>

#include "foundation/text_encoding.h"
#include "foundation/thread_name.h"

#include <gio/gio.h>

#include <condition_variable>
#include <thread>

namespace belvane::detail {

NetworkWatch& NetworkWatch::shared() {
  // Kept for the process: its thread serves every connection.
  static NetworkWatch* watch = new NetworkWatch;
  return *watch;
}

NetworkWatch::NetworkWatch() {
  // The monitor is made on the watch's own context, so its signals come
  // there; start returns once it is in place.
  std::mutex started;
  std::condition_variable ready;
  bool running = false;
  std::thread([this, &started, &ready, &running] {
    nameThisThread("bv-network");
    GMainContext* context = g_main_context_new();
    g_main_context_push_thread_default(context);
    GNetworkMonitor* monitor = g_network_monitor_get_default();
    {
      std::lock_guard lock(mutex_);
      available_ = g_network_monitor_get_network_available(monitor);
    }
    g_signal_connect(monitor, "network-changed", G_CALLBACK(+[](GNetworkMonitor*, gboolean available, gpointer self) {
                       auto* watch = static_cast<NetworkWatch*>(self);
                       {
                         std::lock_guard lock(watch->mutex_);
                         watch->available_ = available;
                       }
                       watch->notifyChanged();
                     }),
                     this);
    {
      // Told under the lock: the constructor's waiting ends (and its
      // stack with these goes) only once this has let go.
      std::lock_guard lock(started);
      running = true;
      ready.notify_all();
    }
    // Resumed from suspend: logind says PrepareForSleep(false). Quietly
    // nothing where there is no system bus; the monitor works meanwhile
    // (a system bus that is slow to answer holds up nobody).
    if (GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr)) {
      g_dbus_connection_signal_subscribe(
          bus, nullptr, "org.freedesktop.login1.Manager", "PrepareForSleep", "/org/freedesktop/login1", nullptr,
          G_DBUS_SIGNAL_FLAGS_NONE,
          +[](GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*, GVariant* parameters,
              gpointer self) {
            gboolean sleeping = TRUE;
            if (g_variant_is_of_type(parameters, G_VARIANT_TYPE("(b)"))) g_variant_get(parameters, "(b)", &sleeping);
            if (!sleeping) static_cast<NetworkWatch*>(self)->notifyChanged();
          },
          this, nullptr);
    }
    GMainLoop* loop = g_main_loop_new(context, FALSE);
    g_main_loop_run(loop);  // for the life of the process
  }).detach();
  std::unique_lock lock(started);
  ready.wait(lock, [&] { return running; });
}

bool NetworkWatch::isNetworkAvailable() const {
  std::lock_guard lock(mutex_);
  return available_;
}

uint64_t NetworkWatch::addListener(Listener listener) {
  std::lock_guard lock(mutex_);
  uint64_t id = nextId_++;
  listeners_.emplace(id, std::move(listener));
  return id;
}

void NetworkWatch::removeListener(uint64_t id) {
  std::lock_guard lock(mutex_);
  listeners_.erase(id);
}

void NetworkWatch::notifyChanged() {
  // Held while the listeners run, so that a removed one is never called.
  std::lock_guard lock(mutex_);
  auto listeners = listeners_;
  for (auto& [id, listener] : listeners)
    if (listeners_.count(id)) listener();
}

bool isLoopbackURL(std::string_view url) {
  auto parsed = BVURL::URLWithString(std::string(url));
  if (!parsed) return false;
  std::string host = asciiLower(parsed->host());
  if (host.size() > 1 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
  return host == "localhost" || host == "::1" || host.rfind("127.", 0) == 0;
}

}  // namespace belvane::detail
