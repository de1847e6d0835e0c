// belvane play --tool: plays through the player tool process, following the
// player by polling the forwarded operations and reporting what changed in
// the same form as in-process playback.
#include "cmd_play_tool.h"

#include "log_sink.h"
#include "play_failure.h"

#include <belvane/BVBasePlayer.h>
#include <belvane/BVConstants.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVPlayerToolClient.h>
#include <belvane/BVRunLoop.h>

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace belvane::tool {

namespace {

constexpr double kPollInterval = 0.1;

class ToolPlayback {
 public:
  ToolPlayback(BVPlayerToolClient& client, bool json) : client_(client), json_(json) {}

  // Polls once; false when playback has ended.
  bool poll() {
    if (!client_.isConnected()) {
      error_ = BVError::withDescription(BVBelvaneErrorDomain, 5602, "The player tool ended unexpectedly.");
      report(state_, BVPlayerStateError, error_);
      state_ = BVPlayerStateError;
      return false;
    }
    auto state = BVPlayerState(client_.state());
    BVDictionary attributes = client_.attributes();
    if (attributes != attributes_) {
      attributes_ = attributes;
      if (!attributes.empty()) reportAttributes(attributes);
    }
    if (state != state_) {
      BVErrorRef error = state == BVPlayerStateError ? client_.lastError() : nullptr;
      if (error) error_ = error;
      report(state_, state, error);
      state_ = state;
    }
    return state_ != BVPlayerStateStopped && state_ != BVPlayerStateError;
  }

  BVPlayerState state() const { return state_; }
  const BVErrorRef& lastError() const { return error_; }
  void end() {
    if (json_) print({{"t", seconds()}, {"event", "end"}, {"state", int(state_)}});
  }

 private:
  double seconds() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count(); }

  void print(const nlohmann::ordered_json& line) {
    std::printf("%s\n", line.dump().c_str());
    std::fflush(stdout);
  }

  void report(BVPlayerState from, BVPlayerState to, const BVErrorRef& error) {
    if (json_) {
      nlohmann::ordered_json line;
      line["t"] = seconds();
      line["event"] = "state";
      line["from"] = int(from);
      line["to"] = int(to);
      line["error"] = errorToJSON(error);
      line["engine"] = "";
      line["outputFrames"] = client_.outputFramesWritten();
      print(line);
      return;
    }
    static const char* names[] = {"Idle", "Connecting", "Playing", "Stopped", "Error"};
    // The error itself is said once, on stderr, when playback has ended.
    std::printf("State: %s\n", names[std::clamp(int(to), 0, 4)]);
    std::fflush(stdout);
  }

  void reportAttributes(const BVDictionary& attributes) {
    if (json_) {
      nlohmann::ordered_json line;
      line["t"] = seconds();
      line["event"] = "attribute";
      line["attributes"] = valueToJSON(BVValue(attributes));
      line["engine"] = "";
      line["outputFrames"] = client_.outputFramesWritten();
      print(line);
      return;
    }
    if (auto title = BVDictionaryString(attributes, BVPlayerAttributeStreamTitleKey))
      std::printf("Now playing: %s\n", title->c_str());
    std::fflush(stdout);
  }

  BVPlayerToolClient& client_;
  bool json_;
  BVPlayerState state_ = BVPlayerStateIdle;
  BVErrorRef error_;
  BVDictionary attributes_;
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace

int playThroughTool(const std::string& toolPath, const BVURL& url, const std::string& output, double duration,
                    double volume, bool mute, bool json, const std::string& announcement) {
  BVPlayerToolClient client;
  client.setServerToolPath(toolPath);
  if (auto error = client.connect()) {
    std::fprintf(stderr, "belvane play: %s\n", error->localizedDescription().c_str());
    return 1;
  }
  if (client.setAudioOutput(output) != 0) {
    std::fprintf(stderr, "belvane play: the player tool does not understand the output '%s'\n", output.c_str());
    client.disconnect();
    return 1;
  }
  if (volume >= 0) client.setVolume(float(volume));
  if (mute) client.setMuted(true);
  if (!announcement.empty()) std::printf("%s\n", announcement.c_str());
  ToolPlayback playback(client, json);
  client.playMediaLink(BVMediaLink::linkWithURL(url));
  BVRunLoop loop = BVRunLoop::main();
  bool done = false;
  auto timer = BVTimer::scheduledTimer(kPollInterval, true, [&](BVTimer& t) {
    if (!playback.poll()) {
      done = true;
      t.invalidate();
    }
  });
  loop.runUntil([&] { return done; }, duration > 0 ? duration : 1e9);
  timer->invalidate();
  playback.end();
  client.disconnect();
  if (playback.state() != BVPlayerStateError) return 0;
  std::fprintf(stderr, "belvane play: %s\n", playbackFailureLine(playback.lastError(), url, output).c_str());
  if (LogSink::shared().verbose()) std::fprintf(stderr, "%s\n", playbackFailureDetails(playback.lastError()).c_str());
  return 1;
}

}  // namespace belvane::tool
