// Helpers for the general engine's player tests: an owner that records every
// callback, media made on the fly, and an endless ADTS station with ICY
// stream titles served from a loopback server.
#pragma once

#include <belvane/BVBasePlayer.h>
#include <belvane/BVConstants.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVRunLoop.h>
#include <belvane/BVURL.h>

#include "support/gst_media_files.h"
#include "support/test_http_server.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace belvane::test {

struct QTStateEvent {
  BVPlayerState to;
  BVErrorRef error;
  BVBasePlayer* player;
};

class QTRecordingOwner : public BVPlayerOwner {
 public:
  std::vector<QTStateEvent> states;
  std::vector<float> positions;
  std::vector<BVDictionary> attributeChanges;

  void playerStateChanged(BVBasePlayer& p, BVPlayerState, BVPlayerState to, const BVErrorRef& e) override {
    states.push_back({to, e, &p});
  }
  void playerPositionChanged(BVBasePlayer&, float position) override { positions.push_back(position); }
  void playerAttributeChanged(BVBasePlayer&, const BVDictionary& a) override { attributeChanges.push_back(a); }

  bool reached(BVPlayerState s) const {
    for (auto& e : states)
      if (e.to == s) return true;
    return false;
  }
  std::vector<BVPlayerState> sequence() const {
    std::vector<BVPlayerState> out;
    for (auto& e : states) out.push_back(e.to);
    return out;
  }
  // Every value announced for key, in order (null for a removal).
  std::vector<BVValue> announced(const char* key) const {
    std::vector<BVValue> out;
    for (auto& change : attributeChanges)
      if (auto it = change.find(key); it != change.end()) out.push_back(it->second);
    return out;
  }
  bool runUntil(BVPlayerState s, double seconds = 20.0) const {
    return BVRunLoop::main().runUntil([&] { return reached(s) || reached(BVPlayerStateError); }, seconds) &&
           reached(s);
  }
};

inline std::shared_ptr<BVMediaLink> linkTo(const std::string& url) {
  return BVMediaLink::linkWithURL(*BVURL::URLWithString(url));
}

// An endless AAC station: the ADTS bytes round and round, paced at about
// real time after a short burst, with an ICY metadata block every metaint
// bytes carrying "StreamTitle='<title>';" when the client asked for them.
class AACStation {
 public:
  AACStation(TestHTTPServer& server, const std::string& path, std::string adts, std::string title);
  void setTitle(const std::string& title);

  struct Shared {
    std::mutex mutex;
    std::string title;
  };

 private:
  std::shared_ptr<Shared> shared_ = std::make_shared<Shared>();
};

}  // namespace belvane::test
