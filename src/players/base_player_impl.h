// BVBasePlayer::Impl: the part of every player that the public header
// leaves opaque: the link being played, the playback's output session and
// its station tap, each under its lock, and the thread the player was made
// on. The players built on BVBasePlayer reach it through baseImpl(): they
// hand the tap and the output session to their engines, and share both
// with a player that plays for them (share), so that a recording of either
// kind goes on across a switch of engine.
//
// Threads: the player's run loop, except link(), stationTap() and
// outputPlayback(), which the threads that feed the output and the tap
// call too.
#pragma once

#include <belvane/BVBasePlayer.h>

#include <memory>

#include "foundation/thread_annotations.h"
#include "foundation/thread_check.h"

namespace belvane::detail {
class OutputPlayback;
class StationTap;
}  // namespace belvane::detail

// Hidden: the library's own, though its class is exported.
struct __attribute__((visibility("hidden"))) BVBasePlayer::Impl {
  std::shared_ptr<BVMediaLink> link() const EXCLUDES(linkMutex);
  // What the engines hand the station's compressed audio to: the tap of
  // this playback (made at playLink, or shared by the player that owns this
  // one); null before the first playLink.
  std::shared_ptr<belvane::detail::StationTap> stationTap() const EXCLUDES(tapMutex);
  // The playback's output session (made at playLink, or shared as the tap
  // is): the engines hand it to their outputs, so that a WAV recording goes
  // on across a switch of engine instead of starting again.
  std::shared_ptr<belvane::detail::OutputPlayback> outputPlayback() const EXCLUDES(linkMutex);
  // For players that play through another player (the master, an engine's
  // player handing a link on): the other player feeds from's tap and
  // writes to from's output session.
  static void share(const BVBasePlayer& from, BVBasePlayer& to);

  mutable belvane::detail::Mutex linkMutex;
  std::shared_ptr<BVMediaLink> link_ GUARDED_BY(linkMutex);
  std::shared_ptr<belvane::detail::OutputPlayback> outputPlayback_ GUARDED_BY(linkMutex);
  bool outputPlaybackShared GUARDED_BY(linkMutex) = false;  // outputPlayback_ is another player's

  mutable belvane::detail::Mutex tapMutex;
  std::shared_ptr<belvane::detail::StationTap> stationTap_ GUARDED_BY(tapMutex);
  bool tapShared GUARDED_BY(tapMutex) = false;  // stationTap_ is another player's

  belvane::detail::ThreadCheck madeOn;  // the thread whose run loop plays the player
};
