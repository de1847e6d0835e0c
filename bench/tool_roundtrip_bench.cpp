// Round trips of forwarded calls to the player tool (a scalar `volume` and
// `playMediaLink:` with a full link) against a D-Bus method call between two
// processes (GDBus, peer to peer over a Unix socket) measured in the same run.
//
// Run from the build tree: bench_tool_roundtrip (it starts bin/belvane-player-tool).
// `bench_tool_roundtrip --fixed-calls=N` makes exactly N scalar calls and no
// D-Bus calls, for counting system calls (strace -c -f) or instructions
// (valgrind --tool=callgrind --trace-children=yes) per call: run it with two
// values of N and divide the difference by the difference in N.
#include <belvane/BVMediaFormat.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVMediaLinkSource.h>
#include <belvane/BVPlayerToolClient.h>

#include <benchmark/benchmark.h>
#include <gio/gio.h>
#include <glib.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace {

std::string gDBusAddress;
pid_t gDBusServer = 0;

const char* const kIntrospection =
    "<node><interface name='net.belvane.Bench'><method name='Volume'><arg type='d' direction='out'/></method>"
    "</interface></node>";

void onMethodCall(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*, GVariant*,
                  GDBusMethodInvocation* invocation, gpointer) {
  g_dbus_method_invocation_return_value(invocation, g_variant_new("(d)", 0.5));
}

gboolean onNewConnection(GDBusServer*, GDBusConnection* connection, gpointer info) {
  static const GDBusInterfaceVTable vtable = {onMethodCall, nullptr, nullptr, {}};
  g_object_ref(connection);
  g_dbus_connection_register_object(connection, "/net/belvane/Bench",
                                    static_cast<GDBusNodeInfo*>(info)->interfaces[0], &vtable, nullptr, nullptr,
                                    nullptr);
  return TRUE;
}

// A D-Bus peer in a child process, answering Volume() with a double.
void startDBusPeer() {
  std::string dir = g_get_tmp_dir();
  gDBusAddress = "unix:path=" + dir + "/belvane-bench-" + std::to_string(getpid());
  int ready[2];
  if (pipe(ready) != 0) return;
  gDBusServer = fork();
  if (gDBusServer == 0) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    GDBusNodeInfo* info = g_dbus_node_info_new_for_xml(kIntrospection, nullptr);
    gchar* guid = g_dbus_generate_guid();
    GDBusServer* server = g_dbus_server_new_sync(gDBusAddress.c_str(), G_DBUS_SERVER_FLAGS_NONE, guid, nullptr,
                                                 nullptr, nullptr);
    g_signal_connect(server, "new-connection", G_CALLBACK(onNewConnection), info);
    g_dbus_server_start(server);
    char c = 1;
    (void)!write(ready[1], &c, 1);
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
    _exit(0);
  }
  char c;
  (void)!read(ready[0], &c, 1);
  close(ready[0]);
  close(ready[1]);
}

std::string playerTool() {
  gchar* self = g_file_read_link("/proc/self/exe", nullptr);
  gchar* dir = g_path_get_dirname(self);
  std::string path = std::string(dir) + "/belvane-player-tool";
  g_free(dir);
  g_free(self);
  return path;
}

void BM_ToolScalarCall(benchmark::State& state) {
  BVPlayerToolClient client;
  client.setServerToolPath(playerTool());
  if (client.connect()) {
    state.SkipWithError("the player tool could not be started");
    return;
  }
  for (auto _ : state) benchmark::DoNotOptimize(client.volume());
}
BENCHMARK(BM_ToolScalarCall)->UseRealTime()->Repetitions(5)->ReportAggregatesOnly(true);

void BM_ToolPlayMediaLinkCall(benchmark::State& state) {
  BVPlayerToolClient client;
  client.setServerToolPath(playerTool());
  if (client.connect()) {
    state.SkipWithError("the player tool could not be started");
    return;
  }
  // A full link: URL, title, a format with every clue, and a source. Its URL
  // is a port nobody listens on, so each call starts and fails a connection
  // inside the tool without audio.
  auto format = BVMediaMutableFormat::formatByInferringFromURL(*BVURL::URLWithString("http://127.0.0.1:9/live.mp3"),
                                                                std::string("audio/mpeg"));
  format->setEngineID("com.brambleside.shoutcast");
  format->setRadioTimeMediaType("mp3");
  auto source = BVMediaLinkSource::linkSourceWithKind(0x57454250, BVURL::URLWithString("http://radio.example/page"),
                                                      BVURL::URLWithString("http://radio.example/"), std::nullopt,
                                                      std::string("<a href='live.mp3'>Live</a>"));
  auto link = BVMediaLink::create(BVURL::URLWithString("http://127.0.0.1:9/live.mp3"), std::string("Night Jazz"),
                                  format, source);
  for (auto _ : state) client.playMediaLink(link);
}
BENCHMARK(BM_ToolPlayMediaLinkCall)->UseRealTime()->Repetitions(5)->ReportAggregatesOnly(true);

void BM_DBusMethodCall(benchmark::State& state) {
  GDBusConnection* connection = g_dbus_connection_new_for_address_sync(
      gDBusAddress.c_str(), G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT, nullptr, nullptr, nullptr);
  if (!connection) {
    state.SkipWithError("no D-Bus peer");
    return;
  }
  for (auto _ : state) {
    GVariant* reply = g_dbus_connection_call_sync(connection, nullptr, "/net/belvane/Bench", "net.belvane.Bench",
                                                  "Volume", nullptr, G_VARIANT_TYPE("(d)"), G_DBUS_CALL_FLAGS_NONE,
                                                  -1, nullptr, nullptr);
    benchmark::DoNotOptimize(reply);
    if (reply) g_variant_unref(reply);
  }
  g_object_unref(connection);
}
BENCHMARK(BM_DBusMethodCall)->UseRealTime()->Repetitions(5)->ReportAggregatesOnly(true);

// N volume() calls on one connection; the exit status says whether the tool started.
int runFixedCalls(long calls) {
  BVPlayerToolClient client;
  client.setServerToolPath(playerTool());
  if (client.connect()) return 1;
  float sum = 0;
  for (long i = 0; i < calls; ++i) sum += client.volume();
  benchmark::DoNotOptimize(sum);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  setenv("BELVANE_AUDIO_OUTPUT", "null:fast", 1);
  constexpr const char* kFixedCalls = "--fixed-calls=";
  if (argc > 1 && std::strncmp(argv[1], kFixedCalls, std::strlen(kFixedCalls)) == 0)
    return runFixedCalls(std::atol(argv[1] + std::strlen(kFixedCalls)));
  startDBusPeer();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  if (gDBusServer > 0) {
    kill(gDBusServer, SIGTERM);
    waitpid(gDBusServer, nullptr, 0);
  }
  unlink(gDBusAddress.substr(std::string("unix:path=").size()).c_str());
  return 0;
}
