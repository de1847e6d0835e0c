// The library's diagnostics inside the belvane tool. Library log lines and
// the warnings of the libraries beneath it (GLib, GStreamer) are kept off the
// terminal unless asked for: with --verbose or G_MESSAGES_DEBUG set they go
// to stderr.
#pragma once

#include <belvane/BVKitOwner.h>

#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace belvane::tool {

class LogSink : public BVKitOwnerDelegate {
 public:
  static LogSink& shared();

  // Becomes the kit owner's delegate and filters GLib's log writer; once,
  // before anything logs.
  void install(bool verbose);
  bool verbose() const { return verbose_; }

  void belvaneOwnerDebugLog(const std::string& message) override;

 private:
  LogSink() = default;

  bool verbose_ = false;
  std::mutex mutex_;
};

}  // namespace belvane::tool
