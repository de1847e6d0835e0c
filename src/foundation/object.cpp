// BVObject defaults.
#include <belvane/BVObject.h>

#include <cstdio>

std::string BVObject::description() const {
  char buf[64];
  std::snprintf(buf, sizeof buf, ": %p>", static_cast<const void*>(this));
  return "<" + className() + buf;
}

void BVObject::encodeWithCoder(belvane::BVArchiveEncoder&) const {}
