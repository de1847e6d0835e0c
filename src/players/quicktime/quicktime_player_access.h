// What the tests read of a QuickTime player's inner state, and the reset of
// the process-wide Flip4Mac version answer (tests install and remove the
// component between cases).
#pragma once

#include <belvane/BVQuickTimePlayer.h>

namespace belvane::detail {

struct QuickTimePlayerAccess {
  static const BVWebPlaylistRef& playlist(const BVQuickTimePlayer& player) { return player._playlist; }
  static bool employedFlip4MacWorkAround(const BVQuickTimePlayer& player) {
    return player._employedFlip4MacWorkAround;
  }
  static void resetFlip4MacVersionCheck();
};

}  // namespace belvane::detail
