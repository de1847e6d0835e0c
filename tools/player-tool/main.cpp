// belvane-player-tool: a player in its own process. It vends a player over
// the tool connection's pipes and serves the host's calls until the host
// disconnects (or goes away).
#include <belvane/BVKitOwner.h>
#include <belvane/BVRunLoop.h>
#include <belvane/BVToolConnection.h>

#include "tool/player_tool_server.h"

#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

int main() {
  // End with the host even when it cannot say goodbye.
  pid_t parent = getppid();
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (getppid() != parent) return 0;

  BVToolConnection connection;
  belvane::detail::PlayerToolServer server(connection);
  connection.setVendedObject(&server);
  if (auto error = connection.configureAsServer()) {
    BVLogString("belvane-player-tool: " + error->localizedDescription());
    return 1;
  }
  BVRunLoop::current().run();
  return 0;
}
