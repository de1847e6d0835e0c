// RecordingOwner: a player owner that records every callback in order, for
// the player tests, and a helper to play a link on the main loop until a
// state is reached.
#pragma once

#include <belvane/BVBasePlayer.h>
#include <belvane/BVConstants.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVRunLoop.h>
#include <belvane/BVURL.h>

#include <functional>
#include <string>
#include <vector>

namespace belvane::test {

struct StateEvent {
  BVPlayerState from, to;
  BVErrorRef error;
  BVBasePlayer* player;
};

class RecordingOwner : public BVPlayerOwner {
 public:
  std::vector<StateEvent> states;
  std::vector<std::string> titles;
  std::vector<uint64_t> titleFrames;  // frames() when each title arrived
  std::function<uint64_t()> frames;
  std::function<void(BVBasePlayer&, BVPlayerState)> onState;

  void playerStateChanged(BVBasePlayer& p, BVPlayerState from, BVPlayerState to, const BVErrorRef& e) override {
    states.push_back({from, to, e, &p});
    if (onState) onState(p, to);
  }
  void playerAttributeChanged(BVBasePlayer&, const BVDictionary& attributes) override {
    auto it = attributes.find(BVPlayerAttributeStreamTitleKey);
    if (it == attributes.end()) return;
    titles.push_back(it->second.stringOr());
    titleFrames.push_back(frames ? frames() : 0);
  }
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
};

inline std::shared_ptr<BVMediaLink> linkTo(const std::string& url) {
  return BVMediaLink::linkWithURL(*BVURL::URLWithString(url));
}

inline bool runUntilEnded(const RecordingOwner& owner, double seconds = 20.0) {
  return BVRunLoop::main().runUntil(
      [&] { return owner.reached(BVPlayerStateStopped) || owner.reached(BVPlayerStateError); }, seconds);
}

}  // namespace belvane::test
