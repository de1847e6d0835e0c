// RequestSettingsScope: the request settings of the player whose call runs
// on this thread, for requests made on its behalf by code that knows no
// player: a link's format asking its server for the MIME type, an engine
// choice's HEAD request, a playlist's probe. A player opens a scope around
// the calls that choose engines and start playing (BVMasterPlayer and
// BVQuickTimePlayer's playLink); BVURLConnection gives a request without
// settings of its own the scope's, and the workers that make requests for a
// waiting caller take the caller's along. Scopes nest; each thread has its own.
#pragma once

#include <belvane/BVRequestSettings.h>

namespace belvane::detail {

class RequestSettingsScope {
 public:
  explicit RequestSettingsScope(BVRequestSettingsRef settings);
  ~RequestSettingsScope();
  RequestSettingsScope(const RequestSettingsScope&) = delete;
  RequestSettingsScope& operator=(const RequestSettingsScope&) = delete;

  // The innermost scope's settings on this thread; null outside any scope.
  static const BVRequestSettingsRef& current();

 private:
  BVRequestSettingsRef previous_;
};

}  // namespace belvane::detail
