// belvane demo-station: the built-in demo station on its own, for another
// player, or a host being developed or tested, to tune into.
#include "commands.h"
#include "demo_station.h"

#include <csignal>
#include <cstdio>
#include <pthread.h>

namespace belvane::tool {

namespace {

int runDemoStation(const Arguments&) {
  // Interrupts and terminations are waited for here; blocked before the
  // station's threads start, so that none of them takes the signal.
  sigset_t stops;
  sigemptyset(&stops);
  sigaddset(&stops, SIGINT);
  sigaddset(&stops, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stops, nullptr);
  DemoStation demo;
  if (!demo.start()) {
    std::fprintf(stderr, "belvane demo-station: %s\n", demo.error().c_str());
    return 1;
  }
  std::printf("%s\n", demo.url().c_str());
  std::fflush(stdout);
  int signal = 0;
  sigwait(&stops, &signal);
  return 0;
}

}  // namespace

std::vector<Command> demoStationCommands() {
  return {
      {"demo-station", "",
       "Serves the built-in demo station (the one `belvane play` plays without a URL) on loopback,\n"
       "prints its URL and serves it until interrupted: a synthesised clip round and round at its\n"
       "own rate, with an ICY title for each piece (\"Belvane Demo - Morning in C\" first).",
       runDemoStation, {}, {}},
  };
}

}  // namespace belvane::tool
