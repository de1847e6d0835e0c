// Test helpers for the RealMedia client kit: the built kit's class tables,
// an observer that records every callback, a kit player on the test
// thread's own loop, a RealAudio test file and an RTSP server that refuses.
#pragma once

#include <belvane/BVRunLoop.h>
#include <belvane/BVAudioOutputSetting.h>
#include <belvane/HXClientKitABI.h>

#include "support/gst_media_files.h"
#include "support/process_counts.h"
#include "support/scoped_env.h"
#include "support/test_http_server.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace belvane::test {

struct KitClasses {
  const HXClientPlayerClass* player = nullptr;
  const HXClientViewClass* view = nullptr;
};
// The kit as built (loaded once, never unloaded).
const KitClasses& builtKit();

struct KitError {
  std::string failure, message;
  std::map<std::string, std::string> params;
};

// Records what a kit player reports; statistic notices read "added title=T",
// "modified title=U", "deleted title".
struct KitRecorder {
  KitRecorder();
  HXClientObserver observer{};
  std::vector<std::pair<int32_t, int32_t>> states;
  std::vector<int32_t> stateSequence() const;
  int concluded = 0;
  size_t statesAtConclusion = 0;  // state changes reported before the last conclusion
  std::vector<KitError> errors;
  std::vector<uint32_t> lengths;
  std::vector<std::string> notices;
  bool finished() const { return concluded > 0 || !errors.empty(); }
};

// A kit player made on the test thread's own loop, observed by `events`
// (for the title, author and copyright statistics too) and released at the
// end of the session.
class KitSession {
 public:
  KitSession();
  ~KitSession();
  KitSession(const KitSession&) = delete;
  KitSession& operator=(const KitSession&) = delete;

  const HXClientPlayerClass& kit;
  KitRecorder events;
  HXClientViewRef view = nullptr;
  HXClientPlayerRef player = nullptr;

  // Opens url, the audio going where $BELVANE_AUDIO_OUTPUT says, as a host
  // hands the kit its setting.
  bool open(const std::string& url, const char* mimeType = nullptr) {
    if (auto setting = BVAudioOutputSetting{}.resolved()) {
      HXClientAudioOutput output{int32_t(setting->kind), setting->device.c_str()};
      kit.setAudioOutput(player, &output);
    }
    return kit.openWithURL(player, url.c_str(), mimeType);
  }
  std::string statistic(const char* name) const;
  bool runUntil(const std::function<bool()>& done, double seconds) { return scope_.loop().runUntil(done, seconds); }
  void runFor(double seconds) { scope_.loop().runFor(seconds); }
  // Releases the player now (the destructor then does nothing).
  void release();

 private:
  BVRunLoop::ThreadScope scope_;
};

// A 3-second RealAudio 14.4 file titled "T" by "A", copyright "C", made once
// per test run with ffmpeg.
const std::string& realAudioFile();

// Answers every RTSP request with "454 Session Not Found" and hangs up.
class RefusingRTSPServer {
 public:
  RefusingRTSPServer();
  std::string url(const std::string& path) const {
    return "rtsp://127.0.0.1:" + std::to_string(server_.port()) + path;
  }

 private:
  TestHTTPServer server_;
};

}  // namespace belvane::test
