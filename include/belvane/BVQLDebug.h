// The streaming library's diagnostics control, exported so that the host
// can set the log level and log file without linking the streaming library
// itself. Each wrapper calls the streaming library's function of the same
// role and returns its result unchanged.
//
// Thread: any, for every function (the level is read by every thread that
// logs; the file is opened, written and closed under one lock).
#pragma once

#include <belvane/BVExport.h>

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

// Levels: 0 none, 1 errors, 2 warnings, 3 information, 4 debugging.
BV_EXPORT int BVQLDebugLogLevel(void);
// Returns the previous level.
BV_EXPORT int BVQLDebugSetLogLevel(int level);
// The open log file's path, or NULL when none is open. The text stays valid
// on the calling thread until its next call.
BV_EXPORT const char* BVQLDebugLogFilePath(void);
// Appends the streaming library's messages to the file at path (instead of
// BVLog); true on success.
BV_EXPORT bool BVQLDebugOpenLogFileAtPath(const char* path);
// True when a log file was open and has been closed.
BV_EXPORT bool BVQLDebugCloseLogFile(void);

#ifdef __cplusplus
}
#endif
