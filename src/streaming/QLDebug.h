// The streaming library's own diagnostics: a log level and an optional log
// file, used by the tuner, the shoutstreamer and the audio output. Messages
// at or below the level go to the log file when one is open, else to BVLog.
#pragma once

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

enum { QL_LOG_NONE = 0, QL_LOG_ERROR = 1, QL_LOG_WARNING = 2, QL_LOG_INFO = 3, QL_LOG_DEBUG = 4 };

int QLDebugLogLevel(void);
int QLDebugSetLogLevel(int level);  // returns the previous level
const char* QLDebugLogFilePath(void);  // NULL when no file is open
bool QLDebugOpenLogFileAtPath(const char* path);
bool QLDebugCloseLogFile(void);
void QLDebugLog(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

#ifdef __cplusplus
}
#endif
