// BVTimerForwarder: forwards a timer's firing to a target it does not own.
#include <belvane/BVTimerForwarder.h>

void BVTimerForwarder::timerAction(BVTimer& timer) {
  if (mTarget && mAction) mAction(mTarget, timer);
}
