// Fuzzes the raw header parser and the content-type scan of a probe's first
// bytes: arbitrary bytes must neither crash nor hang them.
#include <belvane/BVURLProbe.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::span<const uint8_t> bytes(data, size);
  (void)BVURLProbe::contentTypeFromRawBytes(bytes);

  BVErrorRef error;
  std::string_view text(reinterpret_cast<const char*>(data), size);
  BVHeaderDictionary fields = BVURLProbe::parseHeader(text, &error);
  (void)BVURLProbe::dictionaryWithAllKeysLowercase(fields);
  if (error && error->domain() != "ORShoutcastErrorDomain") __builtin_trap();
  return 0;
}
