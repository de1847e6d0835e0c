// The streaming library's log level and log file. The level is an atomic;
// the file and its path sit behind one mutex, so any thread may log while
// another opens or closes the file.
#include "streaming/QLDebug.h"

#include "foundation/thread_annotations.h"
#include "foundation/url_redaction.h"

#include <belvane/BVKitOwner.h>

#include <glib.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <string>

namespace {

std::atomic<int> gLevel{QL_LOG_ERROR};

struct LogFile {
  belvane::detail::Mutex mutex;
  FILE* file GUARDED_BY(mutex) = nullptr;
  std::string path GUARDED_BY(mutex);
};

LogFile& logFile() {
  static LogFile* instance = new LogFile;  // never destroyed: loggers may run during exit
  return *instance;
}

const char* levelName(int level) {
  switch (level) {
    case QL_LOG_ERROR: return "error";
    case QL_LOG_WARNING: return "warning";
    case QL_LOG_INFO: return "info";
    default: return "debug";
  }
}

}  // namespace

extern "C" {

int QLDebugLogLevel(void) { return gLevel.load(std::memory_order_relaxed); }

int QLDebugSetLogLevel(int level) {
  if (level < QL_LOG_NONE) level = QL_LOG_NONE;
  if (level > QL_LOG_DEBUG) level = QL_LOG_DEBUG;
  return gLevel.exchange(level);
}

const char* QLDebugLogFilePath(void) {
  // A per-thread copy, so the pointer stays valid on this thread even when
  // another thread closes the file meanwhile (until this thread asks again).
  thread_local std::string copy;
  LogFile& log = logFile();
  belvane::detail::MutexLock lock(log.mutex);
  if (!log.file) return nullptr;
  copy = log.path;
  return copy.c_str();
}

bool QLDebugOpenLogFileAtPath(const char* path) {
  if (!path || !*path) return false;
  FILE* file = std::fopen(path, "a");
  if (!file) return false;
  LogFile& log = logFile();
  belvane::detail::MutexLock lock(log.mutex);
  if (log.file) std::fclose(log.file);
  log.file = file;
  log.path = path;
  return true;
}

bool QLDebugCloseLogFile(void) {
  LogFile& log = logFile();
  belvane::detail::MutexLock lock(log.mutex);
  if (!log.file) return false;
  bool ok = std::fclose(log.file) == 0;
  log.file = nullptr;
  log.path.clear();
  return ok;
}

void QLDebugLog(int level, const char* format, ...) {
  if (level <= QL_LOG_NONE || level > QLDebugLogLevel() || !format || !*format) return;
  va_list args;
  va_start(args, format);
  char* text = g_strdup_vprintf(format, args);
  va_end(args);
  {
    LogFile& log = logFile();
    belvane::detail::MutexLock lock(log.mutex);
    if (log.file) {
      GDateTime* now = g_date_time_new_now_local();
      char* stamp = g_date_time_format(now, "%Y-%m-%d %H:%M:%S.%f");
      std::fprintf(log.file, "%s [%s] %s\n", stamp, levelName(level), belvane::detail::withoutURLPasswords(text).c_str());
      std::fflush(log.file);
      g_free(stamp);
      g_date_time_unref(now);
      g_free(text);
      return;
    }
  }
  BVLogString(text);
  g_free(text);
}

}  // extern "C"
