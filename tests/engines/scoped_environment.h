// Points the XDG data lookups at one folder for a test, and restores the
// environment afterwards.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace belvane::test {

class ScopedXDGDataHome {
 public:
  explicit ScopedXDGDataHome(const std::string& home) {
    set("XDG_DATA_HOME", home, savedHome_);
    set("XDG_DATA_DIRS", home + "/no-system-data", savedDirs_);
  }
  ~ScopedXDGDataHome() {
    restore("XDG_DATA_HOME", savedHome_);
    restore("XDG_DATA_DIRS", savedDirs_);
  }
  ScopedXDGDataHome(const ScopedXDGDataHome&) = delete;
  ScopedXDGDataHome& operator=(const ScopedXDGDataHome&) = delete;

 private:
  static void set(const char* name, const std::string& value, std::optional<std::string>& saved) {
    if (const char* old = std::getenv(name)) saved = old;
    setenv(name, value.c_str(), 1);
  }
  static void restore(const char* name, const std::optional<std::string>& saved) {
    saved ? setenv(name, saved->c_str(), 1) : unsetenv(name);
  }
  std::optional<std::string> savedHome_, savedDirs_;
};

}  // namespace belvane::test
