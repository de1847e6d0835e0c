// BVHelixError: errors of the RealMedia engine and player.
#include <belvane/BVConstants.h>
#include <belvane/BVHelixError.h>

#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

BVErrorRef BVHelixError(int64_t code, const char* format, ...) {
  if (!format || !*format) return BVError::create(BVHelixErrorDomain, code);

  // Messages written for the original platform use %@ for strings.
  std::string fmt;
  for (const char* p = format; *p; ++p) {
    if (p[0] == '%' && p[1] == '%') {
      fmt += "%%";
      ++p;
    } else if (p[0] == '%' && p[1] == '@') {
      fmt += "%s";
      ++p;
    } else {
      fmt += *p;
    }
  }

  va_list ap;
  va_start(ap, format);
  va_list ap2;
  va_copy(ap2, ap);
  int n = std::vsnprintf(nullptr, 0, fmt.c_str(), ap);
  va_end(ap);
  std::string message;
  if (n > 0) {
    std::vector<char> buf(size_t(n) + 1);
    std::vsnprintf(buf.data(), buf.size(), fmt.c_str(), ap2);
    message.assign(buf.data(), size_t(n));
  }
  va_end(ap2);
  return BVError::withDescription(BVHelixErrorDomain, code, std::move(message));
}
