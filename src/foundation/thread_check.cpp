// The failure of a thread check (see thread_check.h).
#include "foundation/thread_check.h"

#include <belvane/BVKitOwner.h>

#include <cstdlib>

namespace belvane::detail {

#if defined(BELVANE_THREAD_CHECKS) || !defined(NDEBUG)
void failThreadCheck(const char* operation) {
  BVLog("%s was called from a thread other than its run loop's; Belvane's objects are used on the thread "
        "they were made on.",
        operation);
  std::abort();
}
#endif

}  // namespace belvane::detail
