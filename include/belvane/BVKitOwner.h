// BVKitOwner: the process-wide object through which the host receives
// Belvane's diagnostics, and BVLog, the one diagnostic channel.
//
// Messages go to the owner's delegate when the host set one, otherwise to the
// system log (GLib's structured log: the journal, or stderr).
//
// Threads: all of it is safe from any thread (the library logs from its
// reading, decoding and output threads); the delegate is called on the
// thread that logged.
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
  // Thread: any.
  static BVKitOwner& sharedOwner();

  // The delegate is not owned; clear it before it goes away (a call already
  // under way on another thread may still finish). Thread: any.
  void setDelegate(BVKitOwnerDelegate* delegate);
  BVKitOwnerDelegate* delegate() const;

  // Thread: any.
  void logMessage(const std::string& message);

 private:
  BVKitOwner() = default;
};

// printf-style; an empty or null format logs nothing. Thread: any.
extern "C" BV_EXPORT void BVLog(const char* format, ...) __attribute__((format(printf, 1, 2)));
// The message as it stands (never used as a format). Thread: any.
BV_EXPORT void BVLogString(const std::string& message);
