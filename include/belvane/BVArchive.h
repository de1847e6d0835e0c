// Archives: the self-describing binary form of records and payloads.
//
// An archive is a binary property list. Plain values map to their property
// list kinds; the null object, absent values and objects are dictionaries
// tagged with "$null", "$none" or "$class" (a dictionary that has keys of its
// own beginning with "$" is wrapped as {"$dict": ...}). An object writes its
// fields in order through BVArchiveEncoder (its sequential archive, stored
// under "$items") and is rebuilt by the decoder registered for its class
// name. Decoding makes only objects of the classes the caller allows, and
// bounds size, depth and element count; it never trusts the bytes.
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVValue.h>

#include <functional>
#include <initializer_list>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace belvane {

class BVArchiveDecoder;

class BV_EXPORT BVArchiveEncoder {
 public:
  void encodeObject(const BVValue& value) { items_.push_back(value); }
  const BVArray& items() const { return items_; }

 private:
  BVArray items_;
};

class BV_EXPORT BVArchiveDecoder {
 public:
  explicit BVArchiveDecoder(const BVArray& items) : items_(items) {}
  // The next encoded value; absent once all are read.
  BVValue decodeObject();
  bool atEnd() const { return next_ >= items_.size(); }

 private:
  const BVArray& items_;
  size_t next_ = 0;
};

// Rebuilds an object from its decoded items (nested objects already
// rebuilt); an absent value when the items are not what the class writes,
// which refuses the whole archive.
using BVArchiveFactory = std::function<BVValue(BVArchiveDecoder&)>;

// Registers how to rebuild objects of a class name (replacing an earlier
// registration). Registering is process-wide; whether a decode may use a
// class is the caller's choice. "NSError" is registered by the library.
BV_EXPORT void BVArchiveRegisterClass(const std::string& className, BVArchiveFactory factory);

struct BV_EXPORT BVArchiveLimits {
  size_t maxBytes = 16 * 1024 * 1024;
  size_t maxDepth = 64;  // nesting of arrays, dictionaries and objects; the root counts 1
  size_t maxElements = 1 << 20;
};

// The archive of root; empty when it holds an object that is not archivable
// (supportsCoding() false) or nests deeper than 256 levels.
BV_EXPORT std::vector<uint8_t> BVArchivedData(const BVValue& root);
// Nothing when the bytes do not decode, exceed the limits, or name a class
// not in allowedClasses.
BV_EXPORT std::optional<BVValue> BVUnarchive(std::span<const uint8_t> bytes, const std::set<std::string, std::less<>>& allowedClasses,
                                   const BVArchiveLimits& limits = {});

}  // namespace belvane
