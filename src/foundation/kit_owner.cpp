// BVKitOwner and BVLog: diagnostics go to the host's delegate or the system log.
#include <belvane/BVKitOwner.h>

#include "foundation/url_redaction.h"

#include <glib.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <vector>

namespace {
std::atomic<BVKitOwnerDelegate*> gDelegate{nullptr};

// With BELVANE_QUIET_LOG set, a process whose host listens to nothing (a
// helper process such as the player tool, started by a command-line host
// that keeps its terminal clear) logs at GLib's "info" level, which is
// written only when G_MESSAGES_DEBUG asks for it. Read once.
GLogLevelFlags undelegatedLevel() {
  static const GLogLevelFlags level = [] {
    const char* quiet = g_getenv("BELVANE_QUIET_LOG");
    return quiet && *quiet ? G_LOG_LEVEL_INFO : G_LOG_LEVEL_MESSAGE;
  }();
  return level;
}
}  // namespace

BVKitOwner& BVKitOwner::sharedOwner() {
  static BVKitOwner* owner = new BVKitOwner();  // lives for the rest of the process
  return *owner;
}

void BVKitOwner::setDelegate(BVKitOwnerDelegate* delegate) { gDelegate.store(delegate); }
BVKitOwnerDelegate* BVKitOwner::delegate() const { return gDelegate.load(); }

void BVKitOwner::logMessage(const std::string& text) {
  // Logs are read by others than the listener: no passwords in them.
  const std::string message = belvane::detail::withoutURLPasswords(text);
  if (auto d = gDelegate.load()) {
    d->belvaneOwnerDebugLog(message);
    return;
  }
  // The message is an argument, never a format.
  g_log_structured(G_LOG_DOMAIN, undelegatedLevel(), "MESSAGE", "%s", message.c_str());
}

void BVLog(const char* format, ...) {
  if (!format || !*format) return;
  va_list ap;
  va_start(ap, format);
  va_list ap2;
  va_copy(ap2, ap);
  int n = std::vsnprintf(nullptr, 0, format, ap);
  va_end(ap);
  if (n < 0) {
    va_end(ap2);
    return;
  }
  std::vector<char> buf(size_t(n) + 1);
  std::vsnprintf(buf.data(), buf.size(), format, ap2);
  va_end(ap2);
  BVKitOwner::sharedOwner().logMessage(std::string(buf.data(), size_t(n)));
}

void BVLogString(const std::string& message) {
  if (message.empty()) return;
  BVKitOwner::sharedOwner().logMessage(message);
}
