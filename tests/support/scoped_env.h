// ScopedEnv sets one environment variable for a test's scope and restores
// it afterwards; ScopedXDGDataHome points the XDG data lookups (the user's
// folder and the system folders) at one folder.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace belvane::test {

class ScopedEnv {
 public:
  ScopedEnv(const char* name, const std::string& value) : name_(name) {
    if (const char* old = std::getenv(name)) saved_ = old;
    setenv(name, value.c_str(), 1);
  }
  ~ScopedEnv() { saved_ ? setenv(name_, saved_->c_str(), 1) : unsetenv(name_); }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  const char* name_;
  std::optional<std::string> saved_;
};

struct ScopedXDGDataHome {
  explicit ScopedXDGDataHome(const std::string& home)
      : home_("XDG_DATA_HOME", home), dirs_("XDG_DATA_DIRS", home + "/no-system-data") {}
  ScopedEnv home_, dirs_;
};

}  // namespace belvane::test
