// The words a player adds to the error of a live station that stopped
// while playing and did not come back within the player's reconnection
// patience: what happened and for how long it was tried, the same on every
// engine.
#pragma once

#include <belvane/BVError.h>

namespace belvane::detail {

// The error with a failure reason saying the station stopped while playing
// and was tried again for the window that patience gives (see
// BVBasePlayer::setReconnectPatience); an existing failure reason is kept.
BVErrorRef withReconnectionAccount(const BVErrorRef& error, double patience);

}  // namespace belvane::detail
