// The scripted Helix client kit as the player tests see it: installed once
// per process in a temporary "com.RealNetworks.RealPlayer" application
// bundle and loaded by the Helix engine's shared instance (the real loading
// path), with the kit's driving functions looked up in the loaded kit.
#pragma once

#include <belvane/BVHelixPlayer.h>

#include "support/recording_owner.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace belvane::test {

struct ScriptedKit {
  // Installs and loads the kit on first use; fails the test when it cannot.
  static ScriptedKit& shared();

  void (*reset)();
  void (*fail)(const char* operation);
  void (*setPosition)(uint32_t ms);
  void (*setLength)(uint32_t ms);
  void (*setLive)(bool live);
  void (*setStartSeekingResult)(bool ok);
  void (*reportOnRelease)(bool on);
  void (*setStatistic)(const char* name, const char* value);
  const char* (*callsText)();
  int (*liveObjects)();
  size_t (*pendingReports)();
  void (*emitContentState)(int32_t from, int32_t to);
  void (*emitConcluded)();
  void (*emitError)(const char* failure, const char* message, const char* const* keys, const char* const* values,
                    size_t count);
  void (*emitLength)(uint32_t ms);
  void (*emitStatistic)(char kind, const char* name, const char* value);

  // The recorded commands, oldest first.
  std::vector<std::string> calls() const;
  // A new player from the Helix engine.
  std::shared_ptr<BVHelixPlayer> makePlayer() const;
};

// Runs the main run loop until the kit's queued reports have been delivered.
void deliverReports();

}  // namespace belvane::test
