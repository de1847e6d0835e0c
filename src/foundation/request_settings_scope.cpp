// RequestSettingsScope: a thread's current request settings.
#include "foundation/request_settings_scope.h"

namespace belvane::detail {

namespace {
thread_local BVRequestSettingsRef tCurrent;
}  // namespace

RequestSettingsScope::RequestSettingsScope(BVRequestSettingsRef settings) : previous_(std::move(tCurrent)) {
  tCurrent = std::move(settings);
}

RequestSettingsScope::~RequestSettingsScope() { tCurrent = std::move(previous_); }

const BVRequestSettingsRef& RequestSettingsScope::current() { return tCurrent; }

}  // namespace belvane::detail
