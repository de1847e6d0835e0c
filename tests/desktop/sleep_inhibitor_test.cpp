// Keeping the machine awake, as logind sees it: a stand-in for logind on a
// private system bus (a dbus-daemon of this test's own) hands out a pipe for
// each Inhibit call, and sees the player's end of it closed when the
// playback pauses or stops. In a sandbox the desktop portal is asked
// instead: the same stand-in answers as the portal, on the same bus taken
// as the session bus, and sees each request closed. Every wait is bounded;
// the stand-in answers on a thread and main context of its own.
#include <gtest/gtest.h>

#include <belvane/BVMasterPlayer.h>

#include <fcntl.h>
#include <gio/gio.h>
#include <gio/gunixfdlist.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <condition_variable>
#include <fstream>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

#include "support/log_capture.h"
#include "support/mp3_test_data.h"
#include "support/private_system_bus.h"
#include "support/recording_owner.h"
#include "support/scoped_env.h"
#include "support/temp_dir.h"

using namespace belvane::test;

namespace {

// org.freedesktop.login1's Inhibit: records each call and keeps the read end
// of the pipe whose write end it hands back.
class FakeLogind {
 public:
  struct Inhibition {
    std::string what, who, why, mode;
    int readEnd;
  };

  explicit FakeLogind(const std::string& address) : context_(g_main_context_new()) {
    loop_ = g_main_loop_new(context_, FALSE);
    std::mutex started;
    std::condition_variable ready;
    bool done = false;
    thread_ = std::thread([&, address] {
      g_main_context_push_thread_default(context_);
      serve(address);
      {
        // Told under the lock: the constructor (and these with it) goes
        // only once this has let go.
        std::lock_guard lock(started);
        done = true;
        ready.notify_all();
      }
      if (registered_) g_main_loop_run(loop_);
      if (bus_) g_dbus_connection_close_sync(bus_, nullptr, nullptr);
      g_clear_object(&bus_);
      g_main_context_pop_thread_default(context_);
    });
    std::unique_lock lock(started);
    ready.wait_for(lock, std::chrono::seconds(10), [&] { return done; });
  }
  ~FakeLogind() {
    g_main_context_invoke(context_, +[](gpointer loop) { g_main_loop_quit(static_cast<GMainLoop*>(loop)); return G_SOURCE_REMOVE; }, loop_);
    thread_.join();
    for (auto& i : inhibitions_) close(i.readEnd);
    if (portalNode_) g_dbus_node_info_unref(portalNode_);
    g_main_loop_unref(loop_);
    g_main_context_unref(context_);
  }
  bool registered() const { return registered_; }

  std::vector<Inhibition> inhibitions() {
    std::lock_guard lock(mutex_);
    return inhibitions_;
  }
  // Inhibitions whose descriptor the player still holds, and portal
  // requests not closed.
  size_t held() {
    std::lock_guard lock(mutex_);
    size_t open = 0;
    for (auto& i : inhibitions_) {
      pollfd p{i.readEnd, POLLIN, 0};
      if (poll(&p, 1, 0) == 0) ++open;  // neither data nor hang-up: the write end is open
    }
    for (bool requestOpen : portalRequests_) open += requestOpen;
    return open;
  }
  size_t portalInhibitions() {
    std::lock_guard lock(mutex_);
    return portalRequests_.size();
  }

 private:
  void serve(const std::string& address) {
    bus_ = g_dbus_connection_new_for_address_sync(
        address.c_str(),
        GDBusConnectionFlags(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                             G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, nullptr);
    if (!bus_) return;
    GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(
        "<node><interface name='org.freedesktop.login1.Manager'><method name='Inhibit'>"
        "<arg type='s' direction='in'/><arg type='s' direction='in'/><arg type='s' direction='in'/>"
        "<arg type='s' direction='in'/><arg type='h' direction='out'/></method></interface></node>",
        nullptr);
    static const GDBusInterfaceVTable vtable = {
        +[](GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*, GVariant* parameters,
            GDBusMethodInvocation* invocation, gpointer self) {
          static_cast<FakeLogind*>(self)->inhibit(parameters, invocation);
        },
        nullptr, nullptr, {}};
    guint id = g_dbus_connection_register_object(bus_, "/org/freedesktop/login1", node->interfaces[0], &vtable,
                                                 this, nullptr, nullptr);
    g_dbus_node_info_unref(node);
    // The portal: Inhibit hands back a request path; Close on any path under
    // it ends that request.
    portalNode_ = g_dbus_node_info_new_for_xml(
        "<node><interface name='org.freedesktop.portal.Inhibit'><method name='Inhibit'>"
        "<arg type='s' direction='in'/><arg type='u' direction='in'/><arg type='a{sv}' direction='in'/>"
        "<arg type='o' direction='out'/></method></interface>"
        "<interface name='org.freedesktop.portal.Request'><method name='Close'/></interface></node>",
        nullptr);
    static const GDBusInterfaceVTable portalVtable = {
        +[](GDBusConnection*, const gchar*, const gchar* path, const gchar*, const gchar* method, GVariant*,
            GDBusMethodInvocation* invocation, gpointer self) {
          static_cast<FakeLogind*>(self)->portal(path, method, invocation);
        },
        nullptr, nullptr, {}};
    portalVtable_ = &portalVtable;
    guint portal = g_dbus_connection_register_object(bus_, "/org/freedesktop/portal/desktop",
                                                     portalNode_->interfaces[0], &portalVtable, this, nullptr, nullptr);
    bool named = true;
    for (const char* name : {"org.freedesktop.login1", "org.freedesktop.portal.Desktop"}) {
      GVariant* reply = g_dbus_connection_call_sync(
          bus_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
          g_variant_new("(su)", name, 4u), G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, nullptr);
      guint32 result = 0;
      if (reply) {
        g_variant_get(reply, "(u)", &result);
        g_variant_unref(reply);
      }
      named = named && result == 1;
    }
    registered_ = id != 0 && portal != 0 && named;
  }

  void portal(const std::string& path, const std::string& method, GDBusMethodInvocation* invocation) {
    std::lock_guard lock(mutex_);
    if (method == "Inhibit") {
      std::string request = "/org/freedesktop/portal/desktop/request/t" + std::to_string(portalRequests_.size());
      g_dbus_connection_register_object(bus_, request.c_str(), portalNode_->interfaces[1],
                                        portalVtable_, this, nullptr, nullptr);
      portalRequests_.push_back(true);
      g_dbus_method_invocation_return_value(invocation, g_variant_new("(o)", request.c_str()));
      return;
    }
    size_t index = std::stoul(path.substr(path.rfind('t') + 1));
    if (index < portalRequests_.size()) portalRequests_[index] = false;
    g_dbus_method_invocation_return_value(invocation, nullptr);
  }

  void inhibit(GVariant* parameters, GDBusMethodInvocation* invocation) {
    const gchar *what, *who, *why, *mode;
    g_variant_get(parameters, "(&s&s&s&s)", &what, &who, &why, &mode);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
      g_dbus_method_invocation_return_dbus_error(invocation, "org.freedesktop.DBus.Error.Failed", "no pipe");
      return;
    }
    GUnixFDList* fds = g_unix_fd_list_new();
    gint index = g_unix_fd_list_append(fds, ends[1], nullptr);
    close(ends[1]);
    {
      std::lock_guard lock(mutex_);
      inhibitions_.push_back({what, who, why, mode, ends[0]});
    }
    g_dbus_method_invocation_return_value_with_unix_fd_list(invocation, g_variant_new("(h)", index), fds);
    g_object_unref(fds);
  }

  GMainContext* context_;
  GMainLoop* loop_;
  GDBusConnection* bus_ = nullptr;
  GDBusNodeInfo* portalNode_ = nullptr;
  const GDBusInterfaceVTable* portalVtable_ = nullptr;
  std::vector<bool> portalRequests_;  // open or closed, by request number
  bool registered_ = false;
  std::thread thread_;
  std::mutex mutex_;
  std::vector<Inhibition> inhibitions_;
};

// A file of about ten seconds of tone.
std::string writeToneFile(const std::string& dir) {
  std::string path = dir + "/tone.mp3";
  std::ofstream file(path, std::ios::binary);
  for (int i = 0; i < 8; ++i) file << stereoTone44k()->bytes;
  return path;
}

bool runUntil(const std::function<bool()>& done) { return BVRunLoop::main().runUntil(done, 10.0); }

}  // namespace

TEST(SleepInhibitor, HeldWhilePlayingReleasedOnPauseAndStopAndNotAskedWhenOff) {
  if (!PrivateSystemBus::available()) GTEST_SKIP() << "dbus-daemon is not installed";
  BELVANE_SKIP_WITHOUT_LAME();
  TempDir dir;
  PrivateSystemBus bus(dir.path());
  ASSERT_FALSE(bus.address().empty());
  ScopedEnv system("DBUS_SYSTEM_BUS_ADDRESS", bus.address());
  std::optional<FakeLogind> service(std::in_place, bus.address());
  FakeLogind& logind = *service;
  ASSERT_TRUE(logind.registered());

  MasterRun run("null");  // real time: the file lasts
  auto& master = run.master;
  EXPECT_TRUE(master->inhibitsSleep());
  master->playLink(linkTo("file://" + writeToneFile(dir.path())));
  ASSERT_TRUE(run.owner.runUntil(BVPlayerStatePlaying));
  ASSERT_TRUE(runUntil([&] { return logind.held() == 1; }));
  auto first = logind.inhibitions().front();
  EXPECT_EQ(first.what, "sleep");
  EXPECT_EQ(first.mode, "block");
  EXPECT_EQ(first.who, "Belvane");

  // Paused: let go; resumed: held anew.
  ASSERT_TRUE(master->pause());
  ASSERT_TRUE(runUntil([&] { return logind.held() == 0; }));
  master->resume();
  ASSERT_TRUE(runUntil([&] { return logind.held() == 1 && logind.inhibitions().size() == 2; }));
  master->stop();
  ASSERT_TRUE(runUntil([&] { return logind.held() == 0; }));

  // Off: a playback asks nothing.
  master->setInhibitsSleep(false);
  master->playLink(linkTo("file://" + dir.path() + "/tone.mp3"));
  ASSERT_TRUE(runUntil([&] { return master->state() == BVPlayerStatePlaying; }));
  BVRunLoop::main().runFor(0.5);
  EXPECT_EQ(logind.inhibitions().size(), 2u);
  master->stop();

  // In a sandbox the portal is asked, on the session bus, and its request
  // closed on pause.
  {
    ScopedEnv session("DBUS_SESSION_BUS_ADDRESS", bus.address()), container("container", "test");
    master->setInhibitsSleep(true);
    master->playLink(linkTo("file://" + dir.path() + "/tone.mp3"));
    ASSERT_TRUE(runUntil([&] { return logind.portalInhibitions() == 1 && logind.held() == 1; }));
    ASSERT_TRUE(master->pause());
    ASSERT_TRUE(runUntil([&] { return logind.held() == 0; }));
    EXPECT_EQ(logind.inhibitions().size(), 2u) << "logind is not asked in a sandbox";
    master->stop();
  }

  // No logind on the bus: playing goes on, and the log says why.
  service.reset();
  LogCapture log;
  master->setInhibitsSleep(true);
  master->playLink(linkTo("file://" + dir.path() + "/tone.mp3"));
  ASSERT_TRUE(runUntil([&] { return master->state() == BVPlayerStatePlaying; }));
  ASSERT_TRUE(runUntil([&] { return log.contains("Sleep is not inhibited"); }));
  EXPECT_EQ(master->state(), BVPlayerStatePlaying);
}
