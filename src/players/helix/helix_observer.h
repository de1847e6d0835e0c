// The C observer table through which a Helix client kit reports to a
// BVHelixPlayer: each entry forwards to the player named by the context.
#pragma once

#include <belvane/HXClientKitABI.h>

class BVHelixPlayer;

namespace belvane::detail {

// An observer whose context is the player and whose every callback is set.
HXClientObserver helixObserverFor(BVHelixPlayer* player);

}  // namespace belvane::detail
