// SleepInhibitor over logind's Inhibit method, or the desktop portal's in a
// sandbox (see sleep_inhibitor.h).
#include "foundation/sleep_inhibitor.h"

#include <belvane/BVKitOwner.h>

#include "foundation/thread_annotations.h"
#include "foundation/thread_name.h"
#include "foundation/tsan_handoff.h"

#include <gio/gio.h>
#include <gio/gunixfdlist.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>

namespace belvane::detail {

struct SleepInhibitor::State {
  std::string who, why;
  Mutex mutex;
  bool wanted GUARDED_BY(mutex) = false;
  uint64_t generation GUARDED_BY(mutex) = 0;  // bumped by every hold and release
  int fd GUARDED_BY(mutex) = -1;              // logind's descriptor while held
  std::string request GUARDED_BY(mutex);      // the portal's request object while held

  // Lets go of what is held; a portal request to close comes back.
  std::string closeHeld() REQUIRES(mutex) {
    if (fd >= 0) close(fd);
    fd = -1;
    return std::exchange(request, {});
  }
};

namespace {

// A sandbox keeps the system bus out of reach: the portal stands in.
bool sandboxed() {
  return g_file_test("/.flatpak-info", G_FILE_TEST_EXISTS) || g_getenv("SNAP") || g_getenv("container");
}

// The portal's Inhibit flag for suspending the machine.
constexpr guint32 kPortalInhibitSuspend = 4;

// Logs the first reason of the process why nothing is inhibited.
void logUnavailable(const char* what, const GError* error) {
  static std::atomic<bool> logged{false};
  if (logged.exchange(true)) return;
  BVLog("Sleep is not inhibited while playing: %s (%s)", what, error ? error->message : "no details");
}

// The thread that talks to logind, with its own context and connection.
class InhibitThread {
 public:
  static InhibitThread& shared() {
    static InhibitThread* thread = new InhibitThread;  // kept for the process
    return *thread;
  }

  // Runs fn on the thread.
  void post(std::function<void()> fn) {
    auto* call = new std::function<void()>(std::move(fn));
    HANDOFF_RELEASE(call);
    g_main_context_invoke_full(
        context_, G_PRIORITY_DEFAULT,
        +[](gpointer data) -> gboolean {
          HANDOFF_ACQUIRE(data);
          (*static_cast<std::function<void()>*>(data))();
          return G_SOURCE_REMOVE;
        },
        call, +[](gpointer data) { delete static_cast<std::function<void()>*>(data); });
  }

  // On the thread: the connection to the system bus (the session bus in a
  // sandbox), made anew after it closed or the kind changed; null where
  // there is none.
  GDBusConnection* bus(GBusType type) {
    if (bus_ && type == busType_ && !g_dbus_connection_is_closed(bus_)) return bus_;
    g_clear_object(&bus_);
    busType_ = type;
    GError* error = nullptr;
    gchar* address = g_dbus_address_get_for_bus_sync(type, nullptr, &error);
    if (address) {
      bus_ = g_dbus_connection_new_for_address_sync(
          address,
          GDBusConnectionFlags(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                               G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
          nullptr, nullptr, &error);
      g_free(address);
    }
    if (!bus_) logUnavailable(type == G_BUS_TYPE_SYSTEM ? "no system bus" : "no session bus", error);
    g_clear_error(&error);
    return bus_;
  }

 private:
  InhibitThread() : context_(g_main_context_new()) {
    std::thread([context = context_] {
      nameThisThread("bv-inhibit");
      g_main_context_push_thread_default(context);
      GMainLoop* loop = g_main_loop_new(context, FALSE);
      g_main_loop_run(loop);  // for the life of the process
    }).detach();
  }

  GMainContext* context_;
  GDBusConnection* bus_ = nullptr;  // the thread's only
  GBusType busType_ = G_BUS_TYPE_SYSTEM;
};

struct PendingReply {
  std::shared_ptr<SleepInhibitor::State> state;
  uint64_t generation;
};

void inhibitReplied(GObject* source, GAsyncResult* result, gpointer data) {
  std::unique_ptr<PendingReply> pending(static_cast<PendingReply*>(data));
  GUnixFDList* fds = nullptr;
  GError* error = nullptr;
  GVariant* reply =
      g_dbus_connection_call_with_unix_fd_list_finish(G_DBUS_CONNECTION(source), &fds, result, &error);
  int fd = -1;
  if (reply && fds) {
    gint32 index = -1;
    g_variant_get(reply, "(h)", &index);
    fd = g_unix_fd_list_get(fds, index, &error);  // a copy of its own
  }
  if (fd < 0) logUnavailable("logind did not answer Inhibit", error);
  g_clear_error(&error);
  if (reply) g_variant_unref(reply);
  if (fds) g_object_unref(fds);
  if (fd < 0) return;
  auto& state = *pending->state;
  MutexLock lock(state.mutex);
  if (state.wanted && state.generation == pending->generation && state.fd < 0)
    state.fd = fd;
  else
    close(fd);  // released meanwhile
}

// On the inhibit thread: asks the portal to close an inhibition's request.
void closePortalRequest(const std::string& request) {
  GDBusConnection* bus = InhibitThread::shared().bus(G_BUS_TYPE_SESSION);
  if (!bus) return;
  g_dbus_connection_call(bus, "org.freedesktop.portal.Desktop", request.c_str(), "org.freedesktop.portal.Request",
                         "Close", nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, 10'000, nullptr, nullptr, nullptr);
}

void portalReplied(GObject* source, GAsyncResult* result, gpointer data) {
  std::unique_ptr<PendingReply> pending(static_cast<PendingReply*>(data));
  GError* error = nullptr;
  GVariant* reply = g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, &error);
  std::string request;
  if (reply) {
    const gchar* path = nullptr;
    g_variant_get(reply, "(&o)", &path);
    request = path ? path : "";
    g_variant_unref(reply);
  } else {
    logUnavailable("the desktop portal did not answer Inhibit", error);
  }
  g_clear_error(&error);
  if (request.empty()) return;
  auto& state = *pending->state;
  {
    MutexLock lock(state.mutex);
    if (state.wanted && state.generation == pending->generation && state.request.empty() && state.fd < 0) {
      state.request = std::move(request);
      return;
    }
  }
  closePortalRequest(request);  // released meanwhile
}

}  // namespace

SleepInhibitor::SleepInhibitor(std::string who, std::string why) : state_(std::make_shared<State>()) {
  state_->who = std::move(who);
  state_->why = std::move(why);
}

SleepInhibitor::~SleepInhibitor() { release(); }

void SleepInhibitor::hold() {
  uint64_t generation;
  {
    MutexLock lock(state_->mutex);
    if (state_->wanted) return;
    state_->wanted = true;
    generation = ++state_->generation;
  }
  InhibitThread::shared().post([state = state_, generation] {
    {
      MutexLock lock(state->mutex);
      if (!state->wanted || state->generation != generation) return;  // released before it went out
    }
    if (sandboxed()) {
      GDBusConnection* bus = InhibitThread::shared().bus(G_BUS_TYPE_SESSION);
      if (!bus) return;
      GVariantBuilder options;
      g_variant_builder_init(&options, G_VARIANT_TYPE_VARDICT);
      g_variant_builder_add(&options, "{sv}", "reason", g_variant_new_string(state->why.c_str()));
      g_dbus_connection_call(bus, "org.freedesktop.portal.Desktop", "/org/freedesktop/portal/desktop",
                             "org.freedesktop.portal.Inhibit", "Inhibit",
                             g_variant_new("(sua{sv})", "", kPortalInhibitSuspend, &options), G_VARIANT_TYPE("(o)"),
                             G_DBUS_CALL_FLAGS_NONE, 10'000, nullptr, portalReplied,
                             new PendingReply{state, generation});
      return;
    }
    GDBusConnection* bus = InhibitThread::shared().bus(G_BUS_TYPE_SYSTEM);
    if (!bus) return;
    g_dbus_connection_call_with_unix_fd_list(
        bus, "org.freedesktop.login1", "/org/freedesktop/login1", "org.freedesktop.login1.Manager", "Inhibit",
        g_variant_new("(ssss)", "sleep", state->who.c_str(), state->why.c_str(), "block"), G_VARIANT_TYPE("(h)"),
        G_DBUS_CALL_FLAGS_NONE, 10'000, nullptr, nullptr, inhibitReplied, new PendingReply{state, generation});
  });
}

void SleepInhibitor::release() {
  std::string request;
  {
    MutexLock lock(state_->mutex);
    state_->wanted = false;
    ++state_->generation;
    request = state_->closeHeld();
  }
  if (!request.empty()) InhibitThread::shared().post([request] { closePortalRequest(request); });
}

bool SleepInhibitor::isHeld() const {
  MutexLock lock(state_->mutex);
  return state_->wanted;
}

}  // namespace belvane::detail
