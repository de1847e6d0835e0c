// BVObject: root of Belvane's reference-counted objects.
//
// Objects live in std::shared_ptr; an object that announces something to an
// owner keeps itself alive across the callback with shared_from_this().
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
