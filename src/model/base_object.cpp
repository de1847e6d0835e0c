// BVBaseObject: the key-driven property-list walk shared by the records.
#include <belvane/BVBaseObject.h>

BVValue BVBaseObject::valueForKey(std::string_view) const { return {}; }

void BVBaseObject::setValueForKey(std::string_view, const BVValue&) {}

void BVBaseObject::initWithPlistRepresentation(const BVDictionary& plist) {
  // Values are stored as they come: no type check. A mutable key needs no
  // extra step, because a value read here is already the record's own copy.
  for (const std::string& key : persistentKeys()) {
    auto it = plist.find(key);
    if (it == plist.end() || it->second.isNone()) continue;
    setValueForKey(key, it->second);
  }
}

BVDictionary BVBaseObject::plistRepresentation() const {
  BVDictionary plist;
  for (const std::string& key : persistentKeys()) {
    BVValue value = valueForKey(key);
    if (!value.isNone()) plist[key] = std::move(value);
  }
  return plist;
}
