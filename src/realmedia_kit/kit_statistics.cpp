// Statistic values and their observers.
#include "kit_statistics.h"

#include <algorithm>
#include <cctype>

namespace belvane::detail {

namespace {

std::string lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  return s;
}

}  // namespace

void KitStatistics::addObserver(const HXClientObserver* observer, const std::string& name, void* userInfo) {
  if (!observer) return;
  observers_.push_back(Registration{observer, *observer, lower(name), userInfo});
}

void KitStatistics::removeObserver(const HXClientObserver* observer, const std::string& name, void* userInfo) {
  std::string key = lower(name);
  auto it = std::find_if(observers_.begin(), observers_.end(), [&](const Registration& r) {
    return r.key == observer && r.name == key && r.userInfo == userInfo;
  });
  if (it != observers_.end()) observers_.erase(it);
}

const std::string* KitStatistics::value(const std::string& name) const {
  auto it = values_.find(lower(name));
  return it == values_.end() ? nullptr : &it->second;
}

bool KitStatistics::tell(const std::string& name, const std::function<bool()>& alive,
                         const std::function<void(const HXClientObserver&, void*)>& fn) {
  // An observer may remove itself (or others) while being told: work on a copy.
  std::vector<Registration> current = observers_;
  for (const Registration& r : current) {
    if (r.name != name) continue;
    fn(r.observer, r.userInfo);
    if (!alive()) return false;
  }
  return true;
}

bool KitStatistics::set(const std::string& name, const std::string& value, const std::function<bool()>& alive) {
  std::string key = lower(name);
  auto it = values_.find(key);
  if (it != values_.end() && it->second == value) return true;
  bool added = it == values_.end();
  values_[key] = value;
  return tell(key, alive, [&](const HXClientObserver& o, void* userInfo) {
    auto callback = added ? o.onAddedStatistic : o.onModifiedStatistic;
    if (callback) callback(o.context, key.c_str(), value.c_str(), userInfo);
  });
}

bool KitStatistics::clear(const std::function<bool()>& alive) {
  std::map<std::string, std::string> old;
  old.swap(values_);
  for (const auto& entry : old) {
    const std::string& key = entry.first;  // clang 14 cannot capture a structured binding
    bool ok = tell(key, alive, [&](const HXClientObserver& o, void* userInfo) {
      if (o.onDeletedStatistic) o.onDeletedStatistic(o.context, key.c_str(), userInfo);
    });
    if (!ok) return false;
  }
  return true;
}

}  // namespace belvane::detail
