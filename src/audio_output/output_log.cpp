// Audio output diagnostics, prefixed so they can be told apart in the
// streaming log.
#include "audio_output/output_log.h"

#include <cstdarg>
#include <cstdio>

namespace belvane::detail {

void outputLog(int level, const char* format, ...) {
  if (level > QLDebugLogLevel()) return;
  char message[512];
  va_list args;
  va_start(args, format);
  vsnprintf(message, sizeof message, format, args);
  va_end(args);
  QLDebugLog(level, "Audio output: %s", message);
}

}  // namespace belvane::detail
