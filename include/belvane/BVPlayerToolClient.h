// BVPlayerToolClient: the host's handle on a player running in the player
// tool process. Every player operation is a call forwarded over the tool
// connection; the client is the connection's vended object on this side, so
// its operation table gives the calls' argument and return types.
//
// Calls never throw: a failure in the tool gives zero or nothing (logged).
// A tool that dies, or does not answer within timeout() (5 s by default), is
// ended and disconnects the client; state() then reports BVPlayerStateError
// and lastError() "The player tool ended unexpectedly." (or that it stopped
// answering), as a player in the host would report its own failure.
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVError.h>
#include <belvane/BVToolConnection.h>
#include <belvane/BVValue.h>

#include <memory>
#include <string>

class BVMediaLink;

// The shared-memory record declared for the comms block (unused here).
struct BV_EXPORT bv_comms_s {
  double d[2];
  float f[2];
  char c[2];
};

class BV_EXPORT BVPlayerToolClient : public BVVendable {
 public:
  BVPlayerToolClient();
  ~BVPlayerToolClient() override;

  void setServerToolPath(const std::string& path) { connection_->setServerToolPath(path); }
  const std::string& serverToolPath() const { return connection_->serverToolPath(); }
  BVErrorRef connect() { return connection_->connect(); }
  void disconnect() { connection_->disconnect(); }
  int serverProcessID() const { return connection_->serverProcessID(); }
  void setTimeout(double seconds) { connection_->setTimeout(seconds); }
  double timeout() const { return connection_->timeout(); }
  bool isConnected() const { return connection_->isConnected(); }

  // Forwarded to the tool's player.
  BVValue loadPatchLibrary(const BVValue& library, const BVValue& principalClass);
  void playMediaLink(const std::shared_ptr<BVMediaLink>& link);
  void setVolume(float volume);
  float volume();
  void setMuted(bool muted);
  bool isMuted();
  float elapsedTime();
  BVDictionary attributes();
  BVErrorRef lastError();
  // The tool player's state (a BVPlayerState value); a Linux addition so a
  // host can follow playback without callbacks across the process boundary.
  int state();
  // Linux additions: the tool player's audio output (see BVBasePlayer), its
  // name once playing, and the frames it has written.
  int setAudioOutput(const std::string& setting);
  std::string audioOutputName();
  uint64_t outputFramesWritten();

  // The operations the tool's player answers, with their type codes.
  static const BVRemoteInterface& playerToolInterface();
  const BVRemoteInterface& remoteInterface() override { return playerToolInterface(); }

 private:
  BVToolConnection& send() { return connection_->send(); }

  std::unique_ptr<BVToolConnection> connection_;
  // A shared-memory comms record, declared for layout's sake and never used:
  // every call goes through the pipes.
  [[maybe_unused]] void* sharedMemory = nullptr;
  [[maybe_unused]] int sharedMemFileDescriptor = -1;
  [[maybe_unused]] bv_comms_s* comms = nullptr;
};
