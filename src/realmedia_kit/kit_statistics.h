// The statistics of a kit player ("title", "author", "copyright", ...): the
// current values and the observers registered per statistic name, told when
// a value is added, modified or deleted. Names compare ignoring case.
#pragma once

#include <belvane/HXClientKitABI.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace belvane::detail {

class KitStatistics {
 public:
  void addObserver(const HXClientObserver* observer, const std::string& name, void* userInfo);
  void removeObserver(const HXClientObserver* observer, const std::string& name, void* userInfo);
  void removeAllObservers() { observers_.clear(); }

  // The value or nullptr.
  const std::string* value(const std::string& name) const;

  // Sets a value and tells its observers (added or modified); an unchanged
  // value tells nobody. Returns false when a notice found the player
  // released (the caller must stop).
  bool set(const std::string& name, const std::string& value, const std::function<bool()>& alive);
  // Deletes every value, telling the observers of each.
  bool clear(const std::function<bool()>& alive);

 private:
  struct Registration {
    const HXClientObserver* key;  // identifies the registration
    HXClientObserver observer;    // copied, so callbacks never read freed memory
    std::string name;
    void* userInfo;
  };
  // Calls fn for each observer of name; stops when alive() turns false.
  bool tell(const std::string& name, const std::function<bool()>& alive,
            const std::function<void(const HXClientObserver&, void*)>& fn);

  std::map<std::string, std::string> values_;  // by lower-case name
  std::vector<Registration> observers_;
};

}  // namespace belvane::detail
