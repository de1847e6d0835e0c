// PulseServer (see pulse_server.h).
#include "support/pulse_server.h"

#include <sys/prctl.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>
#include <thread>

namespace belvane::test {

PulseServer::PulseServer(const std::vector<std::string>& sinks)
    : socket_(dir_.path() + "/runtime/pulse/native"), server_("PULSE_SERVER", "unix:" + socket_) {
  std::filesystem::create_directories(dir_.path() + "/runtime");
  std::filesystem::create_directories(dir_.path() + "/home");
  std::vector<std::string> args = {"pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1", "--disallow-exit",
                                   "--load=module-native-protocol-unix"};
  for (const auto& sink : sinks)
    args.push_back("--load=module-null-sink sink_name=" + sink + " sink_properties=device.description=Sink_" + sink);
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  gchar** env = g_get_environ();
  env = g_environ_setenv(env, "XDG_RUNTIME_DIR", (dir_.path() + "/runtime").c_str(), TRUE);
  env = g_environ_setenv(env, "HOME", (dir_.path() + "/home").c_str(), TRUE);
  bool spawned = g_spawn_async(nullptr, argv.data(), env,
                               GSpawnFlags(G_SPAWN_SEARCH_PATH | G_SPAWN_DO_NOT_REAP_CHILD | G_SPAWN_STDOUT_TO_DEV_NULL |
                                           G_SPAWN_STDERR_TO_DEV_NULL),
                               // The server goes with the test process, also when that
                               // is killed or aborts before the destructor runs.
                               +[](gpointer) { prctl(PR_SET_PDEATHSIG, SIGTERM); }, nullptr, &pid_, nullptr);
  g_strfreev(env);
  if (!spawned) return;
  for (int i = 0; i < 100 && !ready_; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    ready_ = std::filesystem::exists(socket_) && !pactl("info").empty();
  }
}

PulseServer::~PulseServer() {
  if (pid_ <= 0) return;
  kill(pid_, SIGTERM);
  waitpid(pid_, nullptr, 0);
  g_spawn_close_pid(pid_);
}

std::string PulseServer::pactl(const std::string& arguments) const {
  std::string command = "pactl --server=unix:" + socket_ + " " + arguments;
  gchar* out = nullptr;
  gint status = 0;
  std::string result;
  if (g_spawn_command_line_sync(command.c_str(), &out, nullptr, &status, nullptr) &&
      g_spawn_check_wait_status(status, nullptr) && out)
    result = out;
  g_free(out);
  return result;
}

std::string PulseServer::sinkOfStream() const {
  // "short" lists: a sink input's second column is its sink's index, a
  // sink's first its index and second its name.
  std::istringstream inputs(pactl("list short sink-inputs"));
  std::string index, sinkIndex;
  if (!(inputs >> index >> sinkIndex)) return "";
  std::istringstream sinks(pactl("list short sinks"));
  std::string line;
  while (std::getline(sinks, line)) {
    std::istringstream fields(line);
    std::string sink, name;
    if (fields >> sink >> name && sink == sinkIndex) return name;
  }
  return "";
}

bool PulseServer::removeSink(const std::string& name) const {
  std::istringstream modules(pactl("list short modules"));
  std::string line;
  while (std::getline(modules, line)) {
    if (line.find("module-null-sink") == std::string::npos || line.find("sink_name=" + name + " ") == std::string::npos)
      continue;
    std::istringstream fields(line);
    std::string index;
    fields >> index;
    pactl("unload-module " + index);  // says nothing when it works
    return pactl("list short sinks").find("\t" + name + "\t") == std::string::npos;
  }
  return false;
}

bool PulseServer::available() {
  gchar* path = g_find_program_in_path("pulseaudio");
  g_free(path);
  return path != nullptr;
}

}  // namespace belvane::test
