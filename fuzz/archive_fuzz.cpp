// Fuzzes archive decoding with every class the media model can rebuild
// allowed, and touches what comes out.
#include <belvane/BVArchive.h>

#include "model/model_archiving.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  belvane::BVArchiveLimits limits;
  limits.maxBytes = 1 << 20;
  limits.maxElements = 1 << 16;
  auto value = belvane::BVUnarchive({data, size}, belvane::detail::BVModelArchivableClasses(), limits);
  if (value) {
    (void)value->description();
    belvane::BVArchivedData(*value);
  }
  return 0;
}
