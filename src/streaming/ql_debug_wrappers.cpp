// The exported BVQLDebug wrappers: each forwards to the streaming library.
#include <belvane/BVQLDebug.h>

#include "streaming/QLDebug.h"

extern "C" {

int BVQLDebugLogLevel(void) { return QLDebugLogLevel(); }
int BVQLDebugSetLogLevel(int level) { return QLDebugSetLogLevel(level); }
const char* BVQLDebugLogFilePath(void) { return QLDebugLogFilePath(); }
bool BVQLDebugOpenLogFileAtPath(const char* path) { return QLDebugOpenLogFileAtPath(path); }
bool BVQLDebugCloseLogFile(void) { return QLDebugCloseLogFile(); }

}  // extern "C"
