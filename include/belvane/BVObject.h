// BVObject: root of Belvane's reference-counted objects.
//
// Objects live in std::shared_ptr, and one way keeps them alive through a
// callback: a reference taken from the object itself. One that announces
// something to an owner holds shared_from_this() across the call; work
// queued on a run loop names its object as a weak target, which the loop
// holds for the call (BVRunLoop.h); a C callback with a raw pointer takes
// weak_from_this().lock() and drops the report when that is empty, as it is
// while the object is destroyed.
// Records override className(), description() and isEqual().
#pragma once

#include <belvane/BVExport.h>

#include <memory>
#include <string>

namespace belvane {
class BVArchiveEncoder;
}

class BV_EXPORT BVObject : public std::enable_shared_from_this<BVObject> {
 public:
  virtual ~BVObject() = default;

  // The class name hosts see (used in descriptions and archives).
  virtual std::string className() const = 0;
  virtual std::string description() const;
  virtual bool isEqual(const BVObject& other) const { return this == &other; }

  // Archivable objects override both; encodeWithCoder writes the object's
  // sequential archive. Objects that are not archivable answer false.
  virtual bool supportsCoding() const { return false; }
  virtual void encodeWithCoder(belvane::BVArchiveEncoder& coder) const;

 protected:
  BVObject() = default;
  BVObject(const BVObject&) = default;
  BVObject& operator=(const BVObject&) = default;

  template <class T>
  std::shared_ptr<T> sharedAs() {
    return std::static_pointer_cast<T>(shared_from_this());
  }
  template <class T>
  std::shared_ptr<const T> sharedAs() const {
    return std::static_pointer_cast<const T>(shared_from_this());
  }
};

using BVObjectRef = std::shared_ptr<BVObject>;
