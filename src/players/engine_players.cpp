// Each engine's player. The engines layer declares _makePlayer() and sits
// below the players; the players layer, which knows the player classes,
// defines it for every engine.
#include <belvane/BVHelixPlayer.h>
#include <belvane/BVMP3StreamPlayer.h>
#include <belvane/BVPlayerEngines.h>
#include <belvane/BVQuickTimePlayer.h>

std::shared_ptr<BVBasePlayer> BVHelixPlayerEngine::_makePlayer() {
  return BVHelixPlayer::create(clientPlayerClass(), clientViewClass());
}

std::shared_ptr<BVBasePlayer> BVMP3StreamPlayerEngine::_makePlayer() { return BVMP3StreamPlayer::create(); }

std::shared_ptr<BVBasePlayer> BVQuicktimePlayerEngine::_makePlayer() { return BVQuickTimePlayer::create(); }

std::shared_ptr<BVBasePlayer> BVWindowsMediaPlayerEngine::_makePlayer() { return BVQuickTimePlayer::create(); }
