// A first Belvane player: plays one link, prints each change of state and
// each stream or track title, and stops after a given time or when the
// playback ends.
//
//   first-player URL-OR-PATH [SECONDS]
#include <belvane/BVConstants.h>
#include <belvane/BVMasterPlayer.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVRunLoop.h>
#include <belvane/BVURLAdditions.h>

#include <cstdio>
#include <cstdlib>

namespace {

const char* stateName(BVPlayerState state) {
  switch (state) {
    case BVPlayerStateIdle: return "idle";
    case BVPlayerStateConnecting: return "connecting";
    case BVPlayerStatePlaying: return "playing";
    case BVPlayerStateStopped: return "stopped";
    case BVPlayerStateError: return "error";
  }
  return "?";
}

// The owner hears the player on the main run loop.
class Listener : public BVPlayerOwner {
 public:
  void playerStateChanged(BVBasePlayer&, BVPlayerState from, BVPlayerState to, const BVErrorRef& error) override {
    std::printf("state: %s -> %s\n", stateName(from), stateName(to));
    if (error) std::printf("error: %s\n", error->localizedDescription().c_str());
    // The playback came to its end: leave the run loop.
    if (to == BVPlayerStateStopped || to == BVPlayerStateError) BVRunLoop::main().stop();
  }

  void playerPositionChanged(BVBasePlayer& player, float position) override {
    // A fraction of the whole (0.0 to 1.0); elapsedTime() has the seconds.
    std::printf("position: %.0f %% (%.1f s)\n", position * 100.0, player.elapsedTime());
  }

  // Every call carries all current attributes; the title printed is the
  // stream title (a station's song), else the track title (a file's tag),
  // and only when it changed. An empty stream title means that nothing is
  // announced for now.
  void playerAttributeChanged(BVBasePlayer&, const BVDictionary& attributes) override {
    const std::string* title = BVDictionaryString(attributes, BVPlayerAttributeStreamTitleKey);
    if (!title) title = BVDictionaryString(attributes, BVPlayerAttributeTrackTitleKey);
    std::string now = title ? *title : std::string();
    if (now == shown_) return;
    shown_ = now;
    std::printf("title: %s\n", now.c_str());
  }

 private:
  std::string shown_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: first-player URL-OR-PATH [SECONDS]\n");
    return 2;
  }
  // A URL, or a file path as a shell gives it ("song.mp3", "~/Music/a b.ogg").
  auto url = bvURLFromArgument(argv[1]);
  if (!url) {
    std::fprintf(stderr, "first-player: neither a URL nor a file: %s\n", argv[1]);
    return 2;
  }
  double seconds = argc > 2 ? std::atof(argv[2]) : 10.0;

  // The master player chooses the engine for each link.
  Listener listener;
  auto player = BVMasterPlayer::create();
  player->setOwner(&listener);
  player->playLink(BVMediaLink::linkWithURL(*url));

  // Everything happens on the main run loop (GLib's default context; a GTK
  // or Qt application already runs it).
  BVDelayedPerform timeLimit = BVRunLoop::main().performAfterDelay(seconds, [] { BVRunLoop::main().stop(); });
  BVRunLoop::main().run();
  timeLimit.cancel();

  // Stopping: clear the owner, then release the player; its audio stops at
  // once.
  bool failed = player->state() == BVPlayerStateError;
  player->setOwner(nullptr);
  player.reset();
  std::printf("stopped\n");
  return failed ? 1 : 0;
}
