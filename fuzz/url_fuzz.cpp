// Fuzzes URL parsing: BVURL's constructors and accessors and the user-string
// constructors. The input is split at its first NUL byte into a string and a
// base URL string.
#include <belvane/BVURL.h>
#include <belvane/BVURLAdditions.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace {

void touch(const BVURL& url) {
  (void)url.scheme();
  (void)url.resourceSpecifier();
  (void)url.host();
  (void)url.port();
  (void)url.path();
  (void)url.pathExtension();
  (void)url.query();
  (void)url.fileSystemPath();
  (void)bvIsAbsoluteURL(url);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view input(reinterpret_cast<const char*>(data), size);
  size_t split = input.find('\0');
  std::string_view string = input.substr(0, split);
  std::string_view baseString = split == std::string_view::npos ? std::string_view() : input.substr(split + 1);

  auto url = BVURL::URLWithString(string);
  if (url) {
    touch(*url);
    // A parsed URL keeps its text exactly.
    if (url->absoluteString() != string) __builtin_trap();
  }
  auto base = BVURL::URLWithString(baseString);
  if (base) {
    touch(*base);
    if (auto resolved = BVURL::URLWithStringRelativeTo(string, *base)) touch(*resolved);
  }
  if (auto fromString = bvURLFromString(string, base)) touch(*fromString);
  if (auto plain = bvURLFromString(string)) touch(*plain);
  return 0;
}
