// BVKitOwner: the process-wide object through which the host receives
// Belvane's diagnostics, and BVLog, the one diagnostic channel.
//
// Messages go to the owner's delegate when the host set one, otherwise to the
// system log (GLib's structured log: the journal, or stderr).
#pragma once

#include <belvane/BVExport.h>

#include <string>

class BV_EXPORT BVKitOwnerDelegate {
 public:
  virtual ~BVKitOwnerDelegate() = default;
  // Called on the thread that logged; must be safe from any thread.
  virtual void belvaneOwnerDebugLog(const std::string& message) = 0;
};

class BV_EXPORT BVKitOwner {
 public:
  static BVKitOwner& sharedOwner();

  // The delegate is not owned; clear it before it goes away.
  void setDelegate(BVKitOwnerDelegate* delegate);
  BVKitOwnerDelegate* delegate() const;

  void logMessage(const std::string& message);

 private:
  BVKitOwner() = default;
};

// printf-style; an empty or null format logs nothing.
extern "C" BV_EXPORT void BVLog(const char* format, ...) __attribute__((format(printf, 1, 2)));
// The message as it stands (never used as a format).
BV_EXPORT void BVLogString(const std::string& message);
