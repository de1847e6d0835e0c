// Fuzzes property-list reading (XML text, and binary when the input says so):
// whatever parses must serialise again without trouble.
#include <belvane/BVPropertyList.h>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto value = BVPropertyList::parse({data, size});
  if (value) {
    BVPropertyList::serialize(*value, BVPropertyListFormat::XML);
    BVPropertyList::serialize(*value, BVPropertyListFormat::Binary);
    (void)value->description();
  }
  return 0;
}
