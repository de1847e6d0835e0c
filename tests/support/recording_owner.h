// RecordingOwner: a player owner that records every callback in order (states
// with their errors and players, positions, attribute changes, stream titles
// with the frames written when each arrived), a master player that reports
// to one, and helpers to make a link and to run the main loop until a state
// is reached.
#pragma once

#include <belvane/BVBasePlayer.h>
#include <belvane/BVConstants.h>
#include <belvane/BVMasterPlayer.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVQuickTimePlayer.h>
#include <belvane/BVRunLoop.h>
#include <belvane/BVURL.h>

#include <gtest/gtest.h>

#include <chrono>
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
  std::vector<float> positions;
  std::vector<BVDictionary> attributeChanges;
  std::vector<std::string> titles;    // stream titles, each when announced
  std::vector<uint64_t> titleFrames;  // frames() when each title arrived
  std::function<uint64_t()> frames;
  std::function<void(BVBasePlayer&, BVPlayerState)> onState;
  struct ReceptionEvent {
    BVPlayerReception reception;
    std::chrono::steady_clock::time_point at;
  };
  std::vector<ReceptionEvent> receptions;

  void playerStateChanged(BVBasePlayer& p, BVPlayerState from, BVPlayerState to, const BVErrorRef& e) override {
    states.push_back({from, to, e, &p});
    if (onState) onState(p, to);
  }
  void playerPositionChanged(BVBasePlayer&, float position) override { positions.push_back(position); }
  void playerReceptionChanged(BVBasePlayer&, const BVPlayerReception& reception) override {
    receptions.push_back({reception, std::chrono::steady_clock::now()});
  }
  // Each call carries the whole set: its stream title is news when it
  // differs from the last call's, or when the set is the last one again (a
  // station announcing the same title anew).
  void playerAttributeChanged(BVBasePlayer&, const BVDictionary& attributes) override {
    const BVDictionary previous = attributeChanges.empty() ? BVDictionary{} : attributeChanges.back();
    attributeChanges.push_back(attributes);
    auto it = attributes.find(BVPlayerAttributeStreamTitleKey);
    if (it == attributes.end()) return;
    auto before = previous.find(BVPlayerAttributeStreamTitleKey);
    if (before != previous.end() && before->second == it->second && previous != attributes) return;
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
  // Every value announced for key, in order (null for a removal).
  std::vector<BVValue> announced(const char* key) const {
    std::vector<BVValue> out;
    for (auto& change : attributeChanges)
      if (auto it = change.find(key); it != change.end()) out.push_back(it->second);
    return out;
  }
  size_t count() const { return states.size() + positions.size() + attributeChanges.size(); }
  // Runs the main loop until s (true) or an error is reached.
  bool runUntil(BVPlayerState s, double seconds = 20.0) const {
    return BVRunLoop::main().runUntil([&] { return reached(s) || reached(BVPlayerStateError); }, seconds) &&
           reached(s);
  }
};

// A master player writing to `output` (none given: the player's default)
// whose owner records everything; the owner is detached before it goes.
struct MasterRun {
  std::shared_ptr<BVMasterPlayer> master = BVMasterPlayer::create();
  RecordingOwner owner;
  explicit MasterRun(const std::string& output = {}) {
    if (!output.empty()) EXPECT_EQ(master->setAudioOutput(output), 0);
    master->setOwner(&owner);
    owner.frames = [m = master.get()] { return m->outputFramesWritten(); };
  }
  ~MasterRun() { master->setOwner(nullptr); }
  bool ended() const { return owner.reached(BVPlayerStateStopped) || owner.reached(BVPlayerStateError); }
  // Runs the main loop until `count` stream titles have come (true) or the
  // playback ended.
  bool runUntilTitles(size_t count, double seconds) {
    BVRunLoop::main().runUntil([&] { return owner.titles.size() >= count || ended(); }, seconds);
    return owner.titles.size() >= count;
  }
  void expectPlayedByTheGeneralEngineWithoutAnError() const {
    EXPECT_NE(dynamic_cast<BVQuickTimePlayer*>(master->subPlayer().get()), nullptr);
    for (auto& event : owner.states) EXPECT_EQ(event.error, nullptr);  // the streamer's refusal stays inside
    EXPECT_TRUE(owner.announced(BVPlayerAttributeTrackTitleKey).empty()) << "stream titles are not track titles";
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
