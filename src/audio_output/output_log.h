// Diagnostics of the audio output, through the streaming library's log
// (its level and log file apply).
#pragma once

#include "streaming/QLDebug.h"

namespace belvane::detail {

void outputLog(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace belvane::detail
