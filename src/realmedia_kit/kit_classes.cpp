// The kit's two exported class tables, "HXClientPlayer" and "HXClientView":
// plain C entry points that forward to KitPlayer. Only these two symbols
// leave the library (it is built with hidden visibility).
#include "kit_player.h"

#include <belvane/HXClientKitABI.h>

#include <new>

using belvane::detail::KitPlayer;

struct HXClientPlayerInstance {
  std::shared_ptr<KitPlayer> player;
};

// The host view: the kit draws nothing, so it only remembers its frame.
struct HXClientViewInstance {
  double x, y, width, height;
};

namespace {

KitPlayer* kit(HXClientPlayerRef ref) { return ref ? ref->player.get() : nullptr; }
std::string text(const char* s) { return s ? s : ""; }

void releasePlayer(HXClientPlayerRef ref) {
  if (!ref) return;
  // Callbacks in progress keep the player object alive; none follow.
  ref->player->release();
  delete ref;
}

HXClientPlayerRef initInView(HXClientViewRef, const HXClientObserver* observer) {
  auto player = KitPlayer::create(observer);
  if (!player) return nullptr;
  return new (std::nothrow) HXClientPlayerInstance{std::move(player)};
}

bool openWithURL(HXClientPlayerRef ref, const char* url, const char* mimeType) {
  return kit(ref) && url && kit(ref)->open(url, text(mimeType));
}

int32_t contentState(HXClientPlayerRef ref) { return kit(ref) ? kit(ref)->contentState() : HXContentStateNotLoaded; }
void play(HXClientPlayerRef ref) {
  if (kit(ref)) kit(ref)->play();
}
void pause(HXClientPlayerRef ref) {
  if (kit(ref)) kit(ref)->pause();
}
void stop(HXClientPlayerRef ref) {
  if (kit(ref)) kit(ref)->stop();
}
bool startSeeking(HXClientPlayerRef ref) { return kit(ref) && kit(ref)->startSeeking(); }
void stopSeeking(HXClientPlayerRef ref) {
  if (kit(ref)) kit(ref)->stopSeeking();
}
void setPosition(HXClientPlayerRef ref, uint32_t milliseconds) {
  if (kit(ref)) kit(ref)->setPosition(milliseconds);
}
uint32_t position(HXClientPlayerRef ref) { return kit(ref) ? kit(ref)->position() : 0; }
uint16_t volume(HXClientPlayerRef ref) { return kit(ref) ? kit(ref)->volume() : 0; }
void setVolume(HXClientPlayerRef ref, uint16_t volume) {
  if (kit(ref)) kit(ref)->setVolume(volume);
}
bool isMuted(HXClientPlayerRef ref) { return kit(ref) && kit(ref)->isMuted(); }
void mute(HXClientPlayerRef ref, bool muted) {
  if (kit(ref)) kit(ref)->mute(muted);
}
uint32_t length(HXClientPlayerRef ref) { return kit(ref) ? kit(ref)->length() : 0; }
bool isLive(HXClientPlayerRef ref) { return !kit(ref) || kit(ref)->isLive(); }
char* copyStatisticsFor(HXClientPlayerRef ref, const char* name) {
  return kit(ref) && name ? kit(ref)->copyStatistic(name) : nullptr;
}
void addObserver(HXClientPlayerRef ref, const HXClientObserver* observer, const char* name, void* userInfo) {
  if (kit(ref) && name) kit(ref)->addObserver(observer, name, userInfo);
}
void removeObserver(HXClientPlayerRef ref, const HXClientObserver* observer, const char* name, void* userInfo) {
  if (kit(ref) && name) kit(ref)->removeObserver(observer, name, userInfo);
}

void setAudioOutput(HXClientPlayerRef ref, const HXClientAudioOutput* output) {
  if (kit(ref) && output) kit(ref)->setAudioOutput({output->kind, text(output->device)});
}
void releaseView(HXClientViewRef view) { delete view; }
HXClientViewRef initWithFrame(double x, double y, double width, double height) {
  return new (std::nothrow) HXClientViewInstance{x, y, width, height};
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) extern const HXClientPlayerClass HXClientPlayer;
__attribute__((visibility("default"))) extern const HXClientViewClass HXClientView;

const HXClientPlayerClass HXClientPlayer = {
    HX_CLIENT_KIT_ABI_VERSION,
    sizeof(HXClientPlayerClass),
    releasePlayer,
    initInView,
    openWithURL,
    contentState,
    play,
    pause,
    stop,
    startSeeking,
    stopSeeking,
    setPosition,
    position,
    volume,
    setVolume,
    isMuted,
    mute,
    length,
    isLive,
    copyStatisticsFor,
    addObserver,
    removeObserver,
    setAudioOutput,
};

const HXClientViewClass HXClientView = {
    HX_CLIENT_KIT_ABI_VERSION, sizeof(HXClientViewClass), true, releaseView, initWithFrame,
};

}  // extern "C"
