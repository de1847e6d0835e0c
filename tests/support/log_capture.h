// LogCapture: collects the library's log messages while it lives (it is the
// shared kit owner's delegate for that time).
#pragma once

#include <belvane/BVKitOwner.h>

#include <mutex>
#include <string>
#include <vector>

namespace belvane::test {

class LogCapture : public BVKitOwnerDelegate {
 public:
  LogCapture() { BVKitOwner::sharedOwner().setDelegate(this); }
  ~LogCapture() override { BVKitOwner::sharedOwner().setDelegate(nullptr); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  void belvaneOwnerDebugLog(const std::string& message) override {
    std::lock_guard lock(mutex_);
    messages_.push_back(message);
  }
  std::vector<std::string> messages() const {
    std::lock_guard lock(mutex_);
    return messages_;
  }
  bool contains(const std::string& text) const {
    for (auto& message : messages())
      if (message.find(text) != std::string::npos) return true;
    return false;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> messages_;
};

}  // namespace belvane::test
