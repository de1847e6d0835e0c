// PrivateSystemBus (see private_system_bus.h).
#include "support/private_system_bus.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

namespace belvane::test {

PrivateSystemBus::PrivateSystemBus(const std::string& dir) {
  std::string config = dir + "/bus.conf";
  std::ofstream(config) << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
                           " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
                           "<busconfig><type>session</type><listen>unix:path="
                        << dir
                        << "/system_bus_socket</listen><auth>EXTERNAL</auth>"
                           "<policy context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/>"
                           "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>\n";
  std::string option = "--config-file=" + config;
  const char* argv[] = {"dbus-daemon", option.c_str(), "--nofork", "--print-address", nullptr};
  int out = -1;
  if (!g_spawn_async_with_pipes(nullptr, const_cast<char**>(argv), nullptr,
                                GSpawnFlags(G_SPAWN_SEARCH_PATH | G_SPAWN_DO_NOT_REAP_CHILD), nullptr, nullptr, &pid_,
                                nullptr, &out, nullptr, nullptr))
    return;
  pollfd ready{out, POLLIN, 0};
  char c;
  while (poll(&ready, 1, 5000) == 1 && read(out, &c, 1) == 1 && c != '\n') address_ += c;
  close(out);
}

PrivateSystemBus::~PrivateSystemBus() {
  if (pid_ <= 0) return;
  kill(pid_, SIGTERM);
  waitpid(pid_, nullptr, 0);
  g_spawn_close_pid(pid_);
}

bool PrivateSystemBus::available() {
  gchar* path = g_find_program_in_path("dbus-daemon");
  g_free(path);
  return path != nullptr;
}

}  // namespace belvane::test
