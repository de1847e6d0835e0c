// BVBaseObject: common base of the media records (format, link, link source).
//
// It converts a record to and from a property-list dictionary by walking the
// record's persistent keys through generic key-value access. Each record
// overrides valueForKey/setValueForKey for its properties and extends the
// conversion with what the walk cannot do (nested records, URLs, codes).
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVObject.h>
#include <belvane/BVValue.h>

#include <string>
#include <string_view>
#include <vector>

class BV_EXPORT BVBaseObject : public BVObject {
 public:
  // The properties written to and read from a property list, in order. A
  // subclass returns its superclass's list with its own names appended.
  virtual std::vector<std::string> persistentKeys() const { return {}; }
  // The persistent keys whose value is stored as a mutable copy when read.
  // No record uses it; values are copied on reading anyway.
  virtual std::vector<std::string> mutableKeys() const { return {}; }

  // Generic key-value access under a property's name. The base has no
  // properties: it answers an absent value and ignores writes.
  virtual BVValue valueForKey(std::string_view key) const;
  virtual void setValueForKey(std::string_view key, const BVValue& value);

  // The record as a property-list dictionary: every persistent key whose
  // value is present (absent values are left out). Records extend it.
  virtual BVDictionary plistRepresentation() const;

 protected:
  BVBaseObject() = default;

  // Reading a property list: stores the value of every persistent key found
  // in plist through setValueForKey, as given (no type check). Records
  // extend it and call the base first.
  virtual void initWithPlistRepresentation(const BVDictionary& plist);
};
